#include "windows/sink_filter.h"

#include <algorithm>

#include "dshow/base_filter.h"
#include "host/sink_pin.h"
#include "support/test_object.h"
#include "windows/support.h"

#include <control.h>

namespace vex::wintest {

namespace {

// The class identifier of no registered class; filters must have one.
constexpr CLSID kSinkClass{0x2d4c9a1e, 0x5b7f, 0x4e0b, {0x9c, 0x31, 0x7a, 0x58, 0x0e, 0x6f, 0x22, 0xd4}};

class CSinkFilter;

// The host's sink as a pin of the filter: the two have one life.
class CSinkInput final : public CSinkPin {
public:
    CSinkInput(CSinkFilter& renderer, GSinkAllocator offeredAllocator)
        : CSinkPin(0, {.onSample = {}, .offerAllocator = false}, std::make_shared<GProgress>()),
          sink(renderer),
          allocator(offeredAllocator)
    {
        AnnounceAt(1);
    }

    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
    STDMETHODIMP QueryInternalConnections(IPin**, ULONG* count) override { return *count = 0, S_OK; }
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP GetAllocator(IMemAllocator** out) override
    {
        if (allocator == GSinkAllocator::None)
            return CSinkPin::GetAllocator(out);
        return CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                reinterpret_cast<void**>(out));
    }

    // INFINITE is a long wait here: a sample that never comes is a failure that the caller should see.
    bool WaitUntilReady(DWORD timeoutMs)
    {
        const auto deadline = GSteadyClock::now() + std::chrono::milliseconds(std::min(timeoutMs, kPatienceMs));
        return progress->Until(deadline, [this] {
            const GSinkReport now = Report();
            return now.segmentSamples > 0 || now.endOfStream;
        });
    }

private:
    void TakenLocked(IMediaSample&, const GSampleView& view) override G_REQUIRES(lock);
    void EndedLocked() override G_REQUIRES(lock);
    void FlushLocked(bool begins) override G_REQUIRES(lock);
    void SegmentLocked() override G_REQUIRES(lock);

    CSinkFilter& sink;
    const GSinkAllocator allocator;
};

// The pins of a filter that has one.
class COnePin final : public test::GTestObject<IEnumPins> {
public:
    COnePin(IPin& only, bool given) : pin(&only), done(given) {}

    STDMETHODIMP Next(ULONG count, IPin** pins, ULONG* fetched) override
    {
        const ULONG given = count > 0 && !done ? 1 : 0;
        if (given)
            *pins = GComPtr<IPin>(pin).Detach();
        done = done || given;
        if (fetched)
            *fetched = given;
        return given == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) override
    {
        const bool enough = count <= (done ? 0u : 1u);
        done = done || count > 0;
        return enough ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override { return done = false, S_OK; }
    STDMETHODIMP Clone(IEnumPins** out) override { return *out = new COnePin(*pin, done), S_OK; }

private:
    const GComPtr<IPin> pin;
    bool done;
};

class CSinkFilter final : public CBaseFilter, public IAMFilterMiscFlags, public IGSinkControl {
public:
    CSinkFilter(std::shared_ptr<GPinLog> pinLog, GSinkAllocator allocator)
        : CBaseFilter(L"Sink", nullptr, kSinkClass), log(std::move(pinLog)), pin(*this, allocator)
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
    // The pin is not one of the base class, which therefore knows of none.
    STDMETHODIMP EnumPins(IEnumPins** out) override { return *out = new COnePin(pin, false), S_OK; }
    STDMETHODIMP FindPin(LPCWSTR, IPin** out) override { return *out = nullptr, VFW_E_NOT_FOUND; }
    int GetPinCount() override { return 0; }
    CBasePin* GetPin(int) override { return nullptr; }

    STDMETHODIMP Stop() override
    {
        pin.SetActive(false);
        reported = false;
        return CBaseFilter::Stop();
    }
    STDMETHODIMP Pause() override
    {
        pin.SetActive(true);
        const HRESULT result = CBaseFilter::Pause();
        pin.SetBehaviour(GSinkBehaviour::Hold, 1);
        return result == S_OK && !pin.WaitUntilReady(0) ? S_FALSE : result;
    }
    STDMETHODIMP Run(REFERENCE_TIME start) override
    {
        const HRESULT result = CBaseFilter::Run(start);
        HoldAt(holdAt);
        ReportEnd();
        return result;
    }
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* out) override
    {
        *out = State();
        return *out != State_Paused || pin.WaitUntilReady(timeoutMs) ? S_OK : VFW_S_STATE_INTERMEDIATE;
    }

    void HoldAt(std::size_t samples) override
    {
        holdAt = samples;
        if (State() == State_Running)
            pin.SetBehaviour(samples ? GSinkBehaviour::Hold : GSinkBehaviour::Accept, samples);
    }
    std::vector<std::string> Violations() override { return pin.Report().violations; }

    // EC_COMPLETE once per end of stream, and only while running.
    void ReportEnd()
    {
        if (State() == State_Running && pin.Report().endOfStream && !reported.exchange(true))
            NotifyEvent(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
    }
    void ForgetEnd() { reported = false; }

    const std::shared_ptr<GPinLog> log;

private:
    CSinkInput pin;
    GComPtr<IUnknown> passThru;
    std::atomic<std::size_t> holdAt = 0;
    std::atomic<bool> reported = false;
};

ULONG CSinkInput::AddRef() { return sink.AddRef(); }
ULONG CSinkInput::Release() { return sink.Release(); }

HRESULT CSinkInput::QueryPinInfo(PIN_INFO* info)
{
    const HRESULT result = CSinkPin::QueryPinInfo(info);
    info->pFilter = GComPtr<IBaseFilter>(&sink).Detach();
    return result;
}

HRESULT CSinkInput::EndOfStream()
{
    const HRESULT result = CSinkPin::EndOfStream();
    sink.ReportEnd();
    return result;
}

void CSinkInput::TakenLocked(IMediaSample&, const GSampleView& view) { sink.log->Add(view); }
void CSinkInput::EndedLocked() { sink.log->AddEndOfStream(); }
void CSinkInput::FlushLocked(bool) { sink.ForgetEnd(); }
void CSinkInput::SegmentLocked() { sink.log->AddSegment(report.segmentStart); }

}  // namespace

GComPtr<IBaseFilter> CreateSinkFilter(std::shared_ptr<GPinLog> log, GSinkAllocator allocator, IGSinkControl** control)
{
    auto* filter = new CSinkFilter(std::move(log), allocator);
    *control = filter;
    return GComPtr<IBaseFilter>::Adopt(filter);
}

}  // namespace vex::wintest
