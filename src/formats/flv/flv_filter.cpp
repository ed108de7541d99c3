#include "formats/flv/flv_filter.h"

#include "formats/flv/flv_info.h"
#include "formats/flv/flv_read_handler.h"

namespace vex {

CFLV_Filter::CFLV_Filter(IUnknown* outer)
    : CVexFilter(kFlvFilter, kFlvRules, outer, std::make_unique<GFlvReadHandler>())
{
}

}  // namespace vex
