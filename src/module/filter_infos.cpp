#include "module/filter_infos.h"

#include <array>

#include "formats/aac/aac_info.h"
#include "formats/asf/asf_info.h"
#include "formats/avi/avi_info.h"
#include "formats/flv/flv_info.h"
#include "formats/mkv/mkv_info.h"
#include "formats/mp3/mp3_info.h"
#include "formats/mp4/mp4_info.h"
#include "formats/mpeg/mpeg_info.h"
#include "formats/ogg/ogg_info.h"

namespace vex {

namespace {

constexpr auto kFilters = std::to_array<const GFilterInfo*>({
    &kAviFilter, &kOgg1Filter, &kMpeg1Filter, &kMkvFilter, &kMp4Filter, &kAsf1Filter,
    &kFlvFilter, &kAsfFilter,  &kOggFilter,   &kMp3Filter, &kAacFilter, &kMpegFilter,
});
static_assert(kFilters.size() == kFilterCount);

}  // namespace

std::span<const GFilterInfo* const, kFilterCount> FilterInfos() { return kFilters; }

}  // namespace vex
