#include "formats/mpeg/mpeg_filter.h"

#include "formats/mpeg/mpeg_info.h"
#include "formats/mpeg/mpeg_read_handler.h"

namespace vex {

CMPG2_Filter::CMPG2_Filter(IUnknown* outer)
    : CVexFilter(kMpegFilter, kMpegRules, outer, std::make_unique<GMpeg2ReadHandler>())
{
}

CMPG_Filter::CMPG_Filter(IUnknown* outer)
    : CVexFilter(kMpeg1Filter, kMpegRules, outer,
                 std::make_unique<GMpeg2ReadHandler>(std::make_unique<GCacheFile>(), GMpegPinNames::First))
{
}

}  // namespace vex
