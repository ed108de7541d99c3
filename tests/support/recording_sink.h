// An input pin that writes down what it is told, in order, and misbehaves on request.
#pragma once

#include <functional>
#include <vector>

#include "platform/pipeline.h"
#include "platform/threads.h"
#include "support/test_object.h"
#include "support/watchdog.h"

namespace vex::test {

struct GRecordedSample {
    std::vector<std::uint8_t> bytes;
    REFERENCE_TIME start = kNoTime;  // 100 ns
    REFERENCE_TIME stop = kNoTime;
    LONGLONG mediaStart = kNoTime;
    LONGLONG mediaStop = kNoTime;
    bool sync = false;
    bool discontinuity = false;
    bool preroll = false;
};

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

class CRecordingSink final : public GTestObject<IPin, IMemInputPin> {
public:
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
    void SetStopped(bool stop);
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
    GComPtr<IMemAllocator> Allocator();

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;

    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    HRESULT STDMETHODCALLTYPE Disconnect() override;
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) override
    {
        *pPinDir = direction;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) override
    {
        return likes ? likes->EnumMediaTypes(ppEnum) : E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndOfStream() override;
    HRESULT STDMETHODCALLTYPE BeginFlush() override
    {
        if (onBeginFlush)
            onBeginFlush();
        return Flush(GRecordedEvent::Kind::BeginFlush);
    }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return Flush(GRecordedEvent::Kind::EndFlush); }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;

    HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) override;
    HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) override;
    HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) override;
    HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
    HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample**, LONG, LONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_OK; }

private:
    void WaitUntil(const std::function<bool()>& done);
    std::vector<GRecordedSample> Samples(bool ofSegment);
    std::ptrdiff_t CountLocked(GRecordedEvent::Kind kind) const;
    void BlockIf(GSinkTrick blocking, std::unique_lock<GNativeMutex>& held);
    HRESULT Flush(GRecordedEvent::Kind kind);
    void WriteLocked(GRecordedEvent event);

    GNativeMutex lock;  // guards all below
    GCondition changed;
    std::vector<GRecordedEvent> events;
    GComPtr<IPin> peer;
    GComPtr<IMemAllocator> agreed;
    std::vector<GComPtr<IMediaSample>> kept;
    GSinkTrick trick = GSinkTrick::None;
    bool flushing = false;
    bool stopped = false;
    bool blocked = false;
};

}  // namespace vex::test
