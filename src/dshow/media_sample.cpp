#include "dshow/media_sample.h"

#include <algorithm>
#include <cstdint>

namespace vex {

namespace {

// One buffer of the greatest size that can be asked for, with its alignment, still fits; more is a mistake.
constexpr std::uint64_t kLargestPool = std::min<std::uint64_t>(std::uint64_t{1} << 32, PTRDIFF_MAX);  // bytes
constexpr LONG kMostBuffers = 1 << 20;

}  // namespace

CMediaSample::CMediaSample(CMemAllocator* home, BYTE* memory, LONG bytes)
    : allocator(home), buffer(memory), capacity(bytes)
{
}

HRESULT CMediaSample::QueryInterface(REFIID riid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IMediaSample)
        return GetInterface(static_cast<IMediaSample*>(this), ppv);
    *ppv = nullptr;
    return E_NOINTERFACE;
}

ULONG CMediaSample::AddRef() { return references.fetch_add(1, std::memory_order_relaxed) + 1; }

ULONG CMediaSample::Release()
{
    const ULONG left = references.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0)
        allocator->ReleaseBuffer(this);  // from here on the sample may be anybody's
    return left;
}

HRESULT CMediaSample::GetPointer(BYTE** ppBuffer)
{
    if (!ppBuffer)
        return E_POINTER;
    *ppBuffer = buffer;
    return S_OK;
}

HRESULT CMediaSample::GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd)
{
    if (!pTimeStart || !pTimeEnd)
        return E_POINTER;
    if (!timeSet)
        return VFW_E_SAMPLE_TIME_NOT_SET;
    *pTimeStart = start;
    if (!stopSet) {
        *pTimeEnd = start < INT64_MAX ? start + 1 : start;
        return VFW_S_NO_STOP_TIME;
    }
    *pTimeEnd = stop;
    return S_OK;
}

HRESULT CMediaSample::SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd)
{
    timeSet = pTimeStart != nullptr;
    stopSet = timeSet && pTimeEnd != nullptr;
    if (timeSet)
        start = *pTimeStart;
    if (stopSet)
        stop = *pTimeEnd;
    return S_OK;
}

HRESULT CMediaSample::SetSyncPoint(BOOL bIsSyncPoint)
{
    syncPoint = bIsSyncPoint != FALSE;
    return S_OK;
}

HRESULT CMediaSample::SetPreroll(BOOL bIsPreroll)
{
    preroll = bIsPreroll != FALSE;
    return S_OK;
}

HRESULT CMediaSample::SetActualDataLength(LONG bytes)
{
    if (bytes < 0 || bytes > capacity)
        return VFW_E_BUFFER_OVERFLOW;
    length = bytes;
    return S_OK;
}

HRESULT CMediaSample::GetMediaType(AM_MEDIA_TYPE** ppMediaType)
{
    if (!ppMediaType)
        return E_POINTER;
    *ppMediaType = nullptr;
    if (!type)
        return S_FALSE;
    *ppMediaType = CreateMediaType(*type);
    return *ppMediaType ? S_OK : E_OUTOFMEMORY;
}

HRESULT CMediaSample::SetMediaType(AM_MEDIA_TYPE* pMediaType)
{
    return ComGuard([&] {
        type = pMediaType ? std::make_unique<CMediaType>(*pMediaType) : nullptr;
        return S_OK;
    });
}

HRESULT CMediaSample::SetDiscontinuity(BOOL bDiscontinuity)
{
    discontinuity = bDiscontinuity != FALSE;
    return S_OK;
}

HRESULT CMediaSample::GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd)
{
    if (!pTimeStart || !pTimeEnd)
        return E_POINTER;
    if (!mediaTimeSet)
        return VFW_E_MEDIA_TIME_NOT_SET;
    *pTimeStart = mediaStart;
    *pTimeEnd = mediaStop;
    return S_OK;
}

HRESULT CMediaSample::SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd)
{
    mediaTimeSet = pTimeStart != nullptr && pTimeEnd != nullptr;
    if (mediaTimeSet) {
        mediaStart = *pTimeStart;
        mediaStop = *pTimeEnd;
    }
    return S_OK;
}

void CMediaSample::Renew()
{
    length = 0;
    syncPoint = preroll = discontinuity = timeSet = stopSet = mediaTimeSet = false;
    type.reset();
}

CMemAllocator::CMemAllocator(IUnknown* outer) : CUnknown(outer) {}

CMemAllocator::~CMemAllocator() = default;

HRESULT CMemAllocator::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IMemAllocator)
        return GetInterface(static_cast<IMemAllocator*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMemAllocator::SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual)
{
    if (!pRequest || !pActual)
        return E_POINTER;
    if (pRequest->cBuffers < 0 || pRequest->cbBuffer < 0 || pRequest->cbPrefix < 0)
        return E_INVALIDARG;
    const LONG align = pRequest->cbAlign <= 0 ? 1 : pRequest->cbAlign;
    if ((align & (align - 1)) != 0)
        return VFW_E_BADALIGN;
    const GMutexLock held(lock);
    if (committed)
        return VFW_E_ALREADY_COMMITTED;
    if (idle.size() != samples.size())
        return VFW_E_BUFFERS_OUTSTANDING;
    FreeLocked();
    properties = *pRequest;
    properties.cbAlign = align;
    *pActual = properties;
    return S_OK;
}

HRESULT CMemAllocator::GetProperties(ALLOCATOR_PROPERTIES* pProps)
{
    if (!pProps)
        return E_POINTER;
    const GMutexLock held(lock);
    *pProps = properties;
    return S_OK;
}

HRESULT CMemAllocator::AllocateLocked()
{
    if (properties.cBuffers <= 0 || properties.cbBuffer <= 0)
        return VFW_E_SIZENOTSET;
    // Each buffer starts aligned behind its prefix; sizes are formed in 64 bits so that a 32-bit build refuses rather
    // than wraps.
    const std::uint64_t align = static_cast<std::uint64_t>(properties.cbAlign);
    const std::uint64_t stride = (static_cast<std::uint64_t>(properties.cbPrefix) +
                                  static_cast<std::uint64_t>(properties.cbBuffer) + align - 1) /
                                 align * align;
    const std::uint64_t total = stride * static_cast<std::uint64_t>(properties.cBuffers) + align;
    if (total > kLargestPool || properties.cBuffers > kMostBuffers)
        return E_OUTOFMEMORY;
    memory = std::make_unique_for_overwrite<BYTE[]>(static_cast<std::size_t>(total));
    const auto base = reinterpret_cast<std::uintptr_t>(memory.get());
    const std::size_t shift = static_cast<std::size_t>((align - base % align) % align);
    samples.reserve(static_cast<std::size_t>(properties.cBuffers));
    idle.reserve(static_cast<std::size_t>(properties.cBuffers));
    for (LONG i = 0; i < properties.cBuffers; ++i) {
        BYTE* start = memory.get() + shift + static_cast<std::size_t>(stride) * static_cast<std::size_t>(i) +
                      static_cast<std::size_t>(properties.cbPrefix);
        samples.push_back(std::make_unique<CMediaSample>(this, start, properties.cbBuffer));
        idle.push_back(samples.back().get());
    }
    return S_OK;
}

void CMemAllocator::FreeLocked()
{
    idle.clear();
    samples.clear();
    memory.reset();
}

HRESULT CMemAllocator::Commit()
{
    return ComGuard([&]() -> HRESULT {
        const GMutexLock held(lock);
        if (committed)
            return S_OK;
        // Memory is still there when the last decommit found samples in other hands.
        if (samples.empty()) {
            HRESULT hr = E_OUTOFMEMORY;
            try {
                hr = AllocateLocked();
            } catch (const std::bad_alloc&) {
            }
            if (FAILED(hr)) {
                FreeLocked();
                return hr;
            }
        }
        committed = true;
        changed.notify_all();
        return S_OK;
    });
}

HRESULT CMemAllocator::Decommit()
{
    const GMutexLock held(lock);
    committed = false;
    if (idle.size() == samples.size())
        FreeLocked();
    changed.notify_all();
    return S_OK;
}

HRESULT CMemAllocator::GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME*, REFERENCE_TIME*, DWORD dwFlags)
{
    if (!ppBuffer)
        return E_POINTER;
    *ppBuffer = nullptr;
    CMediaSample* sample = nullptr;
    {
        GMutexLock held(lock);
        while (committed && idle.empty()) {
            if (dwFlags & kNoWait)
                return VFW_E_TIMEOUT;
            held.Wait(changed);
        }
        if (!committed)
            return VFW_E_NOT_COMMITTED;
        sample = idle.back();
        idle.pop_back();
    }
    sample->Renew();
    sample->AddRef();
    AddRef();  // for the sample, until it comes back
    *ppBuffer = sample;
    return S_OK;
}

HRESULT CMemAllocator::ReleaseBuffer(IMediaSample* pBuffer)
{
    if (!pBuffer)
        return E_POINTER;
    {
        const GMutexLock held(lock);
        idle.push_back(static_cast<CMediaSample*>(pBuffer));
        if (!committed && idle.size() == samples.size())
            FreeLocked();
        changed.notify_one();
    }
    Release();  // may destroy this allocator
    return S_OK;
}

}  // namespace vex
