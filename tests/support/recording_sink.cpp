#include "support/recording_sink.h"

#include <algorithm>

namespace vex::test {

namespace {

using Kind = GRecordedEvent::Kind;

// The sink itself plays what a host may ask of it.
GSinkBehaviour BehaviourFor(GSinkTrick trick)
{
    switch (trick) {
    case GSinkTrick::BlockReceive:
        return GSinkBehaviour::Hold;
    case GSinkTrick::Refuse:
        return GSinkBehaviour::Refuse;
    case GSinkTrick::NoMore:
        return GSinkBehaviour::Finish;
    default:
        return GSinkBehaviour::Accept;
    }
}

}  // namespace

CRecordingSink::CRecordingSink()
    : CSinkPin(0, {.onSample = {}, .offerAllocator = false}, std::make_shared<GProgress>())
{
    SetActive(true);
}

void CRecordingSink::Play(GSinkTrick wanted)
{
    {
        const GMutexLock held(lock);
        trick = wanted;
    }
    SetBehaviour(BehaviourFor(wanted));
}

void CRecordingSink::GiveSamplesBack()
{
    std::vector<GComPtr<IMediaSample>> released;
    const GMutexLock held(lock);
    released.swap(kept);
}

void CRecordingSink::WaitUntil(const std::function<bool()>& done)
{
    const GWatchdog watchdog("what a sink was to be told");
    progress->Until(GSteadyClock::now() + std::chrono::hours(1), done);
}

void CRecordingSink::WaitForEnd()
{
    WaitUntil([this] { return Count(Kind::End) > 0; });
}

void CRecordingSink::WaitForSamples(std::size_t count)
{
    WaitUntil([&] { return Count(Kind::Sample) >= static_cast<std::ptrdiff_t>(count); });
}

void CRecordingSink::WaitUntilBlocked()
{
    WaitUntil([this] {
        const bool holding = Report().holding;
        const GMutexLock held(lock);
        return holding || blocked;
    });
}

std::vector<GRecordedEvent> CRecordingSink::Events()
{
    const GMutexLock held(lock);
    return events;
}

std::vector<GRecordedEvent> CRecordingSink::SinceFlush()
{
    std::vector<GRecordedEvent> since;
    for (GRecordedEvent& event : Events()) {
        if (event.kind == Kind::EndFlush)
            since.clear();
        else
            since.push_back(std::move(event));
    }
    return since;
}

std::vector<GRecordedSample> CRecordingSink::Samples(bool ofSegment)
{
    std::vector<GRecordedSample> samples;
    for (GRecordedEvent& event : Events()) {
        if (event.kind == Kind::Segment && ofSegment)
            samples.clear();
        if (event.kind == Kind::Sample)
            samples.push_back(std::move(event.sample));
    }
    return samples;
}

std::ptrdiff_t CRecordingSink::Count(Kind kind)
{
    const GMutexLock held(lock);
    return std::ranges::count(events, kind, &GRecordedEvent::kind);
}

void CRecordingSink::ForgetEvents()
{
    const GMutexLock held(lock);
    events.clear();
}

HRESULT CRecordingSink::QueryInterface(REFIID riid, void** ppv)
{
    if (riid != IID_IMemInputPin || takesSamples)
        return CSinkPin::QueryInterface(riid, ppv);
    *ppv = nullptr;
    return E_NOINTERFACE;
}

HRESULT CRecordingSink::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt)
{
    return accepts && !accepts(*pmt) ? VFW_E_TYPE_NOT_ACCEPTED : CSinkPin::ReceiveConnection(pConnector, pmt);
}

HRESULT CRecordingSink::QueryDirection(PIN_DIRECTION* pPinDir)
{
    *pPinDir = direction;
    return S_OK;
}

HRESULT CRecordingSink::EnumMediaTypes(IEnumMediaTypes** ppEnum)
{
    return likes ? likes->EnumMediaTypes(ppEnum) : E_NOTIMPL;
}

// Waits while the call's own trick is played; false when a flush or a stop let go.
bool CRecordingSink::BlocksIn(GSinkTrick call)
{
    GMutexLock held(lock);
    while (trick == call && !LetsGoLocked()) {
        if (!std::exchange(blocked, true))
            progress->Changed();
        held.Wait(changed);
    }
    blocked = false;
    return LetsGoLocked();
}

void CRecordingSink::WriteLocked(GRecordedEvent event)
{
    events.push_back(std::move(event));
    progress->Changed();
}

HRESULT CRecordingSink::BeginFlush()
{
    if (onBeginFlush)
        onBeginFlush();
    return CSinkPin::BeginFlush();
}

HRESULT CRecordingSink::EndOfStream()
{
    return BlocksIn(GSinkTrick::BlockEndOfStream) ? S_FALSE : CSinkPin::EndOfStream();
}

HRESULT CRecordingSink::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate)
{
    BlocksIn(GSinkTrick::BlockNewSegment);
    return CSinkPin::NewSegment(tStart, tStop, dRate);
}

void CRecordingSink::EndedLocked() { WriteLocked({.kind = Kind::End}); }

void CRecordingSink::FlushLocked(bool begins) { WriteLocked({.kind = begins ? Kind::BeginFlush : Kind::EndFlush}); }

void CRecordingSink::SegmentLocked()
{
    WriteLocked({.kind = Kind::Segment,
                 .start = report.segmentStart,
                 .stop = report.segmentStop,
                 .rate = report.segmentRate});
}

HRESULT CRecordingSink::GetAllocator(IMemAllocator** ppAllocator)
{
    *ppAllocator = GComPtr<IMemAllocator>(offered).Detach();
    return *ppAllocator ? S_OK : VFW_E_NO_ALLOCATOR;
}

HRESULT CRecordingSink::NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly)
{
    const HRESULT answer = onAllocator ? onAllocator(pAllocator, bReadOnly) : S_OK;
    return FAILED(answer) ? answer : CSinkPin::NotifyAllocator(pAllocator, bReadOnly);
}

HRESULT CRecordingSink::GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps)
{
    if (requirements.cbAlign == 0)
        return E_NOTIMPL;
    *pProps = requirements;
    return S_OK;
}

HRESULT CRecordingSink::Receive(IMediaSample* pSample)
{
    if (onReceive)
        if (const HRESULT answer = onReceive(pSample); answer != S_OK)
            return answer;
    bool letGo = false;
    {
        const GMutexLock held(lock);
        letGo = trick == GSinkTrick::LetGo && !events.empty();
    }
    if (letGo)
        Disconnect();
    return CSinkPin::Receive(pSample);
}

void CRecordingSink::TakenLocked(IMediaSample& sample, const GSampleView& view)
{
    GRecordedSample recorded{view, {}};
    recorded.data = {};
    if (keepsBytes)
        recorded.bytes.assign(view.data.begin(), view.data.end());
    if (trick == GSinkTrick::KeepSamples)
        kept.emplace_back(&sample);
    WriteLocked({.kind = Kind::Sample, .sample = std::move(recorded)});
}

}  // namespace vex::test
