#include "support/recording_sink.h"

#include <algorithm>

namespace vex::test {

namespace {

class CTypeList final : public IEnumMediaTypes {
public:
    explicit CTypeList(std::vector<CMediaType> listed) : types(std::move(listed)) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --references;
        if (left == 0)
            delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE Next(ULONG, AM_MEDIA_TYPE** ppMediaTypes, ULONG*) override
    {
        if (next >= types.size())
            return S_FALSE;
        *ppMediaTypes = CreateMediaType(types[next++]);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes**) override { return E_NOTIMPL; }

private:
    ~CTypeList() = default;
    std::atomic<ULONG> references{1};
    const std::vector<CMediaType> types;
    std::size_t next = 0;
};

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

void CRecordingSink::StopSink()
{
    const std::lock_guard held(lock);
    stopped = true;
    changed.notify_all();
}

void CRecordingSink::StartSink()
{
    const std::lock_guard held(lock);
    stopped = false;
}

void CRecordingSink::GiveSamplesBack()
{
    std::vector<GComPtr<IMediaSample>> released;
    const std::lock_guard held(lock);
    released.swap(kept);
}

void CRecordingSink::WaitUntil(const std::function<bool(const std::vector<GRecordedEvent>&)>& done)
{
    const GWatchdog watchdog("what a sink was to be told");
    std::unique_lock held(lock);
    changed.wait(held, [&] { return done(events); });
}

void CRecordingSink::WaitForEnd()
{
    WaitUntil([](const auto& seen) {
        return std::ranges::any_of(seen, [](const auto& event) { return event.kind == GRecordedEvent::Kind::End; });
    });
}

void CRecordingSink::WaitForSamples(std::size_t count)
{
    WaitUntil([count](const auto& seen) {
        return std::ranges::count(seen, GRecordedEvent::Kind::Sample, &GRecordedEvent::kind) >=
               static_cast<std::ptrdiff_t>(count);
    });
}

void CRecordingSink::WaitUntilBlocked()
{
    WaitUntil([this](const auto&) { return blocked; });
}

std::vector<GRecordedEvent> CRecordingSink::Events()
{
    const std::lock_guard held(lock);
    return events;
}

std::vector<GRecordedSample> CRecordingSink::Samples()
{
    std::vector<GRecordedSample> samples;
    for (const GRecordedEvent& event : Events())
        if (event.kind == GRecordedEvent::Kind::Sample)
            samples.push_back(event.sample);
    return samples;
}

std::vector<GRecordedSample> CRecordingSink::SegmentSamples()
{
    std::vector<GRecordedSample> samples;
    for (const GRecordedEvent& event : Events()) {
        if (event.kind == GRecordedEvent::Kind::Segment)
            samples.clear();
        if (event.kind == GRecordedEvent::Kind::Sample)
            samples.push_back(event.sample);
    }
    return samples;
}

std::size_t CRecordingSink::Count(GRecordedEvent::Kind kind)
{
    const auto seen = Events();
    return static_cast<std::size_t>(std::ranges::count(seen, kind, &GRecordedEvent::kind));
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
    else {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG CRecordingSink::Release()
{
    const ULONG left = --references;
    if (left == 0)
        delete this;
    return left;
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
    changed.notify_all();
    return S_OK;
}

HRESULT CRecordingSink::ConnectedTo(IPin** pPin)
{
    const std::lock_guard held(lock);
    *pPin = GComPtr<IPin>(peer).Detach();
    return *pPin ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT CRecordingSink::QueryDirection(PIN_DIRECTION* pPinDir)
{
    *pPinDir = direction;
    return S_OK;
}

HRESULT CRecordingSink::EnumMediaTypes(IEnumMediaTypes** ppEnum)
{
    *ppEnum = new CTypeList(ownTypes);
    return S_OK;
}

// Only while the call's own trick is played; a flush or a stop lets go.
void CRecordingSink::BlockIf(GSinkTrick blocking, std::unique_lock<std::mutex>& held)
{
    const auto goes = [&] { return trick != blocking || flushing || stopped; };
    if (goes())
        return;
    blocked = true;
    changed.notify_all();
    changed.wait(held, goes);
    blocked = false;
}

void CRecordingSink::Write(GRecordedEvent event, std::unique_lock<std::mutex>&)
{
    events.push_back(std::move(event));
    changed.notify_all();
}

HRESULT CRecordingSink::EndOfStream()
{
    if (onEndOfStream)
        onEndOfStream();
    std::unique_lock held(lock);
    BlockIf(GSinkTrick::BlockEndOfStream, held);
    if (flushing || stopped)
        return S_FALSE;
    Write({.kind = GRecordedEvent::Kind::End, .sample = {}}, held);
    return S_OK;
}

HRESULT CRecordingSink::BeginFlush()
{
    std::unique_lock held(lock);
    flushing = true;
    Write({.kind = GRecordedEvent::Kind::BeginFlush, .sample = {}}, held);
    return S_OK;
}

HRESULT CRecordingSink::EndFlush()
{
    std::unique_lock held(lock);
    flushing = false;
    Write({.kind = GRecordedEvent::Kind::EndFlush, .sample = {}}, held);
    return S_OK;
}

HRESULT CRecordingSink::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate)
{
    if (onNewSegment)
        onNewSegment();
    std::unique_lock held(lock);
    BlockIf(GSinkTrick::BlockNewSegment, held);
    Write({.kind = GRecordedEvent::Kind::Segment, .sample = {}, .start = tStart, .stop = tStop, .rate = dRate}, held);
    return S_OK;
}

HRESULT CRecordingSink::GetAllocator(IMemAllocator** ppAllocator)
{
    *ppAllocator = GComPtr<IMemAllocator>(offered).Detach();
    return *ppAllocator ? S_OK : VFW_E_NO_ALLOCATOR;
}

HRESULT CRecordingSink::NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly)
{
    const HRESULT answer = onAllocator ? onAllocator(pAllocator, bReadOnly) : S_OK;
    if (FAILED(answer))
        return answer;
    const std::lock_guard held(lock);
    agreed = GComPtr<IMemAllocator>(pAllocator);
    return answer;
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
    GRecordedEvent event{.kind = GRecordedEvent::Kind::Sample, .sample = Describe(*pSample, keepsBytes)};
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
    Write(std::move(event), held);
    return S_OK;
}

}  // namespace vex::test
