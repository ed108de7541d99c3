#include "formats/mkv/mkv_filter.h"

#include "formats/mkv/mkv_output_pin.h"
#include "formats/mkv/mkv_read_handler.h"
#include "module/class_ids.h"
#include "platform/trace.h"

namespace vex {

CMKV_Filter::CMKV_Filter(WString filterName, IUnknown* outer)
    : CVexFilter(std::move(filterName), outer, CLSID_VexMkv, kMkvRules, std::make_unique<GMkvReadHandler>())
{
}

HRESULT CMKV_Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IVexMKV)
        return GetInterface(static_cast<IVexMKV*>(this), ppv);
    return CVexFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMKV_Filter::SetKeyFrameSeek(BOOL enable)
{
    keyFrameSeek = enable != FALSE;
    return S_OK;
}

HRESULT CMKV_Filter::GetKeyFrameSeek(BOOL* pEnable)
{
    if (!pEnable)
        return E_POINTER;
    *pEnable = keyFrameSeek ? TRUE : FALSE;
    return S_OK;
}

HRESULT CMKV_Filter::SetPreroll(BOOL enable)
{
    Trace("Preroll %x", static_cast<unsigned>(enable));
    prerollMark = enable != FALSE;
    return S_OK;
}

HRESULT CMKV_Filter::GetPreroll(BOOL* pEnable)
{
    if (!pEnable)
        return E_POINTER;
    *pEnable = prerollMark ? TRUE : FALSE;
    return S_OK;
}

std::unique_ptr<CVexOutputPin> CMKV_Filter::MakePin(WString pinName, const GStreamInfo& stream)
{
    const auto& mkv = static_cast<const GMkvReadHandler&>(Handler());
    return std::make_unique<CMKV_OutputPin>(this, std::move(pinName), stream, mkv.MinCache(stream.number));
}

CUnknown* CreateMkvFilter(IUnknown* outer, HRESULT* result)
{
    Trace("CreateInstance\n");
    auto* filter = new (std::nothrow) CMKV_Filter(VEX_W("Orvane MKV Source Filter"), outer);
    if (!filter)
        *result = E_OUTOFMEMORY;
    return filter;
}

}  // namespace vex
