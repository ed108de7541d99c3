#include "host/host_graph.h"

#include <algorithm>
#include <cstdio>

#include "platform/text.h"

namespace vex {

namespace {

// How long a change of state may take before the host calls it failed: far beyond any, so that only a hang meets it.
constexpr DWORD kStateTimeoutMs = 60'000;

constexpr std::chrono::milliseconds kTick{500};

constexpr std::chrono::milliseconds kLoadPoll{10};
constexpr std::chrono::milliseconds kLoadTick{100};

// What the filter left as the calling thread's error object, as UTF-8.
std::string TakeErrorText()
{
    GComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Put()) != S_OK || !info)
        return {};
    BSTR description = nullptr;
    if (FAILED(info->GetDescription(&description)))
        return {};
    return TakeText(description);
}

HRESULT WaitForState(IBaseFilter& filter)
{
    FILTER_STATE state = State_Stopped;
    const HRESULT result = filter.GetState(kStateTimeoutMs, &state);
    return result == VFW_S_STATE_INTERMEDIATE ? VFW_E_TIMEOUT : result;
}

}  // namespace

GHostGraph::GHostGraph(GModule filterModule)
    : module(std::move(filterModule)), site(GComPtr<CGraphSite>::Adopt(new CGraphSite(progress)))
{
}

GHostGraph::~GHostGraph()
{
    if (!filter)
        return;
    Stop();
    for (std::size_t pin = 0; pin < pins.size(); ++pin) {
        Disconnect(pin);
        if (pins[pin].sink)  // the filter refused; the sink lets go of it all the same
            pins[pin].sink->Disconnect();
    }
    filter->JoinFilterGraph(nullptr, nullptr);
    pins.clear();
    filter.Reset();
}

HRESULT GHostGraph::Create(REFCLSID clsid)
{
    if (filter)
        return E_UNEXPECTED;
    GComPtr<IClassFactory> factory;
    HRESULT result = module.getClassObject(clsid, IID_IClassFactory, factory.PutVoid());
    if (SUCCEEDED(result))
        result = factory->CreateInstance(nullptr, IID_IBaseFilter, filter.PutVoid());
    if (SUCCEEDED(result))
        result = filter->JoinFilterGraph(site.Get(), VEX_W("Source"));
    if (FAILED(result))
        filter.Reset();
    return result;
}

HRESULT GHostGraph::Load(const WString& path, const GLoadTick& tick)
{
    const HRESULT result = BeginLoad(path);
    return FAILED(result) ? result : FinishLoad(tick);
}

HRESULT GHostGraph::BeginLoad(const WString& path)
{
    errorText.clear();
    const auto source = Control<IFileSourceFilter>(IID_IFileSourceFilter);
    if (!source)
        return E_NOINTERFACE;
    SetErrorInfo(0, nullptr);
    const HRESULT result = source->Load(path.c_str(), nullptr);
    if (FAILED(result))
        errorText = TakeErrorText();
    return result;
}

HRESULT GHostGraph::FinishLoad(const GLoadTick& tick)
{
    const HRESULT loaded = WaitUntilLoaded(tick);
    return FAILED(loaded) ? loaded : EnumeratePins();
}

// A filter that fetches its file says how far it is only when it is asked.
HRESULT GHostGraph::WaitUntilLoaded(const GLoadTick& tick)
{
    const auto inspect = Control<IVexInspect>(IID_IVexInspect);
    if (!inspect)
        return S_OK;
    VexLoadState state = VexLoad_None;
    const auto loaded = [&] { return FAILED(inspect->GetLoadState(&state, nullptr)) || state != VexLoad_Running; };
    for (auto nextTick = GSteadyClock::now() + kLoadTick; !WaitUntil(kLoadPoll, loaded);) {
        if (progress->Cancelled())
            return E_ABORT;
        if (!tick || GSteadyClock::now() < nextTick)
            continue;
        nextTick = GSteadyClock::now() + kLoadTick;
        ULONGLONG done = 0;
        ULONGLONG total = 0;
        if (SUCCEEDED(inspect->GetLoadProgress(&done, &total)))
            tick(done, total);
    }
    BSTR reason = nullptr;
    if (SUCCEEDED(inspect->GetLoadState(&state, &reason)))
        errorText = TakeText(reason);
    return state == VexLoad_Failed ? E_FAIL : S_OK;
}

HRESULT GHostGraph::EnumeratePins()
{
    GComPtr<IEnumPins> list;
    if (const HRESULT result = filter->EnumPins(list.Put()); FAILED(result))
        return result;
    GComPtr<IPin> pin;
    while (list->Next(1, pin.Put(), nullptr) == S_OK) {
        PIN_DIRECTION direction = PINDIR_INPUT;
        if (SUCCEEDED(pin->QueryDirection(&direction)) && direction == PINDIR_OUTPUT)
            pins.push_back({std::move(pin), {}});
    }
    return S_OK;
}

WString GHostGraph::PinName(std::size_t pin) const
{
    PIN_INFO info{};
    if (FAILED(pins[pin].output->QueryPinInfo(&info)))
        return {};
    GComPtr<IBaseFilter>::Adopt(info.pFilter);
    const auto end = std::find(std::begin(info.achName), std::end(info.achName), WCHAR{0});
    return {std::begin(info.achName), end};
}

std::vector<CMediaType> GHostGraph::PinTypes(std::size_t pin) const
{
    std::vector<CMediaType> types;
    GComPtr<IEnumMediaTypes> list;
    if (FAILED(pins[pin].output->EnumMediaTypes(list.Put())))
        return types;
    AM_MEDIA_TYPE* type = nullptr;
    while (list->Next(1, &type, nullptr) == S_OK) {
        types.emplace_back(*type);
        DeleteMediaType(type);
    }
    return types;
}

std::optional<REFERENCE_TIME> GHostGraph::Duration() const
{
    std::optional<REFERENCE_TIME> longest;
    for (const GPinSlot& slot : pins) {
        const auto seeking = QueryFor<IMediaSeeking>(slot.output.Get(), IID_IMediaSeeking);
        LONGLONG duration = 0;
        if (seeking && SUCCEEDED(seeking->GetDuration(&duration)))
            longest = std::max(longest.value_or(duration), REFERENCE_TIME{duration});
    }
    return longest;
}

HRESULT GHostGraph::Connect(std::size_t pin, GSinkOptions options, const AM_MEDIA_TYPE* type)
{
    GPinSlot& slot = pins[pin];
    if (slot.sink)
        return VFW_E_ALREADY_CONNECTED;
    auto sink = GComPtr<CSinkPin>::Adopt(new CSinkPin(pin, std::move(options), progress));
    const HRESULT result = slot.output->Connect(sink.Get(), type);
    if (SUCCEEDED(result))
        slot.sink = std::move(sink);
    return result;
}

HRESULT GHostGraph::ConnectAll(const GSinkOptions& options)
{
    HRESULT first = S_OK;
    for (std::size_t pin = 0; pin < pins.size(); ++pin)
        if (const HRESULT result = Connect(pin, options); FAILED(result) && SUCCEEDED(first))
            first = result;
    return first;
}

HRESULT GHostGraph::Disconnect(std::size_t pin)
{
    GPinSlot& slot = pins[pin];
    if (!slot.sink)
        return S_FALSE;
    const HRESULT result = slot.output->Disconnect();
    if (FAILED(result))
        return result;
    slot.sink->Disconnect();
    slot.sink.Reset();
    return result;
}

std::optional<CMediaType> GHostGraph::ConnectedType(std::size_t pin) const
{
    AM_MEDIA_TYPE type{};
    if (FAILED(pins[pin].output->ConnectionMediaType(&type)))
        return {};
    CMediaType copy(type);
    FreeMediaType(type);
    return copy;
}

HRESULT GHostGraph::Run()
{
    // A graph goes through Paused: a filter is never told to run from Stopped.
    if (const HRESULT result = Pause(); FAILED(result))
        return result;
    const HRESULT result = filter->Run(0);
    return FAILED(result) ? result : WaitForState(*filter);
}

HRESULT GHostGraph::Pause()
{
    if (!filter)
        return E_UNEXPECTED;
    for (const GPinSlot& slot : pins)
        if (slot.sink)
            slot.sink->SetActive(true);
    active = true;
    const HRESULT result = filter->Pause();
    return FAILED(result) ? result : WaitForState(*filter);
}

HRESULT GHostGraph::Stop()
{
    if (!filter || !active)
        return S_OK;
    for (const GPinSlot& slot : pins)
        if (slot.sink)
            slot.sink->SetActive(false);
    active = false;
    const HRESULT result = filter->Stop();
    return FAILED(result) ? result : WaitForState(*filter);
}

std::vector<GSeekResult> GHostGraph::Seek(REFERENCE_TIME position, std::optional<REFERENCE_TIME> stop)
{
    std::vector<GSeekResult> results;
    for (const GPinSlot& slot : pins) {
        GSeekResult& seek = results.emplace_back();
        if (!slot.sink) {
            seek.result = S_FALSE;
            continue;
        }
        const auto seeking = QueryFor<IMediaSeeking>(slot.output.Get(), IID_IMediaSeeking);
        if (!seeking) {
            seek.result = E_NOINTERFACE;
            continue;
        }
        LONGLONG reached = position;
        LONGLONG end = stop.value_or(0);
        seek.result = seeking->SetPositions(&reached, AM_SEEKING_AbsolutePositioning | AM_SEEKING_ReturnTime, &end,
                                            stop ? AM_SEEKING_AbsolutePositioning : AM_SEEKING_NoPositioning);
        if (SUCCEEDED(seek.result))
            seek.reached = reached;
    }
    return results;
}

bool GHostGraph::AllEnded() const
{
    return std::all_of(pins.begin(), pins.end(), [](const GPinSlot& slot) {
        if (!slot.sink)
            return true;
        const GSinkReport report = slot.sink->Report();
        return report.endOfStream || report.refused;
    });
}

std::uint64_t GHostGraph::Delivered() const
{
    std::uint64_t samples = 0;
    for (const GPinSlot& slot : pins)
        if (slot.sink)
            samples += slot.sink->SampleCount();
    return samples;
}

GEnd GHostGraph::WaitForEnd(std::chrono::milliseconds stall, const std::function<void()>& tick)
{
    auto lastProgress = GSteadyClock::now();
    std::uint64_t delivered = Delivered();
    for (;;) {
        const bool ended = WaitUntil(std::min(stall, kTick), [this] { return AllEnded() || FAILED(ErrorCode()); });
        if (FAILED(ErrorCode()))
            return GEnd::Failed;
        if (ended)
            return GEnd::Complete;
        if (progress->Cancelled())
            return GEnd::Cancelled;
        if (tick)
            tick();
        const auto now = GSteadyClock::now();
        if (const std::uint64_t count = Delivered(); count != delivered) {
            delivered = count;
            lastProgress = now;
        } else if (now - lastProgress >= stall) {
            return GEnd::Stalled;
        }
    }
}

std::string TakeText(BSTR text)
{
    if (!text)
        return {};
    std::string utf8 = Utf8FromWide({text, SysStringLen(text)});
    SysFreeString(text);
    return utf8;
}

std::string ResultText(HRESULT result)
{
    static constexpr struct {
        HRESULT code;
        const char* name;
    } kKnown[] = {
        {S_OK, "S_OK"},
        {S_FALSE, "S_FALSE"},
        {E_FAIL, "E_FAIL"},
        {E_ABORT, "E_ABORT"},
        {E_NOTIMPL, "E_NOTIMPL"},
        {E_POINTER, "E_POINTER"},
        {E_UNEXPECTED, "E_UNEXPECTED"},
        {E_INVALIDARG, "E_INVALIDARG"},
        {E_OUTOFMEMORY, "E_OUTOFMEMORY"},
        {E_NOINTERFACE, "E_NOINTERFACE"},
        {CLASS_E_CLASSNOTAVAILABLE, "CLASS_E_CLASSNOTAVAILABLE"},
        {VFW_E_NO_ACCEPTABLE_TYPES, "VFW_E_NO_ACCEPTABLE_TYPES"},
        {VFW_E_ALREADY_CONNECTED, "VFW_E_ALREADY_CONNECTED"},
        {VFW_E_NOT_CONNECTED, "VFW_E_NOT_CONNECTED"},
        {VFW_E_NO_ALLOCATOR, "VFW_E_NO_ALLOCATOR"},
        {VFW_E_BUFFER_OVERFLOW, "VFW_E_BUFFER_OVERFLOW"},
        {VFW_E_NOT_COMMITTED, "VFW_E_NOT_COMMITTED"},
        {VFW_E_NOT_STOPPED, "VFW_E_NOT_STOPPED"},
        {VFW_E_WRONG_STATE, "VFW_E_WRONG_STATE"},
        {VFW_E_TIMEOUT, "VFW_E_TIMEOUT"},
    };
    for (const auto& known : kKnown)
        if (known.code == result)
            return known.name;
    char text[32];
    std::snprintf(text, sizeof text, "error 0x%08lX", static_cast<unsigned long>(static_cast<std::uint32_t>(result)));
    return text;
}

}  // namespace vex
