#include "formats/ogg/ogg_filter.h"

#include "formats/ogg/ogg_info.h"
#include "formats/ogg/ogg_read_handler.h"

namespace vex {

COGG2_Filter::COGG2_Filter(IUnknown* outer)
    : CVexFilter(kOggFilter, kOggRules, outer, std::make_unique<GOGG2ReadHandler>())
{
}

HRESULT COGG2_Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IVexOGG2)
        return GetInterface(static_cast<IVexOGG2*>(this), ppv);
    return CVexFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT COGG2_Filter::GetDuration(LONGLONG* pDuration)
{
    if (!pDuration)
        return E_POINTER;
    *pDuration = IsLoaded() ? Duration() : 0;
    return S_OK;
}

COGG_Filter::COGG_Filter(IUnknown* outer)
    : CVexFilter(kOgg1Filter, kOggRules, outer,
                 std::make_unique<GOGG2ReadHandler>(std::make_unique<GCacheFile>(), GOggPinNames::First))
{
}

}  // namespace vex
