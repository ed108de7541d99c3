#include "formats/avi/avi_filter.h"

#include "formats/avi/avi_info.h"
#include "formats/avi/avi_read_handler.h"

namespace vex {

CAVI2_Filter::CAVI2_Filter(IUnknown* outer)
    : CVexFilter(kAviFilter, kAviRules, outer, std::make_unique<GAvi2ReadHandler>())
{
}

HRESULT CAVI2_Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IVexAVI)
        return GetInterface(static_cast<IVexAVI*>(this), ppv);
    return CVexFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CAVI2_Filter::GetDuration(LONGLONG* pDuration)
{
    if (!pDuration)
        return E_POINTER;
    return ComGuard([&] {
        *pDuration = IsLoaded() ? Handler().LongestStreamDuration() : 0;
        return S_OK;
    });
}

}  // namespace vex
