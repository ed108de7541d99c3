#include "windows/sink_filter.h"

#include <atomic>
#include <chrono>
#include <utility>

#include "windows/support.h"

#include <control.h>

namespace vex::wintest {

namespace {

// The class identifier of no registered class; filters must have one.
constexpr CLSID kSinkClass{0x2d4c9a1e, 0x5b7f, 0x4e0b, {0x9c, 0x31, 0x7a, 0x58, 0x0e, 0x6f, 0x22, 0xd4}};

HRESULT CopyType(AM_MEDIA_TYPE& to, const AM_MEDIA_TYPE& from)
{
    to = from;
    to.pbFormat = nullptr;
    if (from.cbFormat) {
        to.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(from.cbFormat));
        if (!to.pbFormat)
            return E_OUTOFMEMORY;
        std::memcpy(to.pbFormat, from.pbFormat, from.cbFormat);
    }
    if (to.pUnk)
        to.pUnk->AddRef();
    return S_OK;
}

void FreeType(AM_MEDIA_TYPE& type)
{
    CoTaskMemFree(type.pbFormat);
    if (type.pUnk)
        type.pUnk->Release();
    type = {};
}

// An enumerator over at most one pin, or over no media types at all.
template <class Interface, class Item>
class CEnum final : public Interface {
public:
    explicit CEnum(IPin* onlyPin) : pin(onlyPin) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override
    {
        if (iid != IID_IUnknown && iid != __uuidof(Interface))
            return *out = nullptr, E_NOINTERFACE;
        *out = static_cast<Interface*>(this);
        return AddRef(), S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++references; }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = --references;
        if (left == 0)
            delete this;
        return left;
    }
    STDMETHODIMP Next(ULONG count, Item** items, ULONG* fetched) override
    {
        ULONG given = 0;
        if constexpr (std::is_same_v<Item, IPin>) {
            if (count > 0 && pin && !std::exchange(passed, true)) {
                *items = pin.Get();
                (*items)->AddRef();
                given = 1;
            }
        }
        if (fetched)
            *fetched = given;
        return given == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) override
    {
        const ULONG left = pin && !passed ? 1 : 0;
        passed = true;
        return count <= left ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override { return passed = false, S_OK; }
    STDMETHODIMP Clone(Interface** out) override
    {
        auto* copy = new CEnum(pin.Get());
        copy->passed = passed;
        *out = copy;
        return S_OK;
    }

private:
    std::atomic<ULONG> references = 1;
    const GComPtr<IPin> pin;
    bool passed = false;
};

class CSinkFilter;

class CSinkPin final : public IPin, public IMemInputPin {
public:
    explicit CSinkPin(CSinkFilter& owner) : filter(owner) {}
    ~CSinkPin() { FreeType(type); }

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* mediaType) override;
    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** out) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* out) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override { return *direction = PINDIR_INPUT, S_OK; }
    STDMETHODIMP QueryId(LPWSTR* id) override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** out) override
    {
        *out = new CEnum<IEnumMediaTypes, AM_MEDIA_TYPE>(nullptr);
        return S_OK;
    }
    STDMETHODIMP QueryInternalConnections(IPin**, ULONG* count) override { return *count = 0, S_OK; }
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

    STDMETHODIMP GetAllocator(IMemAllocator** out) override
    {
        return CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                reinterpret_cast<void**>(out));
    }
    STDMETHODIMP NotifyAllocator(IMemAllocator* chosen, BOOL) override
    {
        return allocator = GComPtr<IMemAllocator>(chosen), S_OK;
    }
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP ReceiveMultiple(IMediaSample** samples, long count, long* processed) override;
    STDMETHODIMP ReceiveCanBlock() override { return S_OK; }

    bool Connected() const { return static_cast<bool>(peer); }

private:
    CSinkFilter& filter;
    GComPtr<IPin> peer;
    GComPtr<IMemAllocator> allocator;
    AM_MEDIA_TYPE type{};
};

class CSinkFilter final : public IBaseFilter, public IAMFilterMiscFlags, public IGSinkControl {
public:
    explicit CSinkFilter(std::shared_ptr<GPinLog> pinLog) : log(std::move(pinLog)), pin(*this)
    {
        // The graph seeks through its renderers, which hand the request upstream.
        Check(CoCreateInstance(CLSID_SeekingPassThru, static_cast<IBaseFilter*>(this), CLSCTX_INPROC_SERVER,
                               IID_IUnknown, passThru.PutVoid()),
              "the seeking pass-through");
        const auto set = QueryFor<ISeekingPassThru>(passThru.Get(), IID_ISeekingPassThru);
        Require(static_cast<bool>(set), "the seeking pass-through has no ISeekingPassThru");
        Check(set->Init(TRUE, &pin), "ISeekingPassThru::Init");
    }

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override
    {
        if (iid == IID_IUnknown || iid == IID_IPersist || iid == IID_IMediaFilter || iid == IID_IBaseFilter)
            *out = static_cast<IBaseFilter*>(this);
        else if (iid == IID_IAMFilterMiscFlags)
            *out = static_cast<IAMFilterMiscFlags*>(this);
        else if (iid == IID_IMediaSeeking || iid == IID_IMediaPosition)
            return passThru->QueryInterface(iid, out);
        else
            return *out = nullptr, E_NOINTERFACE;
        return AddRef(), S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++references; }
    STDMETHODIMP_(ULONG) Release() override
    {
        const ULONG left = --references;
        if (left == 0) {
            references = 1;  // the aggregated pass-through calls back here while it goes
            delete this;
        }
        return left;
    }

    STDMETHODIMP GetClassID(CLSID* out) override { return *out = kSinkClass, S_OK; }
    STDMETHODIMP Stop() override { return ChangeState(State_Stopped); }
    STDMETHODIMP Pause() override { return ChangeState(State_Paused); }
    STDMETHODIMP Run(REFERENCE_TIME) override { return ChangeState(State_Running); }
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* out) override
    {
        GMutexLock held(lock);
        // INFINITE is a long wait here: a state that never comes is a failure that the caller should see.
        const auto patience = std::chrono::milliseconds(std::min(timeoutMs, kPatienceMs));
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (!ReadyLocked() && held.WaitUntil(changed, deadline)) {}
        *out = state;
        return ReadyLocked() ? S_OK : VFW_S_STATE_INTERMEDIATE;
    }
    STDMETHODIMP SetSyncSource(IReferenceClock* source) override
    {
        const GMutexLock held(lock);
        return clock = GComPtr<IReferenceClock>(source), S_OK;
    }
    STDMETHODIMP GetSyncSource(IReferenceClock** out) override
    {
        const GMutexLock held(lock);
        return *out = GComPtr<IReferenceClock>(clock).Detach(), S_OK;
    }
    STDMETHODIMP EnumPins(IEnumPins** out) override { return *out = new CEnum<IEnumPins, IPin>(&pin), S_OK; }
    STDMETHODIMP FindPin(LPCWSTR id, IPin** out) override
    {
        if (std::wstring_view(id) != L"In")
            return *out = nullptr, VFW_E_NOT_FOUND;
        *out = &pin;
        return AddRef(), S_OK;
    }
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override
    {
        wcsncpy(info->achName, name.c_str(), MAX_FILTER_NAME - 1);
        info->achName[MAX_FILTER_NAME - 1] = 0;
        info->pGraph = graph;
        if (graph)
            graph->AddRef();
        return S_OK;
    }
    STDMETHODIMP JoinFilterGraph(IFilterGraph* joined, LPCWSTR newName) override
    {
        graph = joined;  // not owned: the graph owns the filter
        name = newName ? newName : L"";
        return S_OK;
    }
    STDMETHODIMP QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }
    STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }

    void HoldAt(std::size_t samples) override
    {
        const GMutexLock held(lock);
        holdAt = samples;
        changed.notify_all();
    }

    // What the pin hears from upstream.
    HRESULT Receive(IMediaSample& sample)
    {
        GMutexLock held(lock);
        if (flushing)
            return S_FALSE;
        if (state == State_Stopped)
            return VFW_E_WRONG_STATE;
        if (ended)
            return VFW_E_SAMPLE_REJECTED_EOS;
        log->Add(sample);
        ++arrived;
        holding = true;
        changed.notify_all();
        while (!flushing && state != State_Stopped && (state != State_Running || (holdAt && arrived >= holdAt)))
            held.Wait(changed);
        holding = false;
        return flushing || state == State_Stopped ? S_FALSE : S_OK;
    }
    void EndOfStream()
    {
        log->AddEndOfStream();
        {
            const GMutexLock held(lock);
            ended = true;
            changed.notify_all();
        }
        ReportEnd();
    }
    void BeginFlush()
    {
        const GMutexLock held(lock);
        flushing = true;
        changed.notify_all();
    }
    void EndFlush()
    {
        const GMutexLock held(lock);
        flushing = ended = reported = false;
    }

    const std::shared_ptr<GPinLog> log;

private:
    ~CSinkFilter() = default;

    bool ReadyLocked() const { return state != State_Paused || !pin.Connected() || holding || ended; }

    HRESULT ChangeState(FILTER_STATE to)
    {
        HRESULT result = S_OK;
        {
            const GMutexLock held(lock);
            if (state == State_Stopped || to == State_Stopped) {
                ended = reported = false;
                arrived = 0;
            }
            state = to;
            changed.notify_all();
            result = ReadyLocked() ? S_OK : S_FALSE;
        }
        ReportEnd();
        return result;
    }

    // EC_COMPLETE once per end of stream, and only while running.
    void ReportEnd()
    {
        {
            const GMutexLock held(lock);
            if (!ended || reported || state != State_Running)
                return;
            reported = true;
        }
        if (const auto events = QueryFor<IMediaEventSink>(graph, IID_IMediaEventSink))
            events->Notify(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
    }

    std::atomic<ULONG> references = 1;
    CSinkPin pin;
    GComPtr<IUnknown> passThru;
    IFilterGraph* graph = nullptr;
    std::wstring name;

    GMutex lock;  // Guards what follows.
    GCondition changed;
    GComPtr<IReferenceClock> clock;
    FILTER_STATE state = State_Stopped;
    std::size_t arrived = 0, holdAt = 0;
    bool flushing = false, ended = false, reported = false;
    bool holding = false;  // a thread stands in Receive with its sample
};

HRESULT CSinkPin::QueryInterface(REFIID iid, void** out)
{
    if (iid == IID_IUnknown || iid == IID_IPin)
        *out = static_cast<IPin*>(this);
    else if (iid == IID_IMemInputPin)
        *out = static_cast<IMemInputPin*>(this);
    else
        return *out = nullptr, E_NOINTERFACE;
    return AddRef(), S_OK;
}

ULONG CSinkPin::AddRef() { return filter.AddRef(); }
ULONG CSinkPin::Release() { return filter.Release(); }

HRESULT CSinkPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* mediaType)
{
    if (peer)
        return VFW_E_ALREADY_CONNECTED;
    if (const HRESULT copied = CopyType(type, *mediaType); FAILED(copied))
        return copied;
    peer = GComPtr<IPin>(connector);
    return S_OK;
}

HRESULT CSinkPin::Disconnect()
{
    if (!peer)
        return S_FALSE;
    peer.Reset();
    allocator.Reset();
    FreeType(type);
    return S_OK;
}

HRESULT CSinkPin::ConnectedTo(IPin** out)
{
    *out = GComPtr<IPin>(peer).Detach();
    return *out ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT CSinkPin::ConnectionMediaType(AM_MEDIA_TYPE* out) { return peer ? CopyType(*out, type) : VFW_E_NOT_CONNECTED; }

HRESULT CSinkPin::QueryPinInfo(PIN_INFO* info)
{
    info->pFilter = &filter;
    filter.AddRef();
    info->dir = PINDIR_INPUT;
    wcscpy(info->achName, L"In");
    return S_OK;
}

HRESULT CSinkPin::QueryId(LPWSTR* id)
{
    *id = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof L"In"));
    if (!*id)
        return E_OUTOFMEMORY;
    wcscpy(*id, L"In");
    return S_OK;
}

HRESULT CSinkPin::EndOfStream() { return filter.EndOfStream(), S_OK; }
HRESULT CSinkPin::BeginFlush() { return filter.BeginFlush(), S_OK; }
HRESULT CSinkPin::EndFlush() { return filter.EndFlush(), S_OK; }

HRESULT CSinkPin::NewSegment(REFERENCE_TIME start, REFERENCE_TIME, double)
{
    return filter.log->AddSegment(start), S_OK;
}

HRESULT CSinkPin::Receive(IMediaSample* sample) { return filter.Receive(*sample); }

HRESULT CSinkPin::ReceiveMultiple(IMediaSample** samples, long count, long* processed)
{
    *processed = 0;
    for (long i = 0; i < count; ++i, ++*processed) {
        if (const HRESULT received = Receive(samples[i]); received != S_OK)
            return received;
    }
    return S_OK;
}

}  // namespace

GComPtr<IBaseFilter> CreateSinkFilter(std::shared_ptr<GPinLog> log, IGSinkControl** control)
{
    auto* filter = new CSinkFilter(std::move(log));
    *control = filter;
    return GComPtr<IBaseFilter>::Adopt(filter);
}

}  // namespace vex::wintest
