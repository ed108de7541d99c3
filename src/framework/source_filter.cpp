// States and seeks of the filter. Loading, the reader thread and IVexInspect have files of their own.

#include "framework/source_filter.h"

#include <algorithm>

#include "framework/reference_times.h"
#include "platform/on_exit.h"
#include "platform/trace.h"

namespace vex {

CVexFilter::CVexFilter(const GFilterInfo& filterInfo, const GFilterRules& filterRules, IUnknown* outer,
                       std::unique_ptr<GReadHandler> formatHandler)
    : CSource(filterInfo.displayName, outer, filterInfo.clsid),
      prerollMark(filterRules.prerollAtFirst),
      rules(filterRules),
      handler(std::move(formatHandler))
{
}

CVexFilter::~CVexFilter() = default;

// A host may drop a filter that still runs, or still loads.
void CVexFilter::FinalRelease()
{
    handler->Interrupt(true);
    if (preparation)
        preparation->Abort();
    loader.Close();
    Stop();
}

HRESULT CVexFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IFileSourceFilter)
        return GetInterface(static_cast<IFileSourceFilter*>(this), ppv);
    if (riid == IID_IVexInspect)
        return GetInterface(static_cast<IVexInspect*>(this), ppv);
    if (riid == IID_ISupportErrorInfo)
        return GetInterface(static_cast<ISupportErrorInfo*>(this), ppv);
    return CSource::NonDelegatingQueryInterface(riid, ppv);
}

bool CVexFilter::OnOwnThread() { return reader.IsWorker() || loader.IsWorker() || CSource::OnOwnThread(); }

// Also by the identifiers that a format gives its pins.
HRESULT CVexFilter::FindPin(LPCWSTR Id, IPin** ppPin)
{
    if (!Id || !ppPin)
        return E_POINTER;
    for (int i = 0; i < GetPinCount(); ++i) {
        auto* pin = static_cast<CVexOutputPin*>(GetPin(i));
        if (pin->Stream().pinId.empty() || pin->Stream().pinId != WStringView(Id))
            continue;
        pin->AddRef();
        *ppPin = pin;
        return S_OK;
    }
    return CSource::FindPin(Id, ppPin);
}

HRESULT CVexFilter::Pause()
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&changeLock);
        const GStateChange progress(*this);
        const bool wasStopped = IsStopped();
        const HRESULT hr = CSource::Pause();
        if (FAILED(hr) || !wasStopped || !IsLoaded())
            return hr;
        resumeEvent.Reset();
        readerReady.Reset();
        if (!reader.Create()) {
            CSource::Stop();
            return E_FAIL;
        }
        readerReady.Wait();
        return hr;
    });
}

HRESULT CVexFilter::Run(REFERENCE_TIME tStart)
{
    const HRESULT hr = CSource::Run(tStart);
    return FAILED(hr) ? hr : S_OK;
}

HRESULT CVexFilter::Stop()
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    const bool givesWay = !IsStopped();  // a stop that changes nothing interrupts nothing
    if (givesWay)
        BeginStopWait();
    const CAutoLock change(&changeLock);
    if (givesWay)
        EndStopWait();
    const GStateChange progress(*this);
    StopReader();
    const bool flushed = FreePins();
    const HRESULT hr = CSource::Stop();
    for (CVexOutputPin* pin : pins)
        if (flushed && pin->IsConnected())
            pin->DeliverEndFlush();
    return hr;
}

// Gets the streaming threads out of the peers. True when that took a flush, of all of them: it is to be ended.
bool CVexFilter::FreePins()
{
    if (IsStopped())
        return false;
    for (CVexOutputPin* pin : pins)
        if (pin->IsConnected())
            pin->BeginStop();
    const auto deadline = GSteadyClock::now() + CVexOutputPin::kDeliveryPatience;
    bool free = true;
    for (CVexOutputPin* pin : pins)
        free = (!pin->IsConnected() || pin->LeavePeer(deadline)) && free;
    for (CVexOutputPin* pin : pins)
        if (!free && pin->IsConnected())
            pin->FlushForStop();
    return !free;
}

void CVexFilter::StopReader()
{
    if (!reader.ThreadExists())
        return;
    handler->Interrupt(true);
    reader.CallWorker(kExit);
    reader.Close();
    handler->Interrupt(false);
    carried.reset();
    resumesRun = false;
    handlerMoved = true;
}

// A peer may let go of one input only when all are flushed, so no pin is waited for before that.
void CVexFilter::HaltPins()
{
    for (CVexOutputPin* pin : pins)
        if (pin->IsConnected())
            pin->BeginHalt();
    for (CVexOutputPin* pin : pins)
        if (pin->IsConnected())
            pin->EndHalt();
}

void CVexFilter::RestartPins(GQueues queues)
{
    for (CVexOutputPin* pin : pins)
        if (pin->IsConnected())
            pin->Restart(queues == GQueues::Empty);
}

// A peer flushes one input for itself. One of several inputs that waits for the others to be flushed too has its way.
void CVexFilter::RestartPin(CVexOutputPin& pin)
{
    pin.BeginHalt();
    const bool alone = pin.LeavePeer(GSteadyClock::now() + CVexOutputPin::kDeliveryPatience);
    const auto restarts = [&](CVexOutputPin* one) { return one == &pin || (!alone && one->IsConnected()); };
    for (CVexOutputPin* other : pins)
        if (other != &pin && restarts(other))
            other->BeginHalt();
    for (CVexOutputPin* one : pins)
        if (restarts(one))
            one->EndHalt();
    for (CVexOutputPin* one : pins)
        if (restarts(one))
            one->Restart(false);
}

REFERENCE_TIME CVexFilter::Duration()
{
    const REFERENCE_TIME now = HoldTime(handler->Duration());
    REFERENCE_TIME said = duration.load(std::memory_order_relaxed);
    while (said < now && !duration.compare_exchange_weak(said, now, std::memory_order_relaxed)) {}
    return std::max(said, now);
}

// With OncePerTarget, true when `caller` repeats the seek that another pin has already made.
bool CVexFilter::IsRelayed(CVexOutputPin* caller, REFERENCE_TIME position)
{
    if (rules.seekRelay != GSeekRelay::OncePerTarget)
        return false;
    const bool relayed = position == lastTarget && std::ranges::find(relayedBy, caller) == relayedBy.end();
    if (!relayed)
        relayedBy.clear();
    lastTarget = kNoTime;  // until the caller is noted: memory may be short
    relayedBy.push_back(caller);
    lastTarget = position;
    return relayed;
}

HRESULT CVexFilter::SeekTo(CVexOutputPin* caller, REFERENCE_TIME& position, bool moved,
                           const std::function<void()>& onReached)
{
    const CAutoLock change(&changeLock);
    // A graph that asks for the position that it is at already, to play again from there, means it.
    if (position == currentPosition && !handlerMoved)
        return S_FALSE;
    if (handlerMoved)
        lastTarget = kNoTime;  // not a relay of what was asked for before
    position = std::clamp<REFERENCE_TIME>(position, 0, Duration());
    if (!handler->AcceptsSeek(position) || IsRelayed(caller, position)) {
        position = currentPosition;
        return S_FALSE;
    }
    if (reader.ThreadExists())
        return SeekRunning(position, moved, onReached);
    const HRESULT hr = Reposition(position, moved);
    if (hr == S_OK)
        onReached();
    return hr;
}

// Whatever happens between, the pins and the reader go on.
HRESULT CVexFilter::SeekRunning(REFERENCE_TIME& position, bool moved, const std::function<void()>& onReached)
{
    Trace("*******************************SeekDeliverLoop");
    GQueues queues = GQueues::Keep;
    bool parked = false;
    const GOnExit resume([&] {
        RestartPins(queues);
        if (parked)
            resumeEvent.Set();
    });
    HaltPins();
    handler->Interrupt(true);
    reader.CallWorker(kPark);
    handler->Interrupt(false);
    parked = resumesRun = true;
    const HRESULT hr = Reposition(position, moved);
    if (hr == S_OK) {
        queues = GQueues::Empty;
        carried.reset();
        resumesRun = false;
        onReached();
    }
    return hr;
}

// Call it with the reader thread parked or absent.
HRESULT CVexFilter::Reposition(REFERENCE_TIME& position, bool moved)
{
    const bool align = keyFrameSeek && prerollMark && position != 0 && moved;
    bool interrupted = false;
    const HRESULT hr = ComGuard([&]() -> HRESULT {
        BeginSearch();
        const GOnExit searched([&] { interrupted = EndSearch(); });
        const auto reached = handler->Seek(position, align ? GSeekMode::KeyFrame : GSeekMode::Independent);
        if (!reached)
            return S_FALSE;
        currentPosition = HoldTime(*reached);
        segmentStart = currentPosition;
        seekBase = currentPosition;
        handlerMoved = false;
        return S_OK;
    });
    if (FAILED(hr) || interrupted) {
        // Given up halfway, out of memory or for a stop: times stay right, they count from the file's start, but what
        // comes next may lie anywhere, and the next seek counts wherever it goes.
        handlerMoved = true;
        lastTarget = kNoTime;
    }
    position = currentPosition;
    return hr;
}

// A search for a position may read the whole file, or wait for an index. A stop waits for neither.
void CVexFilter::BeginSearch()
{
    const GMutexLock held(searchLock);
    searching = true;
    handler->Interrupt(stopsWaiting > 0);
}

// Whether a stop interrupted it.
bool CVexFilter::EndSearch()
{
    const GMutexLock held(searchLock);
    searching = false;
    handler->Interrupt(false);
    return stopsWaiting > 0;
}

void CVexFilter::BeginStopWait()
{
    const GMutexLock held(searchLock);
    ++stopsWaiting;
    if (searching)
        handler->Interrupt(true);
}

void CVexFilter::EndStopWait()
{
    const GMutexLock held(searchLock);
    --stopsWaiting;
}

HRESULT CVexFilter::SetOption(std::atomic<bool>& option, LONG value)
{
    option = value != 0;
    return S_OK;
}

}  // namespace vex
