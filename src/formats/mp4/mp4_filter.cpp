#include "formats/mp4/mp4_filter.h"

#include "formats/mp4/mp4_info.h"
#include "formats/mp4/mp4_read_handler.h"
#include "formats/mp4/mp4_url.h"
#include "platform/trace.h"

namespace vex {

// The download as the frame sees it.
class CMP4_Filter::GFetch final : public GPreparation {
public:
    GFetch(GMp4Download& started, GDownloadStatus& progress) : download(started), status(progress) {}

    GResult<WString> Run() override
    {
        G_TRY_STATUS(download.Run());
        return WideFromNarrowPath(download.CachePath());
    }
    std::string Shortfall() const override { return download.Shortfall(); }
    void Abort() override { download.StopDownload(); }
    void Loaded(const GStatus&) override { status.downloadState = VexMp4Download_Done; }

private:
    GMp4Download& download;
    GDownloadStatus& status;
};

namespace {

template <class T, class Value>
HRESULT Give(const std::atomic<T>& from, Value* to)
{
    if (!to)
        return E_POINTER;
    *to = from.load(std::memory_order_relaxed);
    return S_OK;
}

}  // namespace

CMP4_Filter::CMP4_Filter(IUnknown* outer)
    : CVexFilter(kMp4Filter, kMp4Rules, outer, std::make_unique<GMp4ReadHandler>())
{
}

// No thread of the filter runs any more.
CMP4_Filter::~CMP4_Filter()
{
    Handler().Close();
    download.reset();
    try {
        DeleteStaleDownloads();
    } catch (const std::bad_alloc&) {
        Trace("Memory ran short for the cleaning of temporary files\n");
    }
}

GResult<std::unique_ptr<GPreparation>> CMP4_Filter::Prepare(const WString& path)
{
    download.reset();
    status.downloadState = VexMp4Download_None;
    status.received = status.contentLength = 0;
    const std::string narrow = NarrowPathFromWide(path);
    std::string_view url = narrow;
    // What the code page cannot express is sent as UTF-8.
    if (url.starts_with(kUtf8PathMark))
        url.remove_prefix(kUtf8PathMark.size());
    if (!IsUrl(url))
        return nullptr;
    const auto post = [this](std::int32_t percent) { NotifyEvent(kVexMp4DownloadEvent, percent, 0); };
    G_TRY(download, GMp4Download::StartDownload(url, status, post));
    return std::make_unique<GFetch>(*download, status);
}

HRESULT CMP4_Filter::GetLoadProgress(ULONGLONG* pDone, ULONGLONG* pTotal)
{
    if (!pDone || !pTotal)
        return E_POINTER;
    *pDone = status.received;
    *pTotal = status.contentLength;
    return *pTotal != 0 ? S_OK : S_FALSE;
}

HRESULT CMP4_Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IVexMP4)
        return GetInterface(static_cast<IVexMP4*>(this), ppv);
    return CVexFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMP4_Filter::GetDownloadState(ULONG* pState) { return Give(status.downloadState, pState); }

HRESULT CMP4_Filter::SetHostValue1(LONG value)
{
    hostValue1 = value;
    return S_OK;
}

HRESULT CMP4_Filter::GetHostValue1(LONG* pValue) { return Give(hostValue1, pValue); }

HRESULT CMP4_Filter::SetHostValue2(LONG value)
{
    hostValue2 = value;
    return S_OK;
}

HRESULT CMP4_Filter::GetHostValue2(LONG* pValue) { return Give(hostValue2, pValue); }

HRESULT CMP4_Filter::GetAvailableTime(LONGLONG* pTime)
{
    if (!pTime)
        return E_POINTER;
    return ComGuard([&] {
        REFERENCE_TIME said = availableTime.load();
        if (IsLoaded()) {
            const REFERENCE_TIME now = static_cast<GMp4ReadHandler&>(Handler()).AvailableTime();
            while (said < now && !availableTime.compare_exchange_weak(said, now)) {}
        }
        *pTime = availableTime.load();
        return S_OK;
    });
}

}  // namespace vex
