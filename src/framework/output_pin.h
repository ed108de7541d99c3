// An output pin: turns queued packets into media samples on its own streaming thread.
#pragma once

#include <atomic>
#include <span>

#include "dshow/source.h"
#include "dshow/source_seeking.h"
#include "framework/filter_rules.h"
#include "framework/media/read_handler.h"
#include "framework/packet_queue.h"

namespace vex {

class CVexFilter;

// What one media sample is made of: a whole packet, or one frame of it.
struct GSampleUnit {
    std::span<const std::uint8_t> data;
    REFERENCE_TIME start = kNoTime;  // 100 ns from the segment's start, before the rate
    REFERENCE_TIME stop = kNoTime;
    LONGLONG mediaStart = kNoTime;
    LONGLONG mediaStop = kNoTime;
    bool keyFrame = false;
    bool discontinuity = false;
};

class CVexOutputPin : public CSourceStream, public CSourceSeeking {
public:
    CVexOutputPin(CVexFilter* owningFilter, WString pinName, const GStreamInfo& info);
    ~CVexOutputPin() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

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

    // Reader thread. Refused when the streaming thread does not exist or `giveUp` says so while the queue is full; a
    // packet for a pin whose peer has refused a sample is taken and dropped, so that the other pins go on.
    GPacketQueue::PushResult Push(GPacketPtr packet, const std::function<bool()>& giveUp);
    void PushEnd() { queue.PushEnd(); }

    // The two halves of a restart, under the filter's changeLock (or before the reader thread has started). Between
    // them the streaming thread takes no packet and delivers nothing.
    void Halt();
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
    void Recycle(GPacketPtr packet);

private:
    enum class GStep : std::uint8_t { Continue, Stop };

    class GDelivery;

    void StopDeliveries();
    void DropUnits();
    HRESULT Play();
    GStep DeliverUnit();
    HRESULT FillBuffer(GComPtr<IMediaSample>& sample);
    HRESULT Enlarge(GComPtr<IMediaSample>& sample, LONG needed);
    GStep AbortStream(HRESULT reason);
    HRESULT RestartIfRunning();

    const GStreamInfo stream;
    const std::uint32_t streamNumber;
    GPacketPtr current;                    // streaming thread: owns the bytes of `unit`
    bool unitPending = false;              // streaming thread: `unit` is prepared and not yet delivered
    bool discontinuityPending = false;     // streaming thread
    std::atomic<bool> peerRefused{false};  // Deliver failed: nothing more is queued until the next start
    std::atomic<bool> halting{false};      // set under deliveryLock: no call to the peer begins, none that fails counts
    GMutex deliveryLock;
    GCondition deliveryDone;
    bool inDelivery G_GUARDED_BY(deliveryLock) = false;    // the streaming thread is inside the peer
    bool flushingPeer G_GUARDED_BY(deliveryLock) = false;  // and there it flushes
};

}  // namespace vex
