#include "formats/mkv/mkv_filter.h"

#include "formats/mkv/mkv_info.h"
#include "formats/mkv/mkv_output_pin.h"
#include "formats/mkv/mkv_read_handler.h"
#include "platform/trace.h"

namespace vex {

CMKV_Filter::CMKV_Filter(IUnknown* outer)
    : CVexFilter(kMkvFilter, kMkvRules, outer, std::make_unique<GMkvReadHandler>())
{
}

HRESULT CMKV_Filter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IVexMKV)
        return GetInterface(static_cast<IVexMKV*>(this), ppv);
    return CVexFilter::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CMKV_Filter::SetPreroll(BOOL enable)
{
    Trace("Preroll %x", static_cast<unsigned>(enable));
    return SetOption(prerollMark, enable);
}

std::unique_ptr<CVexOutputPin> CMKV_Filter::MakePin(const GStreamInfo& stream)
{
    const auto& mkv = static_cast<const GMkvReadHandler&>(Handler());
    return std::make_unique<CMKV_OutputPin>(this, stream, mkv.MinCache(stream.number));
}

}  // namespace vex
