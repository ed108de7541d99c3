// An output pin: turns queued packets into media samples on its own streaming thread.
#pragma once

#include <atomic>
#include <span>

#include "dshow/source.h"
#include "dshow/source_seeking.h"
#include "framework/contract/read_handler.h"
#include "framework/filter_rules.h"
#include "framework/packet_pool.h"
#include "framework/packet_queue.h"

namespace vex {

class CVexFilter;

// What one media sample is made of: a whole packet, or one frame of it.
struct GSampleUnit {
    std::span<const std::uint8_t> data;
    const GPacket2* left = nullptr;  // in place of `data`: the whole payload of this packet, which is yet to be read
    REFERENCE_TIME start = kNoTime;  // 100 ns from the segment's start, before the rate
    REFERENCE_TIME stop = kNoTime;
    LONGLONG mediaStart = kNoTime;
    LONGLONG mediaStop = kNoTime;
    bool keyFrame = false;
    bool discontinuity = false;
};

class CVexOutputPin : public CSourceStream, public CSourceSeeking {
public:
    // `info` is copied.
    CVexOutputPin(CVexFilter* owningFilter, const GStreamInfo& info);
    ~CVexOutputPin() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    STDMETHODIMP QueryId(LPWSTR* Id) override;
    STDMETHODIMP GetDuration(LONGLONG* pDuration) override;
    STDMETHODIMP GetStopPosition(LONGLONG* pStop) override;
    STDMETHODIMP GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) override;
    STDMETHODIMP GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) override;
    // A seek of one pin is a seek of the whole filter.
    STDMETHODIMP SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop, DWORD dwStopFlags) override;
    STDMETHODIMP SetRate(double dRate) override;

    HRESULT GetMediaType(int position, CMediaType* type) override;
    HRESULT CheckMediaType(const CMediaType* type) override;
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override;
    HRESULT Active() override;
    HRESULT Inactive() override;

    std::uint32_t StreamNumber() const { return streamNumber; }
    const GStreamInfo& Stream() const { return stream; }
    CMediaType ActiveType() { return ConnectedType(); }

    GPacketPool& Pool() { return pool; }
    // Reader thread: whether a payload of so many bytes is to be left to the streaming thread, which has little to do:
    // it reads straight into the sample, while the reader goes on.
    bool ReadsItself(std::size_t bytes) const { return bytes >= kLeastLeft && queue.IsLow(); }

    // Reader thread. Refused, and left to the caller, when the streaming thread does not exist or `giveUp` says so
    // while the queue is full; a packet for a pin whose peer has refused a sample is taken and dropped, so that the
    // other pins go on.
    GPacketQueue::PushResult Push(GPacketPtr& packet, const std::function<bool()>& giveUp);
    // Reader thread: the end marker, once per run.
    void PushEnd();
    bool HasEnded() const { return ended; }
    void BeginRun() { ended = false; }

    // A peer that holds a sample lets go of it when the graph stops it first. One that has not after this is flushed.
    static constexpr std::chrono::milliseconds kDeliveryPatience{100};
    // A stop, ahead of Inactive: no call to the peer begins any more, and a wait for a buffer ends.
    void BeginStop();
    // The same, and returns when the streaming thread is out of the peer: false when it is not at `deadline`.
    bool LeavePeer(GSteadyClock::time_point deadline);

    // For one that is not: Inactive then waits for the streaming thread, and the caller ends the flush.
    void FlushForStop();

    // A restart, under the filter's changeLock (or before the reader thread has started): BeginHalt flushes the peer,
    // EndHalt waits for the streaming thread. Until Restart that thread takes no packet and delivers nothing.
    void BeginHalt();
    void EndHalt();
    void Restart(bool emptyQueue);

protected:
    enum class GUnitStatus : std::uint8_t { NotYet, Unit, End };

    // Streaming thread: prepares the next unit (see Unit). Waits at most 1 ms.
    virtual GUnitStatus PrepareUnit();
    // The unit of the last PrepareUnit that said Unit; its bytes stay valid until FinishUnit.
    const GSampleUnit& Unit() const { return unit; }
    // The unit is delivered or dropped.
    virtual void FinishUnit();
    // Forgets what was taken from the queue besides the unit; the streaming thread is stopped.
    virtual void DropWindow() {}

    HRESULT OnThreadStartPlay() override;
    HRESULT DoBufferProcessingLoop() override;

    HRESULT ChangeStart() override { return S_OK; }  // the seek has already happened
    HRESULT ChangeStop() override { return RestartIfRunning(); }
    HRESULT ChangeRate() override { return RestartIfRunning(); }

    CVexFilter* const owner;
    GPacketQueue queue;
    GSampleUnit unit;  // streaming thread
    void Recycle(GPacketPtr packet) { pool.Give(std::move(packet)); }

private:
    enum class GStep : std::uint8_t { Continue, Stop };
    enum class GPeerCall : std::uint8_t { None, Data, Flush };

    static constexpr std::size_t kLeastLeft = 4096;  // bytes; with less, handing it over gains nothing

    class GDelivery;

    void FollowDuration();
    void StopDeliveries();
    void DropUnits();
    HRESULT Play();
    GStep DeliverUnit();
    HRESULT FillBuffer(GComPtr<IMediaSample>& sample);
    HRESULT Enlarge(GComPtr<IMediaSample>& sample, LONG needed);
    GStep AbortStream(HRESULT reason);
    GStep AwaitHalt();
    HRESULT RestartIfRunning();

    GStep DeliverLead(const GLeadSample& lead);
    template <class Taken>
    GStep DeliverSample(GComPtr<IMediaSample> sample, Taken&& taken);

    const GStreamInfo stream;
    const std::uint32_t streamNumber;
    GPacketPool pool;
    bool ended = false;                    // reader thread: the end marker of this run is queued
    std::size_t leadsDelivered = 0;        // streaming thread, of this start
    GPacketPtr current;                    // streaming thread: owns the bytes of `unit`
    bool unitPending = false;              // streaming thread: `unit` is prepared and not yet delivered
    bool discontinuityPending = false;     // streaming thread
    bool flushedForStop = false;           // under changeLock
    bool started = false;                  // the reader has begun: leads may go; written while the thread is parked
    HRESULT startFailure = S_OK;           // why the last restart has no buffers; written while the thread is parked
    std::atomic<bool> peerRefused{false};  // Deliver failed: nothing more is queued until the next start
    std::atomic<bool> halting{false};      // no call to the peer begins, none that fails counts
    std::atomic<GPeerCall> peerCall{GPeerCall::None};  // what the streaming thread is doing in the peer
    GMutex deliveryLock;                               // for the wait until it is out of there
    GCondition deliveryDone;
};

}  // namespace vex
