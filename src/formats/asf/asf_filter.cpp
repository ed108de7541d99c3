#include "formats/asf/asf_filter.h"

#include "formats/asf/asf_info.h"
#include "formats/asf/asf_read_handler.h"

namespace vex {

CAsfEx_Filter::CAsfEx_Filter(IUnknown* outer)
    : CVexFilter(kAsfFilter, kAsfRules, outer, std::make_unique<GAsfExReadHandler>())
{
}

CASF_Filter::CASF_Filter(IUnknown* outer)
    : CVexFilter(kAsf1Filter, kAsfRules, outer, std::make_unique<GAsfExReadHandler>())
{
}

}  // namespace vex
