#include "formats/avi/avi_filter.h"

#include "formats/avi/avi_read_handler.h"
#include "framework/media/pin_names.h"
#include "module/class_ids.h"
#include "platform/trace.h"

namespace vex {

CAVI2_Filter::CAVI2_Filter(WString filterName, IUnknown* outer)
    : CVexFilter(std::move(filterName), outer, CLSID_VexAvi, kAviRules, std::make_unique<GAvi2ReadHandler>())
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

HRESULT CAVI2_Filter::SetKeyFrameSeek(LONG enable)
{
    keyFrameSeek = enable != 0;
    return S_OK;
}

HRESULT CAVI2_Filter::GetKeyFrameSeek(LONG* pEnable)
{
    if (!pEnable)
        return E_POINTER;
    *pEnable = keyFrameSeek ? 1 : 0;
    return S_OK;
}

HRESULT CAVI2_Filter::SetPrerollMark(LONG enable)
{
    prerollMark = enable != 0;
    return S_OK;
}

HRESULT CAVI2_Filter::GetPrerollMark(LONG* pEnable)
{
    if (!pEnable)
        return E_POINTER;
    *pEnable = prerollMark ? 1 : 0;
    return S_OK;
}

std::optional<WString> CAVI2_Filter::NamePin(const GStreamInfo& stream, std::size_t index)
{
    const GUID& major = stream.mediaTypes.front().majortype;
    GPinKind kind = GPinKind::Other;
    if (major == MEDIATYPE_Video)
        kind = GPinKind::Video;
    else if (major == MEDIATYPE_Audio)
        kind = GPinKind::Audio;
    else if (major == MEDIATYPE_Text)
        kind = GPinKind::Subtitle;
    return AviPinName(kind, static_cast<std::uint32_t>(index), stream.language);
}

CUnknown* CreateAviFilter(IUnknown* outer, HRESULT* result)
{
    Trace("CreateInstance\n");
    auto* filter = new (std::nothrow) CAVI2_Filter(VEX_W("Orvane AVI Source Filter"), outer);
    if (!filter)
        *result = E_OUTOFMEMORY;
    return filter;
}

}  // namespace vex
