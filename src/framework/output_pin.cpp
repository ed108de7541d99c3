#include "framework/output_pin.h"

#include <algorithm>
#include <cmath>

#include "framework/source_filter.h"
#include "media/codec_tags.h"
#include "platform/trace.h"

namespace vex {

namespace {

constexpr ULONG kVideoBufferFloor = 0x80000;  // bytes
constexpr ULONG kOtherBufferFloor = 0xE000;   // bytes

// The first allocation of a pin. Frame sizes come from the file, so an absurd one must not become an allocation; a
// larger payload enlarges the buffer when it turns up.
constexpr ULONG kLargestFirstBuffer = 64u << 20;  // bytes; a frame of 8192 x 8192 asks for that much

bool IsVideoFormat(REFGUID format)
{
    return format == FORMAT_VideoInfo || format == FORMAT_VideoInfo2 || format == FORMAT_MPEG2Video ||
           format == FORMAT_MPEGVideo;
}

// A negative height says that the lines of a bitmap go from top to bottom.
std::uint32_t Magnitude(LONG height)
{
    const auto bits = static_cast<std::uint32_t>(height);
    return height < 0 ? 0 - bits : bits;
}

REFERENCE_TIME ScaleTime(REFERENCE_TIME time, double rate)
{
    if (rate == 1.0)
        return time;
    const double scaled = static_cast<double>(time) / rate;
    if (scaled >= 9.2e18)
        return INT64_MAX;
    return scaled <= -9.2e18 ? INT64_MIN + 1 : static_cast<REFERENCE_TIME>(scaled);
}

}  // namespace

// A call of the streaming thread to the peer. Refused once a halt has begun: such a call might wait for a flush that
// has already passed, or that never comes because nobody knew of the call.
class CVexOutputPin::GDelivery {
public:
    explicit GDelivery(CVexOutputPin& deliveringPin, GPeerCall kind = GPeerCall::Data) : pin(deliveringPin)
    {
        pin.peerCall.store(kind);
        allowed = !pin.halting.load();
        if (!allowed)
            Leave();
    }
    ~GDelivery()
    {
        if (allowed)
            Leave();
    }
    GDelivery(const GDelivery&) = delete;
    GDelivery& operator=(const GDelivery&) = delete;

    bool Allowed() const { return allowed; }

private:
    // The pair to a halt, which sets `halting` and then looks for a call: one of the two sees the other, and a call
    // without a halt costs no lock.
    void Leave()
    {
        pin.peerCall.store(GPeerCall::None);
        if (!pin.halting.load())
            return;
        const GMutexLock held(pin.deliveryLock);
        pin.deliveryDone.notify_all();
    }

    CVexOutputPin& pin;
    bool allowed = false;
};

CVexOutputPin::CVexOutputPin(CVexFilter* owningFilter, const GStreamInfo& info)
    : CSourceStream(owningFilter, info.pinName),
      CSourceSeeking(owningFilter->SeekingLock(), owningFilter->Duration(), owningFilter->Rules().minimumRange),
      owner(owningFilter),
      queue(owningFilter->Rules().queue, info.mediaTypes.empty() ? 0 : info.mediaTypes.front().lSampleSize),
      stream(info),
      streamNumber(info.number),
      pool(owningFilter->Rules().queue.packets)
{
}

CVexOutputPin::~CVexOutputPin() = default;

HRESULT CVexOutputPin::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IMediaSeeking)
        return GetInterface(static_cast<IMediaSeeking*>(this), ppv);
    return CSourceStream::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CVexOutputPin::QueryId(LPWSTR* Id)
{
    if (stream.pinId.empty())
        return CSourceStream::QueryId(Id);
    if (!Id)
        return E_POINTER;
    *Id = TaskMemCopy(stream.pinId);
    return *Id ? S_OK : E_OUTOFMEMORY;
}

HRESULT CVexOutputPin::GetDuration(LONGLONG* pDuration)
{
    FollowDuration();
    return CSourceSeeking::GetDuration(pDuration);
}

HRESULT CVexOutputPin::GetStopPosition(LONGLONG* pStop)
{
    FollowDuration();
    return CSourceSeeking::GetStopPosition(pStop);
}

HRESULT CVexOutputPin::GetPositions(LONGLONG* pCurrent, LONGLONG* pStop)
{
    FollowDuration();
    return CSourceSeeking::GetPositions(pCurrent, pStop);
}

HRESULT CVexOutputPin::GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest)
{
    FollowDuration();
    return CSourceSeeking::GetAvailable(pEarliest, pLatest);
}

void CVexOutputPin::FollowDuration() { RaiseDuration(owner->Duration()); }

HRESULT CVexOutputPin::GetMediaType(int position, CMediaType* type)
{
    if (position < 0)
        return E_INVALIDARG;
    if (static_cast<std::size_t>(position) >= stream.mediaTypes.size())
        return VFW_S_NO_MORE_ITEMS;
    return ComGuard([&] {
        *type = stream.mediaTypes[static_cast<std::size_t>(position)];
        return S_OK;
    });
}

HRESULT CVexOutputPin::CheckMediaType(const CMediaType* type)
{
    const bool known = std::ranges::any_of(stream.mediaTypes, [&](const CMediaType& own) { return own == *type; });
    return known ? S_OK : E_INVALIDARG;
}

HRESULT CVexOutputPin::DecideBufferSize(IMemAllocator* candidate, ALLOCATOR_PROPERTIES* request)
{
    if (!candidate || !request)
        return E_POINTER;
    return ComGuard([&]() -> HRESULT {
        const CMediaType type = ConnectedType();
        ULONG bytes = 0;
        BITMAPINFOHEADER bitmap{};
        if (IsVideoFormat(type.formattype)) {
            if (GetBitmapHeader(&type, &bitmap))
                bytes = static_cast<ULONG>(static_cast<std::uint64_t>(static_cast<std::uint32_t>(bitmap.biWidth)) *
                                           Magnitude(bitmap.biHeight));
            bytes = std::max<ULONG>(bytes, type.lSampleSize);
        } else {
            const ULONG floor = type.majortype == MEDIATYPE_Video ? kVideoBufferFloor : kOtherBufferFloor;
            bytes = std::max<ULONG>(type.lSampleSize, floor);
        }
        bytes = std::clamp<ULONG>(std::max<ULONG>(bytes, stream.minimumBuffer), 1, kLargestFirstBuffer);
        request->cBuffers = 1;  // flow control is the queue's business
        request->cbBuffer = static_cast<LONG>(bytes);
        ALLOCATOR_PROPERTIES granted{};
        const HRESULT hr = candidate->SetProperties(request, &granted);
        if (FAILED(hr))
            return hr;
        return granted.cbBuffer < request->cbBuffer ? E_FAIL : S_OK;
    });
}

HRESULT CVexOutputPin::Active()
{
    halting = false;
    peerRefused = false;
    started = false;
    startFailure = S_OK;
    return CSourceStream::Active();
}

// No call to the peer begins from here on. A flush of the streaming thread's own is waited for: it would end the one
// that follows.
void CVexOutputPin::StopDeliveries()
{
    halting = true;
    GMutexLock held(deliveryLock);
    while (peerCall.load() == GPeerCall::Flush)
        held.Wait(deliveryDone);
}

HRESULT CVexOutputPin::Inactive()
{
    const bool flushed = std::exchange(flushedForStop, false);
    const bool stuck = !flushed && !LeavePeer(GSteadyClock::now() + kDeliveryPatience);
    if (stuck)
        DeliverBeginFlush();
    const HRESULT hr = CSourceStream::Inactive();
    if (stuck)
        DeliverEndFlush();
    queue.Clear();
    DropUnits();
    return hr;
}

void CVexOutputPin::BeginStop()
{
    StopDeliveries();
    CBaseOutputPin::Inactive();  // wakes a wait for a buffer
}

bool CVexOutputPin::LeavePeer(GSteadyClock::time_point deadline)
{
    BeginStop();
    GMutexLock held(deliveryLock);
    while (peerCall.load() != GPeerCall::None && held.WaitUntil(deliveryDone, deadline)) {}
    return peerCall.load() == GPeerCall::None;
}

void CVexOutputPin::FlushForStop()
{
    flushedForStop = true;
    DeliverBeginFlush();
}

void CVexOutputPin::BeginHalt()
{
    StopDeliveries();
    DeliverBeginFlush();
}

void CVexOutputPin::EndHalt()
{
    // A peer that keeps our only buffer must not keep the streaming thread from hearing the command.
    CBaseOutputPin::Inactive();
    StopThread();
}

void CVexOutputPin::Restart(bool emptyQueue)
{
    DeliverEndFlush();
    if (emptyQueue) {
        queue.Clear();
        DropUnits();
    }
    startFailure = CBaseOutputPin::Active();
    started = true;
    peerRefused = false;
    halting = false;
    RunThread();
}

HRESULT CVexOutputPin::RestartIfRunning()
{
    if (owner->OnOwnThread())
        return VFW_E_WRONG_STATE;
    const CAutoLock change(&owner->changeLock);
    if (ThreadExists())
        owner->RestartPin(*this);
    return S_OK;
}

HRESULT CVexOutputPin::SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop, DWORD dwStopFlags)
{
    if (owner->OnOwnThread())
        return VFW_E_WRONG_STATE;
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&owner->changeLock);
        FollowDuration();
        GRequest request;
        HRESULT hr = ReadRequest(pCurrent, dwCurrentFlags, pStop, dwStopFlags, request);
        if (FAILED(hr))
            return hr;
        const GSegment before = Segment();
        bool sought = false;
        if (request.moveStart) {
            // The seek may move the start, and with it a stop that counts from there. The segment that it starts ends
            // at the new stop already.
            const auto placeStop = [&] {
                const LONGLONG reached = request.start;
                if ((dwStopFlags & AM_SEEKING_PositioningBitsMask) == AM_SEEKING_IncrementalPositioning)
                    ReadRequest(&reached, AM_SEEKING_AbsolutePositioning, pStop, dwStopFlags, request);
                if (request.moveStop)
                    SetStop(request.stop);
            };
            hr = owner->SeekTo(this, request.start, request.start != before.start, placeStop);
            if (FAILED(hr))
                return hr;  // positions and stop are as they were
            sought = hr == S_OK;
            if (!sought)
                placeStop();
        }
        // From here on all is absolute. A restart costs the samples that the peer has, so it is left out where the pin
        // has just been restarted or the stop stays where it was.
        LONGLONG stop = request.stop;
        const bool moveStop = request.moveStop && !sought && request.stop != before.stop;
        const DWORD startFlags = request.moveStart ? AM_SEEKING_AbsolutePositioning : AM_SEEKING_NoPositioning;
        const DWORD stopFlags = moveStop ? AM_SEEKING_AbsolutePositioning : AM_SEEKING_NoPositioning;
        hr = CSourceSeeking::SetPositions(&request.start, startFlags, &stop, stopFlags);
        if (pCurrent && (request.moveStart || (dwCurrentFlags & AM_SEEKING_ReturnTime)))
            *pCurrent = request.start;
        if (pStop && (dwStopFlags & AM_SEEKING_ReturnTime))
            *pStop = stop;
        return hr;
    });
}

HRESULT CVexOutputPin::SetRate(double dRate)
{
    if (owner->OnOwnThread())
        return VFW_E_WRONG_STATE;
    return ComGuard([&] { return CSourceSeeking::SetRate(dRate); });
}

GPacketQueue::PushResult CVexOutputPin::Push(GPacketPtr& packet, const std::function<bool()>& giveUp)
{
    if (!ThreadExists())
        return GPacketQueue::PushResult::Refused;
    if (peerRefused.load(std::memory_order_acquire)) {
        Recycle(std::move(packet));
        return GPacketQueue::PushResult::Done;
    }
    const auto result = queue.Push(packet, giveUp);
    if (result == GPacketQueue::PushResult::Done)
        Recycle(std::move(packet));  // what was joined
    return result;
}

void CVexOutputPin::PushEnd()
{
    if (!std::exchange(ended, true))
        queue.PushEnd();
}

// Default: one packet, one sample, held back until something is queued behind it.
CVexOutputPin::GUnitStatus CVexOutputPin::PrepareUnit()
{
    switch (queue.Take(true, current)) {
    case GPacketQueue::Ready::No:
        return GUnitStatus::NotYet;
    case GPacketQueue::Ready::End:
        return GUnitStatus::End;  // the marker stays: a restart without a seek ends the stream again
    case GPacketQueue::Ready::Packet:
        break;
    }
    if (current->start == kNoTime) {
        FinishUnit();
        return GUnitStatus::NotYet;
    }
    unit = {.data = current->data.Span(),
            .left = current->unread != 0 ? current.get() : nullptr,
            .start = current->start,
            .stop = current->stop,
            .mediaStart = current->mediaStart,
            .mediaStop = current->mediaStop,
            .keyFrame = current->keyFrame,
            .discontinuity = current->discontinuity};
    return GUnitStatus::Unit;
}

void CVexOutputPin::FinishUnit()
{
    unit = {};
    if (current)
        Recycle(std::move(current));
}

void CVexOutputPin::DropUnits()
{
    FinishUnit();
    unitPending = false;
    DropWindow();
}

HRESULT CVexOutputPin::OnThreadStartPlay()
{
    discontinuityPending = true;
    leadsDelivered = 0;
    FollowDuration();
    SetStart(owner->SegmentStart());
    const GSegment segment = Segment();
    const bool toTheEnd = owner->Rules().segmentEnd == GSegmentEnd::Duration;
    const GDelivery inside(*this);
    if (!inside.Allowed())
        return S_FALSE;
    return DeliverNewSegment(segment.start, toTheEnd ? owner->Duration() : segment.stop, segment.rate);
}

HRESULT CVexOutputPin::DoBufferProcessingLoop()
{
    const HRESULT hr = ComGuard([&] { return Play(); });
    if (FAILED(hr))  // memory ran short
        AbortStream(hr);
    return hr;
}

// S_FALSE when a stop command waits, S_OK when there is nothing more to play.
HRESULT CVexOutputPin::Play()
{
    OnThreadStartPlay();
    if (FAILED(startFailure)) {
        AbortStream(startFailure);
        return S_OK;
    }
    for (;;) {
        DWORD request = 0;
        while (CheckRequest(&request)) {
            if (request == CMD_STOP)
                return S_FALSE;  // answered by the thread procedure
            Reply(static_cast<DWORD>(request == CMD_RUN || request == CMD_PAUSE ? NOERROR : E_UNEXPECTED));
        }
        if (started && leadsDelivered < stream.leadSamples.size()) {
            if (DeliverLead(stream.leadSamples[leadsDelivered]) == GStep::Stop)
                return S_OK;
            continue;
        }
        switch (unitPending ? GUnitStatus::Unit : PrepareUnit()) {
        case GUnitStatus::NotYet:
            break;
        case GUnitStatus::End: {
            const GDelivery inside(*this);
            if (inside.Allowed()) {
                DeliverEndOfStream();
                return S_OK;
            }
            AwaitHalt();  // the marker stays
            break;
        }
        case GUnitStatus::Unit:
            unitPending = true;
            if (DeliverUnit() == GStep::Stop)
                return S_OK;
            break;
        }
    }
}

// A stop command is about to come: other pins are flushed first.
CVexOutputPin::GStep CVexOutputPin::AwaitHalt()
{
    WaitRequest(1);
    return GStep::Continue;
}

// A codec header that does not fit the buffer ends the stream: without it the data is useless. The buffer is the one
// agreed with the peer, whatever comes later.
CVexOutputPin::GStep CVexOutputPin::DeliverLead(const GLeadSample& lead)
{
    GComPtr<IMediaSample> sample;
    if (FAILED(GetDeliveryBuffer(sample.Put())))
        return AwaitHalt();
    BYTE* buffer = nullptr;
    HRESULT hr = sample->GetPointer(&buffer);
    if (SUCCEEDED(hr) && static_cast<std::uint64_t>(sample->GetSize()) < lead.data.size())
        hr = VFW_E_BUFFER_OVERFLOW;
    if (FAILED(hr)) {
        sample.Reset();
        return halting ? AwaitHalt() : AbortStream(hr);
    }
    std::ranges::copy(lead.data, buffer);
    sample->SetActualDataLength(static_cast<LONG>(lead.data.size()));
    REFERENCE_TIME start = lead.start;
    REFERENCE_TIME stop = lead.stop;
    sample->SetTime(&start, &stop);
    sample->SetMediaTime(nullptr, nullptr);
    sample->SetDiscontinuity(lead.discontinuity);
    sample->SetSyncPoint(lead.sync);
    sample->SetPreroll(FALSE);
    return DeliverSample(std::move(sample), [this] { ++leadsDelivered; });
}

// While the pin is being halted nothing is delivered and the unit is kept: only a seek drops it.
CVexOutputPin::GStep CVexOutputPin::DeliverUnit()
{
    GComPtr<IMediaSample> sample;
    // The peer may hold the one buffer for a while; a failure is a decommit, and a command will follow.
    if (FAILED(GetDeliveryBuffer(sample.Put())))
        return AwaitHalt();
    HRESULT hr = FillBuffer(sample);
    if (hr != S_OK) {
        sample.Reset();
        if (FAILED(hr) && halting)
            return AwaitHalt();
        FinishUnit();
        unitPending = false;
        const bool goesOn = hr == S_FALSE || owner->Rules().resize == GResizeRule::DropOnFailure;
        return goesOn ? GStep::Continue : AbortStream(hr);
    }
    return DeliverSample(std::move(sample), [this] {
        FinishUnit();
        unitPending = false;
    });
}

// `taken` is called when the sample is on its way; while the pin is being halted it is given back instead.
template <class Taken>
CVexOutputPin::GStep CVexOutputPin::DeliverSample(GComPtr<IMediaSample> sample, Taken&& taken)
{
    HRESULT hr = S_OK;
    {
        const GDelivery inside(*this);
        if (!inside.Allowed()) {
            sample.Reset();
            return AwaitHalt();
        }
        taken();
        hr = Deliver(sample.Get());
    }
    if (hr == S_OK || halting)  // a flush refuses samples too
        return GStep::Continue;
    Trace("Deliver() returned %08x; stopping\n", static_cast<unsigned>(hr));
    peerRefused = true;
    queue.DropPackets();
    return GStep::Stop;
}

CVexOutputPin::GStep CVexOutputPin::AbortStream(HRESULT reason)
{
    peerRefused = true;
    queue.DropPackets();
    {
        const GDelivery inside(*this);
        if (inside.Allowed())
            DeliverEndOfStream();
    }
    owner->NotifyEvent(EC_ERRORABORT, reason, 0);
    return GStep::Stop;
}

// Gives the sample back and asks for one that `needed` bytes and half as many again fit into.
HRESULT CVexOutputPin::Enlarge(GComPtr<IMediaSample>& sample, LONG needed)
{
    sample.Reset();
    if (owner->Rules().resize == GResizeRule::FlushPeerOrAbort) {
        const GDelivery inside(*this, GPeerCall::Flush);
        if (!inside.Allowed())
            return VFW_E_WRONG_STATE;
        DeliverBeginFlush();
        DeliverEndFlush();
    }
    const std::int64_t roomy = static_cast<std::int64_t>(needed) * 3 / 2;
    const HRESULT hr = ResizeBuffers(static_cast<LONG>(std::min<std::int64_t>(roomy, INT32_MAX)));
    return FAILED(hr) ? hr : GetDeliveryBuffer(sample.Put());
}

// S_FALSE: nothing of a payload that was left in the file can be read.
HRESULT CVexOutputPin::FillBuffer(GComPtr<IMediaSample>& sample)
{
    const GFilterRules& rules = owner->Rules();
    const std::size_t bytes = unit.left ? unit.left->unread : unit.data.size();
    if (bytes > INT32_MAX)
        return VFW_E_BUFFER_OVERFLOW;
    LONG length = static_cast<LONG>(bytes);
    if (length > sample->GetSize()) {
        const HRESULT hr = Enlarge(sample, length);
        if (FAILED(hr))
            return hr;
        if (length > sample->GetSize())
            return VFW_E_BUFFER_OVERFLOW;
    }
    BYTE* buffer = nullptr;
    HRESULT hr = sample->GetPointer(&buffer);
    if (FAILED(hr))
        return hr;
    if (unit.left) {
        length = static_cast<LONG>(owner->ReadLeft(*unit.left, buffer));
        if (length == 0)
            return S_FALSE;
    } else if (length > 0) {
        std::memcpy(buffer, unit.data.data(), bytes);
    }
    hr = sample->SetActualDataLength(length);
    if (FAILED(hr))
        return hr;

    const double rate = Segment().rate;
    REFERENCE_TIME start = ScaleTime(unit.start, rate);
    REFERENCE_TIME stop = ScaleTime(unit.stop, rate);  // not looked at when there is none
    const bool timed = unit.start != kNoTime;
    sample->SetTime(timed ? &start : nullptr, timed && unit.stop != kNoTime ? &stop : nullptr);
    LONGLONG mediaStart = unit.mediaStart;
    LONGLONG mediaStop = unit.mediaStop;
    const bool mediaTimed =
        timed && rules.mediaTimes == GMediaTimeRule::Packet && mediaStart != kNoTime && mediaStop != kNoTime;
    sample->SetMediaTime(mediaTimed ? &mediaStart : nullptr, mediaTimed ? &mediaStop : nullptr);
    sample->SetDiscontinuity(unit.discontinuity || discontinuityPending);
    sample->SetSyncPoint((rules.sync == GSyncRule::FirstOrKeyFrame && discontinuityPending) || unit.keyFrame);
    if (owner->PrerollMark() && rules.preroll != GPrerollRule::Never)
        sample->SetPreroll(timed && (rules.preroll == GPrerollRule::UpToZero ? unit.start <= 0 : unit.start < 0));
    discontinuityPending = false;
    return S_OK;
}

}  // namespace vex
