// Media samples and the memory allocator that owns them.
#pragma once

#include <memory>
#include <vector>

#include "dshow/media_type.h"
#include "dshow/unknown.h"
#include "platform/pipeline.h"
#include "platform/threads.h"

namespace vex {

class CMemAllocator;

// One buffer of an allocator. Released to zero it goes back to the allocator, which keeps it for the next GetBuffer.
class CMediaSample final : public IMediaSample {
public:
    CMediaSample(CMemAllocator* home, BYTE* memory, LONG bytes);
    virtual ~CMediaSample() = default;

    STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetPointer(BYTE** ppBuffer) override;
    STDMETHODIMP_(LONG) GetSize() override { return capacity; }
    STDMETHODIMP GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    STDMETHODIMP SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
    STDMETHODIMP IsSyncPoint() override { return syncPoint ? S_OK : S_FALSE; }
    STDMETHODIMP SetSyncPoint(BOOL bIsSyncPoint) override;
    STDMETHODIMP IsPreroll() override { return preroll ? S_OK : S_FALSE; }
    STDMETHODIMP SetPreroll(BOOL bIsPreroll) override;
    STDMETHODIMP_(LONG) GetActualDataLength() override { return length; }
    STDMETHODIMP SetActualDataLength(LONG bytes) override;
    STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** ppMediaType) override;
    STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* pMediaType) override;
    STDMETHODIMP IsDiscontinuity() override { return discontinuity ? S_OK : S_FALSE; }
    STDMETHODIMP SetDiscontinuity(BOOL bDiscontinuity) override;
    STDMETHODIMP GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;
    STDMETHODIMP SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;

    // Forgets all properties, before the sample is handed out again. Allocator only.
    void Renew();

private:
    CMemAllocator* const allocator;  // not owned; a sample that is handed out holds a reference on it
    BYTE* const buffer;              // the allocator's memory
    const LONG capacity;             // bytes
    std::atomic<ULONG> references{0};
    LONG length = 0;
    bool syncPoint = false;
    bool preroll = false;
    bool discontinuity = false;
    bool timeSet = false;
    bool stopSet = false;
    bool mediaTimeSet = false;
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    LONGLONG mediaStart = 0;
    LONGLONG mediaStop = 0;
    std::unique_ptr<CMediaType> type;  // only when it differs from the connection's
};

// A pool of equal buffers. Properties are set while decommitted; Commit allocates, Decommit wakes whoever waits for a
// buffer and frees the memory once the last sample has come back. Memory is not zeroed. Any thread.
class CMemAllocator final : public CUnknown, public IMemAllocator {
public:
    explicit CMemAllocator(IUnknown* outer = nullptr);
    ~CMemAllocator() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    STDMETHODIMP SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) override;
    STDMETHODIMP GetProperties(ALLOCATOR_PROPERTIES* pProps) override;
    STDMETHODIMP Commit() override;
    STDMETHODIMP Decommit() override;
    // Waits for a free buffer unless dwFlags has AM_GBF_NOWAIT (VFW_E_TIMEOUT); VFW_E_NOT_COMMITTED ends the wait.
    STDMETHODIMP GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime, REFERENCE_TIME* pEndTime,
                           DWORD dwFlags) override;
    STDMETHODIMP ReleaseBuffer(IMediaSample* pBuffer) override;

    static constexpr DWORD kNoWait = 0x4;  // AM_GBF_NOWAIT

private:
    HRESULT AllocateLocked() G_REQUIRES(lock);
    void FreeLocked() G_REQUIRES(lock);

    GMutex lock;
    GCondition changed;
    ALLOCATOR_PROPERTIES properties G_GUARDED_BY(lock){};
    bool committed G_GUARDED_BY(lock) = false;
    std::unique_ptr<BYTE[]> memory G_GUARDED_BY(lock);
    std::vector<std::unique_ptr<CMediaSample>> samples G_GUARDED_BY(lock);
    std::vector<CMediaSample*> idle G_GUARDED_BY(lock);
};

}  // namespace vex
