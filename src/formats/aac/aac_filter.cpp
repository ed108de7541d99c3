#include "formats/aac/aac_filter.h"

#include "formats/aac/aac_info.h"
#include "formats/aac/aac_read_handler.h"

namespace vex {

CAAC_Filter::CAAC_Filter(IUnknown* outer)
    : CVexFilter(kAacFilter, kAacRules, outer, std::make_unique<GAacReadHandler>())
{
}

}  // namespace vex
