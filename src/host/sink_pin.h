// The end of a stream: an input pin that counts what it gets, hands it to a callback, and can misbehave on request.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "dshow/media_type.h"
#include "host/progress.h"
#include "platform/pipeline.h"

namespace vex {

// One sample as it arrives. Times are 100 ns, kNoTime where the sample has none; `data` is the sample's own memory.
struct GSampleView {
    std::size_t pin = 0;  // position of the output pin in its filter
    std::span<const std::uint8_t> data;
    REFERENCE_TIME start = kNoTime;
    REFERENCE_TIME stop = kNoTime;
    LONGLONG mediaStart = kNoTime;
    LONGLONG mediaStop = kNoTime;
    std::uint64_t segment = 0;  // how many NewSegments came before it since the graph was started
    bool sync = false;
    bool discontinuity = false;
    bool preroll = false;
};

// What a sample says of itself; `violation`, unless null, is set when it cannot be true. `pin` and `segment` are left
// alone.
GSampleView DescribeSample(IMediaSample& sample, const char** violation = nullptr);

// Called on the pin's streaming thread, with no lock held; `data` is valid until it returns. What it returns is what
// Receive returns.
using GSampleCallback = std::function<HRESULT(const GSampleView&)>;

// What a sink does with samples.
enum class GSinkBehaviour : std::uint8_t {
    Accept,
    Hold,    // Receive waits until the behaviour changes, the stream is flushed or the sink is stopped
    Refuse,  // Receive fails
    Finish,  // Receive returns S_FALSE: no more samples are wanted
};

struct GSinkOptions {
    GSampleCallback onSample;    // absent: samples are only counted
    bool offerAllocator = true;  // false: the peer has to bring its own
};

// What a sink saw, all of it since the graph was last started unless it says otherwise.
struct GSinkReport {
    std::uint64_t samples = 0;
    std::uint64_t bytes = 0;
    REFERENCE_TIME firstStart = kNoTime;  // 100 ns, as stamped: relative to the segment
    REFERENCE_TIME lastStop = kNoTime;    // greatest stop (or start) time
    std::uint64_t segmentSamples = 0;     // since the last flush
    std::uint64_t segments = 0;
    std::uint64_t flushes = 0;
    REFERENCE_TIME segmentStart = kNoTime;  // of the last NewSegment
    REFERENCE_TIME segmentStop = kNoTime;
    double segmentRate = 0;
    bool endOfStream = false;
    bool refused = false;  // a sample was answered with something other than S_OK: the peer stops delivering
    bool holding = false;  // Receive is waiting now
    std::vector<std::string> violations;  // broken rules of delivery, at most a few
};

// Registered with the graph only by being connected. Any thread may call any method.
class CSinkPin : public IPin, public IMemInputPin {
public:
    CSinkPin(std::size_t pinIndex, GSinkOptions sinkOptions, std::shared_ptr<GProgress> shared);

    // From SetActive(true) until SetActive(false) samples are taken; the first starts a new report, the second lets a
    // Receive that holds go.
    void SetActive(bool active);
    // Takes effect for samples that arrive, or are held, when `afterSamples` have been taken since the last flush.
    void SetBehaviour(GSinkBehaviour wanted, std::uint64_t afterSamples = 0, HRESULT refusal = E_FAIL);
    // Waiters of the shared progress are woken when `samples` have been taken since the last flush.
    void AnnounceAt(std::uint64_t samples);
    GSinkReport Report();
    // Samples taken since the graph was last started; cheaper than a report.
    std::uint64_t SampleCount() const { return sampleCount.load(std::memory_order_relaxed); }
    GComPtr<IMemAllocator> Allocator();  // the one that was agreed on

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override { return VFW_E_INVALID_DIRECTION; }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;  // also while samples flow: the next one is refused
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) override;
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) override;  // no filter
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override;
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override;  // has none of its own
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE EndFlush() override;
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;

    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override;
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
    HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed) override;
    HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_OK; }

protected:
    virtual ~CSinkPin() = default;
    // For a sink that writes down what it is told, under the lock and so in the order in which it took effect. Taken:
    // a sample that is answered with S_OK; the view's bytes are still there.
    virtual void TakenLocked(IMediaSample&, const GSampleView&) G_REQUIRES(lock) {}
    virtual void EndedLocked() G_REQUIRES(lock) {}
    virtual void FlushLocked(bool /*begins*/) G_REQUIRES(lock) {}
    virtual void SegmentLocked() G_REQUIRES(lock) {}  // as `report` says
    bool LetsGoLocked() const G_REQUIRES(lock) { return flushing || !isActive; }

    const std::shared_ptr<GProgress> progress;
    std::atomic<long> references{1};
    GMutex lock;
    GCondition changed;  // behaviour, flush, activity or connection

    GSinkReport report G_GUARDED_BY(lock);

private:
    HRESULT AdmitLocked() const G_REQUIRES(lock);
    bool MustHoldLocked() const G_REQUIRES(lock);
    void ViolationLocked(const char* what) G_REQUIRES(lock);
    void CountLocked(const GSampleView& view) G_REQUIRES(lock);
    HRESULT EnterLocked() G_REQUIRES(lock);

    const std::size_t index;
    const GSinkOptions options;
    const GComPtr<IMemAllocator> offered;  // may be empty
    std::atomic<std::uint64_t> sampleCount{0};

    GComPtr<IPin> peer G_GUARDED_BY(lock);
    GComPtr<IMemAllocator> agreed G_GUARDED_BY(lock);
    CMediaType type G_GUARDED_BY(lock);
    bool isActive G_GUARDED_BY(lock) = false;
    bool flushing G_GUARDED_BY(lock) = false;
    bool inReceive G_GUARDED_BY(lock) = false;
    GSinkBehaviour behaviour G_GUARDED_BY(lock) = GSinkBehaviour::Accept;
    std::uint64_t behaviourFrom G_GUARDED_BY(lock) = 0;
    HRESULT refuseWith G_GUARDED_BY(lock) = E_FAIL;
    std::uint64_t announceAt G_GUARDED_BY(lock) = 0;
};

}  // namespace vex
