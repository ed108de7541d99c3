#include "formats/mp3/mp3_filter.h"

#include "formats/mp3/mp3_info.h"
#include "formats/mp3/mp3_read_handler.h"

namespace vex {

CMP3_Filter::CMP3_Filter(IUnknown* outer)
    : CVexFilter(kMp3Filter, kMp3Rules, outer, std::make_unique<GMp3ReadHandler>())
{
}

}  // namespace vex
