#include "support/recording_sink.h"

#include <algorithm>

namespace vex::test {

namespace {

using Kind = GRecordedEvent::Kind;

GRecordedSample Describe(IMediaSample& sample, bool withBytes)
{
    GRecordedSample seen;
    BYTE* bytes = nullptr;
    sample.GetPointer(&bytes);
    if (withBytes)
        seen.bytes.assign(bytes, bytes + sample.GetActualDataLength());
    const HRESULT timed = sample.GetTime(&seen.start, &seen.stop);
    if (FAILED(timed))
        seen.start = seen.stop = kNoTime;
    else if (timed == VFW_S_NO_STOP_TIME)
        seen.stop = kNoTime;
    if (FAILED(sample.GetMediaTime(&seen.mediaStart, &seen.mediaStop)))
        seen.mediaStart = seen.mediaStop = kNoTime;
    seen.sync = sample.IsSyncPoint() == S_OK;
    seen.discontinuity = sample.IsDiscontinuity() == S_OK;
    seen.preroll = sample.IsPreroll() == S_OK;
    return seen;
}

}  // namespace

void CRecordingSink::Play(GSinkTrick wanted)
{
    const std::lock_guard held(lock);
    trick = wanted;
    changed.notify_all();
}

void CRecordingSink::SetStopped(bool stop)
{
    const std::lock_guard held(lock);
    stopped = stop;
    changed.notify_all();
}

void CRecordingSink::GiveSamplesBack()
{
    std::vector<GComPtr<IMediaSample>> released;
    const std::lock_guard held(lock);
    released.swap(kept);
}

void CRecordingSink::WaitUntil(const std::function<bool()>& done)
{
    const GWatchdog watchdog("what a sink was to be told");
    std::unique_lock held(lock);
    changed.wait(held, done);
}

void CRecordingSink::WaitForEnd()
{
    WaitUntil([this] { return CountLocked(Kind::End) > 0; });
}

void CRecordingSink::WaitForSamples(std::size_t count)
{
    WaitUntil([&] { return CountLocked(Kind::Sample) >= static_cast<std::ptrdiff_t>(count); });
}

void CRecordingSink::WaitUntilBlocked()
{
    WaitUntil([this] { return blocked; });
}

std::vector<GRecordedEvent> CRecordingSink::Events()
{
    const std::lock_guard held(lock);
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

std::ptrdiff_t CRecordingSink::CountLocked(Kind kind) const
{
    return std::ranges::count(events, kind, &GRecordedEvent::kind);
}

std::ptrdiff_t CRecordingSink::Count(Kind kind)
{
    const std::lock_guard held(lock);
    return CountLocked(kind);
}

void CRecordingSink::ForgetEvents()
{
    const std::lock_guard held(lock);
    events.clear();
}

GComPtr<IMemAllocator> CRecordingSink::Allocator()
{
    const std::lock_guard held(lock);
    return agreed;
}

HRESULT CRecordingSink::QueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IUnknown || riid == IID_IPin)
        *ppv = static_cast<IPin*>(this);
    else if (riid == IID_IMemInputPin && takesSamples)
        *ppv = static_cast<IMemInputPin*>(this);
    else
        return GTestObject::QueryInterface(riid, ppv);
    AddRef();
    return S_OK;
}

HRESULT CRecordingSink::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt)
{
    if (accepts && !accepts(*pmt))
        return VFW_E_TYPE_NOT_ACCEPTED;
    const std::lock_guard held(lock);
    peer = GComPtr<IPin>(pConnector);
    return S_OK;
}

HRESULT CRecordingSink::Disconnect()
{
    GComPtr<IPin> oldPeer;  // released with no lock held
    GComPtr<IMemAllocator> oldAllocator;
    const std::lock_guard held(lock);
    std::swap(oldPeer, peer);
    std::swap(oldAllocator, agreed);
    return S_OK;
}

// Only while the call's own trick is played; a flush or a stop lets go.
void CRecordingSink::BlockIf(GSinkTrick blocking, std::unique_lock<GNativeMutex>& held)
{
    const auto goes = [&] { return trick != blocking || flushing || stopped; };
    if (goes())
        return;
    blocked = true;
    changed.notify_all();
    changed.wait(held, goes);
    blocked = false;
}

void CRecordingSink::WriteLocked(GRecordedEvent event)
{
    events.push_back(std::move(event));
    changed.notify_all();
}

HRESULT CRecordingSink::Flush(Kind kind)
{
    const std::lock_guard held(lock);
    flushing = kind == Kind::BeginFlush;
    WriteLocked({.kind = kind});
    return S_OK;
}

HRESULT CRecordingSink::EndOfStream()
{
    std::unique_lock held(lock);
    BlockIf(GSinkTrick::BlockEndOfStream, held);
    if (flushing || stopped)
        return S_FALSE;
    WriteLocked({.kind = Kind::End});
    return S_OK;
}

HRESULT CRecordingSink::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate)
{
    std::unique_lock held(lock);
    BlockIf(GSinkTrick::BlockNewSegment, held);
    WriteLocked({.kind = Kind::Segment, .start = tStart, .stop = tStop, .rate = dRate});
    return S_OK;
}

HRESULT CRecordingSink::GetAllocator(IMemAllocator** ppAllocator)
{
    *ppAllocator = GComPtr<IMemAllocator>(offered).Detach();
    return *ppAllocator ? S_OK : VFW_E_NO_ALLOCATOR;
}

HRESULT CRecordingSink::NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly)
{
    if (const HRESULT answer = onAllocator ? onAllocator(pAllocator, bReadOnly) : S_OK; FAILED(answer))
        return answer;
    const std::lock_guard held(lock);
    agreed = GComPtr<IMemAllocator>(pAllocator);
    return S_OK;
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
    GRecordedEvent event{.kind = Kind::Sample, .sample = Describe(*pSample, keepsBytes)};
    GComPtr<IPin> lost;
    std::unique_lock held(lock);
    BlockIf(GSinkTrick::BlockReceive, held);
    if (stopped)
        return VFW_E_WRONG_STATE;
    if (flushing)
        return S_FALSE;
    if (trick == GSinkTrick::Refuse)
        return E_FAIL;
    if (trick == GSinkTrick::NoMore)
        return S_FALSE;
    if (trick == GSinkTrick::LetGo && !events.empty())
        std::swap(lost, peer);
    if (!peer)
        return VFW_E_NOT_CONNECTED;
    if (trick == GSinkTrick::KeepSamples)
        kept.emplace_back(pSample);
    WriteLocked(std::move(event));
    return S_OK;
}

}  // namespace vex::test
