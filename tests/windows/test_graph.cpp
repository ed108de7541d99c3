#include "windows/test_graph.h"

#include <cstdio>

#include "media/media_type_text.h"
#include "support/test_object.h"
#include "windows/support.h"

#include <qedit.h>

namespace vex::wintest {

namespace {

class CGrabberCallback final : public test::GTestObject<ISampleGrabberCB> {
public:
    explicit CGrabberCallback(std::shared_ptr<GPinLog> pinLog) : log(std::move(pinLog)) {}

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override
    {
        if (iid != IID_ISampleGrabberCB)
            return GTestObject::QueryInterface(iid, out);
        *out = static_cast<ISampleGrabberCB*>(this);
        return AddRef(), S_OK;
    }
    STDMETHODIMP SampleCB(double, IMediaSample* sample) override { return log->Add(DescribeSample(*sample)), S_OK; }
    STDMETHODIMP BufferCB(double, BYTE*, LONG) override { return S_OK; }

private:
    const std::shared_ptr<GPinLog> log;
};

}  // namespace

std::vector<GComPtr<IPin>> PinsOf(IBaseFilter& filter, PIN_DIRECTION wanted)
{
    GComPtr<IEnumPins> all;
    Check(filter.EnumPins(all.Put()), "EnumPins");
    std::vector<GComPtr<IPin>> pins;
    GComPtr<IPin> pin;
    while (all->Next(1, pin.Put(), nullptr) == S_OK) {
        PIN_DIRECTION direction;
        Check(pin->QueryDirection(&direction), "QueryDirection");
        if (direction == wanted)
            pins.push_back(pin);
    }
    return pins;
}

GComPtr<IPin> OnlyPin(IBaseFilter& filter, PIN_DIRECTION direction)
{
    const auto pins = PinsOf(filter, direction);
    Require(pins.size() == 1, "a sink has " + std::to_string(pins.size()) + " pins of one direction");
    return pins.front();
}

std::string PinName(IPin& pin)
{
    PIN_INFO info;
    Check(pin.QueryPinInfo(&info), "QueryPinInfo");
    if (info.pFilter)
        info.pFilter->Release();
    return Utf8FromWide(info.achName);
}

GTestGraph::GTestGraph(const GModuleAccess& access, REFCLSID clsid, GKept ofPayloads) : kept(ofPayloads)
{
    Check(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, graph.PutVoid()),
          "the system has no filter graph");
    control = QueryFor<IMediaControl>(graph.Get(), IID_IMediaControl);
    events = QueryFor<IMediaEvent>(graph.Get(), IID_IMediaEvent);
    seeking = QueryFor<IMediaSeeking>(graph.Get(), IID_IMediaSeeking);
    Require(control && events && seeking, "the graph has no control, event or seeking interface");
    Check(access.Create(clsid, IID_IBaseFilter, source.PutVoid()), "creating the filter " + GuidText(clsid));
    Check(graph->AddFilter(source.Get(), L"Source"), "adding the filter to the graph");
}

GTestGraph::~GTestGraph()
{
    control->Stop();
    GComPtr<IEnumFilters> all;
    std::vector<GComPtr<IBaseFilter>> filters;
    if (SUCCEEDED(graph->EnumFilters(all.Put()))) {
        GComPtr<IBaseFilter> filter;
        while (all->Next(1, filter.Put(), nullptr) == S_OK)
            filters.push_back(filter);
    }
    for (const auto& filter : filters)
        graph->RemoveFilter(filter.Get());
}

GLoadResult GTestGraph::Load(const std::wstring& path)
{
    const auto file = QueryFor<IFileSourceFilter>(source.Get(), IID_IFileSourceFilter);
    Require(static_cast<bool>(file), "the filter does not answer IFileSourceFilter");
    TakeErrorText();
    GLoadResult loaded;
    loaded.result = file->Load(path.c_str(), nullptr);
    loaded.errorText = TakeErrorText();
    if (SUCCEEDED(loaded.result)) {
        LPOLESTR current = nullptr;
        Check(file->GetCurFile(&current, nullptr), "GetCurFile");
        const std::wstring said = current ? current : L"";
        CoTaskMemFree(current);
        Require(said == path,
                "GetCurFile says \"" + Utf8FromWide(said) + "\" after \"" + Utf8FromWide(path) + "\" was loaded");
    }
    return loaded;
}

void GTestGraph::MustLoad(const std::wstring& path)
{
    const GLoadResult loaded = Load(path);
    Check(loaded.result, "Load (" + loaded.errorText + ")");
}

void GTestGraph::ConnectAll(GSinkKind kind, GSinkAllocator allocator)
{
    const auto pins = PinsOf(*source, PINDIR_OUTPUT);
    Require(!pins.empty(), "the loaded filter has no output pin");
    for (const auto& pin : pins)
        ConnectPin(*pin, kind, allocator);
    SetPace(GPace::Free);
}

void GTestGraph::SetPace(GPace pace)
{
    const auto media = QueryFor<IMediaFilter>(graph.Get(), IID_IMediaFilter);
    Require(static_cast<bool>(media), "the graph has no IMediaFilter interface");
    if (pace == GPace::Free)
        Check(media->SetSyncSource(nullptr), "taking the clock away");
    else
        Check(graph->SetDefaultSyncSource(), "choosing the default clock");
}

void GTestGraph::ConnectPin(IPin& pin, GSinkKind kind, GSinkAllocator allocator)
{
    const auto log = std::make_shared<GPinLog>(PinName(pin), kept);
    logs.push_back(log);
    if (kind == GSinkKind::Grabber && ConnectGrabber(pin, log))
        ++grabbed;
    else
        Check(graph->Connect(&pin, AddSink(log, allocator).Get()), "connecting pin \"" + log->name + "\"");
}

GComPtr<IBaseFilter> GTestGraph::AddSystemFilter(REFCLSID clsid, const wchar_t* name)
{
    GComPtr<IBaseFilter> filter;
    Check(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, filter.PutVoid()),
          "creating the system's " + Utf8FromWide(name));
    Check(graph->AddFilter(filter.Get(), name), "adding the system's " + Utf8FromWide(name));
    return filter;
}

bool GTestGraph::ConnectGrabber(IPin& pin, const std::shared_ptr<GPinLog>& log)
{
    const auto grabber = AddSystemFilter(kSampleGrabber, L"sample grabber");
    if (const HRESULT connected = graph->ConnectDirect(&pin, OnlyPin(*grabber, PINDIR_INPUT).Get(), nullptr);
        FAILED(connected)) {
        std::fprintf(stderr, "note: the sample grabber refuses pin \"%s\" (%s)\n", log->name.c_str(),
                     ResultText(connected).c_str());
        Check(graph->RemoveFilter(grabber.Get()), "removing the sample grabber");
        return false;
    }
    const auto settings = QueryFor<ISampleGrabber>(grabber.Get(), IID_ISampleGrabber);
    Require(static_cast<bool>(settings), "the sample grabber has no settings");
    const auto callback = GComPtr<CGrabberCallback>::Adopt(new CGrabberCallback(log));
    Check(settings->SetCallback(callback.Get(), 0), "SetCallback of the sample grabber");
    const auto renderer = AddSystemFilter(kNullRenderer, L"null renderer");
    Check(graph->Connect(OnlyPin(*grabber, PINDIR_OUTPUT).Get(), OnlyPin(*renderer, PINDIR_INPUT).Get()),
          "connecting the sample grabber to the null renderer");
    return true;
}

GComPtr<IPin> GTestGraph::AddSink(const std::shared_ptr<GPinLog>& log, GSinkAllocator allocator)
{
    IGSinkControl* sink = nullptr;
    const auto filter = CreateSinkFilter(log, allocator, &sink);
    Check(graph->AddFilter(filter.Get(), L"Sink"), "adding a sink");
    sinks.push_back(sink);
    return OnlyPin(*filter, PINDIR_INPUT);
}

void GTestGraph::WaitForState(OAFilterState wanted)
{
    OAFilterState state = -1;
    const HRESULT result = control->GetState(static_cast<LONG>(kPatienceMs), &state);
    Require(result == S_OK && state == wanted, "the graph is in state " + std::to_string(state) + " (" +
                                                   ResultText(result) + "), not " + std::to_string(wanted));
}

void GTestGraph::Run()
{
    Check(control->Run(), "Run of the graph");
    WaitForState(State_Running);
}

void GTestGraph::Pause()
{
    Check(control->Pause(), "Pause of the graph");
    WaitForState(State_Paused);
}

void GTestGraph::Stop()
{
    Check(control->Stop(), "Stop of the graph");
    WaitForState(State_Stopped);
    // What the graph still had to say belongs to the run that is over.
    long code;
    LONG_PTR first, second;
    while (events->GetEvent(&code, &first, &second, 0) == S_OK)
        events->FreeEventParams(code, first, second);
    for (IGSinkControl* sink : sinks) {
        const auto violations = sink->Violations();
        Require(violations.empty(), violations.empty() ? "" : violations.front());
    }
}

void GTestGraph::WaitForEnd()
{
    // Wine's GetEvent may find its queue empty before the time is over: E_ABORT ends the wait only when nothing has
    // arrived for as long as patience lasts.
    std::string seen;
    ULONGLONG since = GetTickCount64();
    for (;;) {
        long code;
        LONG_PTR first, second;
        const HRESULT got = events->GetEvent(&code, &first, &second, 1000);
        if (std::string now = ArrivedText(); now != seen) {
            seen = std::move(now);
            since = GetTickCount64();
        }
        if (got == E_ABORT && GetTickCount64() - since < kPatienceMs)
            continue;
        Check(got, "waiting for EC_COMPLETE" + ArrivedText());
        const auto status = static_cast<HRESULT>(first);
        events->FreeEventParams(code, first, second);
        Require(code != EC_ERRORABORT && code != EC_USERABORT,
                "the graph was aborted by event " + std::to_string(code) + " with " + ResultText(status));
        if (code == EC_COMPLETE)
            return;
    }
}

std::string GTestGraph::ArrivedText() const
{
    std::string text;
    for (const auto& log : logs) {
        const GArrival arrived = log->Arrived();
        text += "; \"" + log->name + "\": " + std::to_string(arrived.count) + " samples, " +
                std::to_string(arrived.endsOfStream) + " ends of stream";
    }
    return text;
}

void GTestGraph::SeekTo(LONGLONG position)
{
    LONGLONG wanted = position;
    Check(seeking->SetPositions(&wanted, AM_SEEKING_AbsolutePositioning, nullptr, AM_SEEKING_NoPositioning),
          "SetPositions of the graph to " + std::to_string(position));
}

LONGLONG GTestGraph::Duration()
{
    LONGLONG duration = 0;
    Check(seeking->GetDuration(&duration), "GetDuration of the graph");
    return duration;
}

void GTestGraph::ClearLogs()
{
    for (const auto& log : logs)
        log->Clear();
}

void GTestGraph::HoldSinksAt(std::size_t samples)
{
    for (IGSinkControl* sink : sinks)
        sink->HoldAt(samples);
}

}  // namespace vex::wintest
