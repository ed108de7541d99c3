#include "windows/sink_filter.h"

#include <algorithm>
#include <chrono>

#include "dshow/base_filter.h"
#include "windows/support.h"

#include <control.h>

namespace vex::wintest {

namespace {

// The class identifier of no registered class; filters must have one.
constexpr CLSID kSinkClass{0x2d4c9a1e, 0x5b7f, 0x4e0b, {0x9c, 0x31, 0x7a, 0x58, 0x0e, 0x6f, 0x22, 0xd4}};

class CSinkFilter;

class CSinkInput final : public CBasePin, public IMemInputPin {
public:
    explicit CSinkInput(CSinkFilter& renderer);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** out) override
    {
        return iid == IID_IMemInputPin ? GetInterface(static_cast<IMemInputPin*>(this), out)
                                       : CBasePin::NonDelegatingQueryInterface(iid, out);
    }

    HRESULT GetMediaType(int, CMediaType*) override { return VFW_S_NO_MORE_ITEMS; }
    HRESULT CheckMediaType(const CMediaType*) override { return S_OK; }

    STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* mediaType) override
    {
        if (peer)
            return VFW_E_ALREADY_CONNECTED;
        type = CMediaType(*mediaType);
        peer = GComPtr<IPin>(connector);
        return S_OK;
    }
    STDMETHODIMP Disconnect() override
    {
        if (!peer)
            return S_FALSE;
        peer.Reset();
        allocator.Reset();
        type.Clear();
        return S_OK;
    }
    STDMETHODIMP ConnectedTo(IPin** out) override
    {
        *out = GComPtr<IPin>(peer).Detach();
        return *out ? S_OK : VFW_E_NOT_CONNECTED;
    }
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* out) override
    {
        return peer ? type.CopyTo(out) : VFW_E_NOT_CONNECTED;
    }
    STDMETHODIMP QueryInternalConnections(IPin**, ULONG* count) override { return *count = 0, S_OK; }
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

    STDMETHODIMP GetAllocator(IMemAllocator** out) override
    {
        return CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                reinterpret_cast<void**>(out));
    }
    STDMETHODIMP NotifyAllocator(IMemAllocator* chosen, BOOL) override
    {
        return allocator = GComPtr<IMemAllocator>(chosen), S_OK;
    }
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP ReceiveMultiple(IMediaSample** samples, long count, long* processed) override;
    STDMETHODIMP ReceiveCanBlock() override { return S_OK; }

    bool HasPeer() const { return static_cast<bool>(peer); }

private:
    CSinkFilter& sink;
    GComPtr<IPin> peer;
    CMediaType type;
    GComPtr<IMemAllocator> allocator;
};

class CSinkFilter final : public CBaseFilter, public IAMFilterMiscFlags, public IGSinkControl {
public:
    explicit CSinkFilter(std::shared_ptr<GPinLog> pinLog)
        : CBaseFilter(L"Sink", nullptr, kSinkClass), log(std::move(pinLog)), pin(*this)
    {
        AddRef();  // the creator's; the pass-through takes references and gives them back
        // The graph seeks through its renderers, which hand the request upstream.
        Check(
            CoCreateInstance(CLSID_SeekingPassThru, GetOwner(), CLSCTX_INPROC_SERVER, IID_IUnknown, passThru.PutVoid()),
            "the seeking pass-through");
        const auto set = QueryFor<ISeekingPassThru>(passThru.Get(), IID_ISeekingPassThru);
        Require(static_cast<bool>(set), "the seeking pass-through has no ISeekingPassThru");
        Check(set->Init(TRUE, &pin), "ISeekingPassThru::Init");
    }

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** out) override
    {
        if (iid == IID_IAMFilterMiscFlags)
            return GetInterface(static_cast<IAMFilterMiscFlags*>(this), out);
        if (iid == IID_IMediaSeeking || iid == IID_IMediaPosition)
            return passThru->QueryInterface(iid, out);
        return CBaseFilter::NonDelegatingQueryInterface(iid, out);
    }

    STDMETHODIMP_(ULONG) GetMiscFlags() override { return AM_FILTER_MISC_FLAGS_IS_RENDERER; }
    int GetPinCount() override { return 1; }
    CBasePin* GetPin(int index) override { return index == 0 ? &pin : nullptr; }

    STDMETHODIMP Stop() override
    {
        Enter(State_Stopped);
        return CBaseFilter::Stop();
    }
    STDMETHODIMP Pause() override
    {
        Enter(State_Paused);
        const HRESULT result = CBaseFilter::Pause();
        const GMutexLock held(lock);
        return result == S_OK && !ReadyLocked() ? S_FALSE : result;
    }
    STDMETHODIMP Run(REFERENCE_TIME start) override
    {
        const HRESULT result = CBaseFilter::Run(start);
        if (SUCCEEDED(result))
            Enter(State_Running);
        return result;
    }
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* out) override
    {
        GMutexLock held(lock);
        // INFINITE is a long wait here: a state that never comes is a failure that the caller should see.
        const auto patience = std::chrono::milliseconds(std::min(timeoutMs, kPatienceMs));
        const auto deadline = GSteadyClock::now() + patience;
        while (!ReadyLocked() && held.WaitUntil(changed, deadline)) {}
        *out = state;
        return ReadyLocked() ? S_OK : VFW_S_STATE_INTERMEDIATE;
    }

    void HoldAt(std::size_t samples) override
    {
        const GMutexLock held(lock);
        holdAt = samples;
        changed.notify_all();
    }

    // What the pin hears from upstream.
    HRESULT Receive(IMediaSample& sample)
    {
        GMutexLock held(lock);
        if (flushing)
            return S_FALSE;
        if (state == State_Stopped)
            return VFW_E_WRONG_STATE;
        if (ended)
            return VFW_E_SAMPLE_REJECTED_EOS;
        log->Add(sample);
        ++arrived;
        holding = true;
        changed.notify_all();
        while (!flushing && state != State_Stopped && (state != State_Running || (holdAt && arrived >= holdAt)))
            held.Wait(changed);
        holding = false;
        return flushing || state == State_Stopped ? S_FALSE : S_OK;
    }
    void EndOfStream()
    {
        log->AddEndOfStream();
        {
            const GMutexLock held(lock);
            ended = true;
            changed.notify_all();
        }
        ReportEnd();
    }
    void BeginFlush()
    {
        const GMutexLock held(lock);
        flushing = true;
        changed.notify_all();
    }
    void EndFlush()
    {
        const GMutexLock held(lock);
        flushing = ended = reported = false;
    }

    const std::shared_ptr<GPinLog> log;

private:
    bool ReadyLocked() const { return state != State_Paused || !pin.HasPeer() || holding || ended; }

    void Enter(FILTER_STATE next)
    {
        {
            const GMutexLock held(lock);
            if (state == State_Stopped || next == State_Stopped) {
                ended = reported = false;
                arrived = 0;
            }
            state = next;
            changed.notify_all();
        }
        ReportEnd();
    }

    // EC_COMPLETE once per end of stream, and only while running.
    void ReportEnd()
    {
        {
            const GMutexLock held(lock);
            if (!ended || reported || state != State_Running)
                return;
            reported = true;
        }
        NotifyEvent(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
    }

    CSinkInput pin;
    GComPtr<IUnknown> passThru;

    GMutex lock;  // Guards what follows.
    GCondition changed;
    FILTER_STATE state = State_Stopped;  // as streaming threads see it: before the base class waits for them
    std::size_t arrived = 0, holdAt = 0;
    bool flushing = false, ended = false, reported = false;
    bool holding = false;  // a thread stands in Receive with its sample
};

CSinkInput::CSinkInput(CSinkFilter& renderer) : CBasePin(&renderer, L"In", PINDIR_INPUT), sink(renderer) {}

HRESULT CSinkInput::EndOfStream() { return sink.EndOfStream(), S_OK; }
HRESULT CSinkInput::BeginFlush() { return sink.BeginFlush(), S_OK; }
HRESULT CSinkInput::EndFlush() { return sink.EndFlush(), S_OK; }

HRESULT CSinkInput::NewSegment(REFERENCE_TIME start, REFERENCE_TIME, double)
{
    return sink.log->AddSegment(start), S_OK;
}

HRESULT CSinkInput::Receive(IMediaSample* sample) { return sink.Receive(*sample); }

HRESULT CSinkInput::ReceiveMultiple(IMediaSample** samples, long count, long* processed)
{
    *processed = 0;
    for (long i = 0; i < count; ++i, ++*processed) {
        if (const HRESULT received = Receive(samples[i]); received != S_OK)
            return received;
    }
    return S_OK;
}

}  // namespace

GComPtr<IBaseFilter> CreateSinkFilter(std::shared_ptr<GPinLog> log, IGSinkControl** control)
{
    auto* filter = new CSinkFilter(std::move(log));
    *control = filter;
    return GComPtr<IBaseFilter>::Adopt(filter);
}

}  // namespace vex::wintest
