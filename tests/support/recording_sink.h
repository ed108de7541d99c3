// The host's sink, writing down what it is told, in order, and with more ways to misbehave.
#pragma once

#include <functional>
#include <vector>

#include "host/sink_pin.h"
#include "support/watchdog.h"

namespace vex::test {

// `data` is empty.
struct GRecordedSample : GSampleView {
    std::vector<std::uint8_t> bytes;
};

inline std::vector<std::size_t> Sizes(const std::vector<GRecordedSample>& samples)
{
    std::vector<std::size_t> sizes;
    for (const auto& sample : samples)
        sizes.push_back(sample.bytes.size());
    return sizes;
}

struct GRecordedEvent {
    enum class Kind : std::uint8_t { Segment, Sample, End, BeginFlush, EndFlush };
    Kind kind = Kind::Sample;
    GRecordedSample sample{};  // Sample
    REFERENCE_TIME start = 0;  // Segment
    REFERENCE_TIME stop = 0;
    double rate = 0;
};

// What the sink does in the call that carries it.
enum class GSinkTrick : std::uint8_t {
    None,
    BlockReceive,  // waits in the call until flushed or stopped
    BlockEndOfStream,
    BlockNewSegment,
    Refuse,       // Receive fails
    NoMore,       // Receive says S_FALSE
    KeepSamples,  // takes every sample and never gives one back
    LetGo,        // disconnects itself in the middle
};

class CRecordingSink final : public CSinkPin {
public:
    CRecordingSink();

    // To be set before connecting.
    PIN_DIRECTION direction = PINDIR_INPUT;
    bool takesSamples = true;             // answers IMemInputPin
    GComPtr<IMemAllocator> offered;       // none: GetAllocator fails
    ALLOCATOR_PROPERTIES requirements{};  // what GetAllocatorRequirements says
    std::function<HRESULT(IMemAllocator*, BOOL readOnly)> onAllocator;
    std::function<bool(const AM_MEDIA_TYPE&)> accepts;
    IPin* likes = nullptr;  // whose types EnumMediaTypes offers; not owned

    // To be set before the source runs. Called on the streaming thread with no lock held.
    std::function<HRESULT(IMediaSample*)> onReceive;
    std::function<void()> onBeginFlush;  // likewise, on the thread that flushes
    bool keepsBytes = true;              // of the samples it records

    void Play(GSinkTrick wanted);
    // Like a filter that stops: every call that waits returns, samples are refused.
    void SetStopped(bool stop) { SetActive(!stop); }
    void GiveSamplesBack();

    // A hang ends the program.
    void WaitForEnd();
    void WaitForSamples(std::size_t count);
    void WaitUntilBlocked();
    std::vector<GRecordedEvent> Events();
    std::vector<GRecordedEvent> SinceFlush();                                // the events after the last flush
    std::vector<GRecordedSample> Samples() { return Samples(false); }        // all since the last ForgetEvents
    std::vector<GRecordedSample> SegmentSamples() { return Samples(true); }  // those after the last Segment
    std::ptrdiff_t Count(GRecordedEvent::Kind kind);
    void ForgetEvents();
    ULONG References() const { return static_cast<ULONG>(references.load()); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override;
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override;
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;
    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override;
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override;
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;

private:
    void TakenLocked(IMediaSample& sample, const GSampleView& view) override G_REQUIRES(lock);
    void EndedLocked() override G_REQUIRES(lock);
    void FlushLocked(bool begins) override G_REQUIRES(lock);
    void SegmentLocked() override G_REQUIRES(lock);
    void WriteLocked(GRecordedEvent event) G_REQUIRES(lock);
    void WaitUntil(const std::function<bool()>& done);
    std::vector<GRecordedSample> Samples(bool ofSegment);
    bool BlocksIn(GSinkTrick call);

    std::vector<GRecordedEvent> events G_GUARDED_BY(lock);
    std::vector<GComPtr<IMediaSample>> kept G_GUARDED_BY(lock);
    GSinkTrick trick G_GUARDED_BY(lock) = GSinkTrick::None;
    bool blocked G_GUARDED_BY(lock) = false;
};

}  // namespace vex::test
