// The MP4 source filter.
#pragma once

#include <atomic>

#include "formats/mp4/mp4_download.h"
#include "formats/mp4/mp4_interface.h"
#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kMp4Rules{
    .queue = {.minimumBytes = 16 * kMiB},
    .mediaTimes = GMediaTimeRule::None,
    .preroll = GPrerollRule::BeforeZero,
    .seekRelay = GSeekRelay::OncePerTarget,
    .resize = GResizeRule::Abort,
    .emptyPayloads = GEmptyPayloads::Deliver,
};

class CMP4_Filter final : public CVexFilter, public IVexMP4 {
public:
    explicit CMP4_Filter(IUnknown* outer);
    ~CMP4_Filter() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IVexMP4
    STDMETHODIMP GetDownloadState(ULONG* pState) override;
    STDMETHODIMP SetHostValue1(LONG value) override;
    STDMETHODIMP GetHostValue1(LONG* pValue) override;
    STDMETHODIMP SetHostValue2(LONG value) override;
    STDMETHODIMP GetHostValue2(LONG* pValue) override;
    STDMETHODIMP GetAvailableTime(LONGLONG* pTime) override;

    // IVexInspect
    STDMETHODIMP GetLoadProgress(ULONGLONG* pDone, ULONGLONG* pTotal) override;

protected:
    GResult<std::unique_ptr<GPreparation>> Prepare(const WString& path) override;

private:
    class GFetch;

    GDownloadStatus status;
    std::unique_ptr<GMp4Download> download;  // under changeLock; constant while the loader runs
    std::atomic<LONG> hostValue1{0};
    std::atomic<LONG> hostValue2{0};
    std::atomic<REFERENCE_TIME> availableTime{0};  // 100 ns, as said last; only grows
};

}  // namespace vex
