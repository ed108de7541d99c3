#include "formats/mp4/mp4_filter.h"

#include "formats/mp4/mp4_info.h"
#include "formats/mp4/mp4_read_handler.h"

namespace vex {
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

HRESULT CMP4_Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IVexMP4)
        return GetInterface(static_cast<IVexMP4*>(this), ppv);
    return CVexFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMP4_Filter::GetDownloadState(ULONG* pState) { return Give(downloadState, pState); }

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
