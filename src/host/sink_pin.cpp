#include "host/sink_pin.h"

#include <algorithm>

#include "dshow/media_sample.h"

namespace vex {

namespace {

constexpr std::size_t kMostViolations = 8;

constexpr WCHAR kSinkName[] = VEX_W("Input");

// A list without entries.
class CNoMediaTypes final : public IEnumMediaTypes {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = riid == IID_IUnknown || riid == IID_IEnumMediaTypes ? static_cast<IEnumMediaTypes*>(this) : nullptr;
        if (!*ppv)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const long left = --references;
        if (left == 0)
            delete this;
        return static_cast<ULONG>(left);
    }
    HRESULT STDMETHODCALLTYPE Next(ULONG, AM_MEDIA_TYPE**, ULONG* pcFetched) override
    {
        if (pcFetched)
            *pcFetched = 0;
        return S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG cMediaTypes) override { return cMediaTypes == 0 ? S_OK : S_FALSE; }
    HRESULT STDMETHODCALLTYPE Reset() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** ppEnum) override
    {
        if (!ppEnum)
            return E_POINTER;
        *ppEnum = new (std::nothrow) CNoMediaTypes;
        return *ppEnum ? S_OK : E_OUTOFMEMORY;
    }

private:
    ~CNoMediaTypes() = default;
    std::atomic<long> references{1};
};

}  // namespace

GSampleView DescribeSample(IMediaSample& sample, const char** violation)
{
    GSampleView view;
    BYTE* bytes = nullptr;
    const LONG length = sample.GetActualDataLength();
    if (length < 0 || length > sample.GetSize() || FAILED(sample.GetPointer(&bytes)) || (length > 0 && !bytes)) {
        if (violation)
            *violation = "a sample claims more bytes than its buffer has";
    } else {
        view.data = {bytes, static_cast<std::size_t>(length)};
    }

    const HRESULT timed = sample.GetTime(&view.start, &view.stop);
    if (FAILED(timed))
        view.start = view.stop = kNoTime;
    else if (timed == VFW_S_NO_STOP_TIME)
        view.stop = kNoTime;
    if (FAILED(sample.GetMediaTime(&view.mediaStart, &view.mediaStop)))
        view.mediaStart = view.mediaStop = kNoTime;
    view.sync = sample.IsSyncPoint() == S_OK;
    view.discontinuity = sample.IsDiscontinuity() == S_OK;
    view.preroll = sample.IsPreroll() == S_OK;
    return view;
}

CSinkPin::CSinkPin(std::size_t pinIndex, GSinkOptions sinkOptions, std::shared_ptr<GProgress> shared)
    : progress(std::move(shared)),
      index(pinIndex),
      options(std::move(sinkOptions)),
      offered(options.offerAllocator ? new CMemAllocator : nullptr)
{
}

void CSinkPin::SetActive(bool active)
{
    {
        GMutexLock held(lock);
        if (active && !isActive) {
            report = {};
            sampleCount.store(0, std::memory_order_relaxed);
        }
        isActive = active;
    }
    changed.notify_all();
    progress->Changed();
}

void CSinkPin::SetBehaviour(GSinkBehaviour wanted, std::uint64_t afterSamples, HRESULT refusal)
{
    {
        GMutexLock held(lock);
        behaviour = wanted;
        behaviourFrom = afterSamples;
        refuseWith = refusal;
    }
    changed.notify_all();
}

void CSinkPin::AnnounceAt(std::uint64_t samples)
{
    GMutexLock held(lock);
    announceAt = samples;
}

GSinkReport CSinkPin::Report()
{
    GMutexLock held(lock);
    return report;
}

GComPtr<IMemAllocator> CSinkPin::Allocator()
{
    GMutexLock held(lock);
    return agreed;
}

HRESULT CSinkPin::QueryInterface(REFIID riid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IPin)
        *ppv = static_cast<IPin*>(this);
    else if (riid == IID_IMemInputPin)
        *ppv = static_cast<IMemInputPin*>(this);
    else {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG CSinkPin::Release()
{
    const long left = --references;
    if (left == 0)
        delete this;
    return static_cast<ULONG>(left);
}

HRESULT CSinkPin::ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt)
{
    if (!pConnector || !pmt)
        return E_POINTER;
    return ComGuard([&]() -> HRESULT {
        CMediaType wanted(*pmt);
        GMutexLock held(lock);
        if (peer)
            return VFW_E_ALREADY_CONNECTED;
        peer = GComPtr<IPin>(pConnector);
        std::swap(type, wanted);
        return S_OK;
    });
}

HRESULT CSinkPin::Disconnect()
{
    GComPtr<IPin> oldPeer;  // released with no lock held
    GComPtr<IMemAllocator> oldAllocator;
    {
        GMutexLock held(lock);
        if (!peer)
            return S_FALSE;
        std::swap(peer, oldPeer);
        std::swap(agreed, oldAllocator);
        type.Clear();
    }
    changed.notify_all();
    return S_OK;
}

HRESULT CSinkPin::ConnectedTo(IPin** pPin)
{
    if (!pPin)
        return E_POINTER;
    GMutexLock held(lock);
    *pPin = GComPtr<IPin>(peer).Detach();
    return *pPin ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT CSinkPin::ConnectionMediaType(AM_MEDIA_TYPE* pmt)
{
    if (!pmt)
        return E_POINTER;
    GMutexLock held(lock);
    if (!peer) {
        *pmt = {};
        return VFW_E_NOT_CONNECTED;
    }
    return type.CopyTo(pmt);
}

HRESULT CSinkPin::QueryPinInfo(PIN_INFO* pInfo)
{
    if (!pInfo)
        return E_POINTER;
    pInfo->pFilter = nullptr;
    pInfo->dir = PINDIR_INPUT;
    std::copy(std::begin(kSinkName), std::end(kSinkName), pInfo->achName);
    return S_OK;
}

HRESULT CSinkPin::QueryDirection(PIN_DIRECTION* pPinDir)
{
    if (!pPinDir)
        return E_POINTER;
    *pPinDir = PINDIR_INPUT;
    return S_OK;
}

HRESULT CSinkPin::QueryId(LPWSTR* Id)
{
    if (!Id)
        return E_POINTER;
    *Id = static_cast<LPWSTR>(CoTaskMemAlloc(sizeof kSinkName));
    if (!*Id)
        return E_OUTOFMEMORY;
    std::copy(std::begin(kSinkName), std::end(kSinkName), *Id);
    return S_OK;
}

HRESULT CSinkPin::QueryAccept(const AM_MEDIA_TYPE* pmt) { return pmt ? S_OK : E_POINTER; }

HRESULT CSinkPin::EnumMediaTypes(IEnumMediaTypes** ppEnum)
{
    if (!ppEnum)
        return E_POINTER;
    *ppEnum = new (std::nothrow) CNoMediaTypes;
    return *ppEnum ? S_OK : E_OUTOFMEMORY;
}

HRESULT CSinkPin::EndOfStream()
{
    {
        GMutexLock held(lock);
        if (flushing)
            return S_FALSE;
        if (report.endOfStream)
            ViolationLocked("end of stream was said twice");
        report.endOfStream = true;
        EndedLocked();
    }
    progress->Changed();
    return S_OK;
}

HRESULT CSinkPin::BeginFlush()
{
    {
        GMutexLock held(lock);
        flushing = true;
        report.endOfStream = false;
        report.segmentSamples = 0;
        ++report.flushes;
        FlushLocked(true);
    }
    changed.notify_all();
    return S_OK;
}

HRESULT CSinkPin::EndFlush()
{
    {
        GMutexLock held(lock);
        if (!flushing)
            ViolationLocked("a flush ended that had not begun");
        // What was let through before the flush took hold belongs to the old position.
        flushing = false;
        report.endOfStream = false;
        report.segmentSamples = 0;
        report.refused = false;
        FlushLocked(false);
    }
    changed.notify_all();
    return S_OK;
}

HRESULT CSinkPin::NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate)
{
    {
        GMutexLock held(lock);
        ++report.segments;
        report.segmentStart = tStart;
        report.segmentStop = tStop;
        report.segmentRate = dRate;
        SegmentLocked();
    }
    progress->Changed();
    return S_OK;
}

HRESULT CSinkPin::GetAllocator(IMemAllocator** ppAllocator)
{
    if (!ppAllocator)
        return E_POINTER;
    *ppAllocator = GComPtr<IMemAllocator>(offered).Detach();
    return *ppAllocator ? S_OK : VFW_E_NO_ALLOCATOR;
}

HRESULT CSinkPin::NotifyAllocator(IMemAllocator* pAllocator, BOOL)
{
    if (!pAllocator)
        return E_POINTER;
    GComPtr<IMemAllocator> fresh(pAllocator);
    GMutexLock held(lock);
    std::swap(agreed, fresh);
    return S_OK;
}

void CSinkPin::ViolationLocked(const char* what)
{
    if (report.violations.size() < kMostViolations)
        report.violations.emplace_back(what);
}

HRESULT CSinkPin::AdmitLocked() const
{
    if (!isActive)
        return VFW_E_WRONG_STATE;
    if (!peer)
        return VFW_E_NOT_CONNECTED;
    return flushing ? S_FALSE : S_OK;
}

bool CSinkPin::MustHoldLocked() const
{
    return behaviour == GSinkBehaviour::Hold && report.segmentSamples >= behaviourFrom && isActive && peer && !flushing;
}

// S_OK lets the sample in; anything else is the answer to it.
HRESULT CSinkPin::EnterLocked()
{
    if (inReceive)
        ViolationLocked("two samples arrived at once");
    if (const HRESULT admitted = AdmitLocked(); admitted != S_OK)
        return admitted;
    if (report.endOfStream)
        ViolationLocked("a sample followed the end of the stream");
    if (report.segments == 0)
        ViolationLocked("a sample came before the first segment");
    if (behaviour == GSinkBehaviour::Refuse && report.segmentSamples >= behaviourFrom)
        return refuseWith;
    if (behaviour == GSinkBehaviour::Finish && report.segmentSamples >= behaviourFrom)
        return S_FALSE;
    inReceive = true;
    return S_OK;
}

void CSinkPin::CountLocked(const GSampleView& view)
{
    ++report.samples;
    ++report.segmentSamples;
    report.bytes += view.data.size();
    if (report.firstStart == kNoTime)
        report.firstStart = view.start;
    report.lastStop = std::max({report.lastStop, view.start, view.stop});
    sampleCount.store(report.samples, std::memory_order_relaxed);
}

HRESULT CSinkPin::Receive(IMediaSample* pSample)
{
    if (!pSample)
        return E_POINTER;
    std::uint64_t segment = 0;
    {
        GMutexLock held(lock);
        if (MustHoldLocked()) {
            report.holding = true;
            progress->Changed();
            while (MustHoldLocked())
                held.Wait(changed);
            report.holding = false;
        }
        if (const HRESULT answer = EnterLocked(); answer != S_OK) {
            report.refused = !flushing;
            progress->Changed();
            return answer;
        }
        segment = report.segments;
    }

    const char* violation = nullptr;
    GSampleView view = DescribeSample(*pSample, &violation);
    view.pin = index;
    view.segment = segment;
    const HRESULT result = options.onSample ? options.onSample(view) : S_OK;

    GMutexLock held(lock);
    inReceive = false;
    if (violation)
        ViolationLocked(violation);
    if (flushing)  // what the callback got belongs to the old position
        return S_FALSE;
    if (result == S_OK) {
        CountLocked(view);
        TakenLocked(*pSample, view);
    } else {
        report.refused = true;
    }
    if (result != S_OK || report.segmentSamples == announceAt)
        progress->Changed();
    return result;
}

HRESULT CSinkPin::ReceiveMultiple(IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed)
{
    if (!pSamples || !nSamplesProcessed)
        return E_POINTER;
    HRESULT result = S_OK;
    for (*nSamplesProcessed = 0; *nSamplesProcessed < nSamples && result == S_OK; ++*nSamplesProcessed)
        result = Receive(pSamples[*nSamplesProcessed]);
    return result;
}

}  // namespace vex
