#include "module/filter_table.h"

#include <algorithm>
#include <array>

#include "formats/aac/aac_filter.h"
#include "formats/aac/aac_info.h"
#include "formats/asf/asf_filter.h"
#include "formats/asf/asf_info.h"
#include "formats/avi/avi_filter.h"
#include "formats/avi/avi_info.h"
#include "formats/flv/flv_filter.h"
#include "formats/flv/flv_info.h"
#include "formats/mkv/mkv_filter.h"
#include "formats/mkv/mkv_info.h"
#include "formats/mp3/mp3_filter.h"
#include "formats/mp3/mp3_info.h"
#include "formats/mp4/mp4_filter.h"
#include "formats/mp4/mp4_info.h"
#include "formats/mpeg/mpeg_filter.h"
#include "formats/mpeg/mpeg_info.h"
#include "formats/ogg/ogg_filter.h"
#include "formats/ogg/ogg_info.h"
#include "framework/create_filter.h"
#include "module/filter_infos.h"

namespace vex {

namespace {

// The filters are never chosen by automatic graph building: a host creates them by class identifier.
constexpr std::uint32_t kMeritDoNotUse = 0x200000;

// What a pin carries is known only after a file is loaded, so the registration names no type.
constexpr std::array<GPinRegistration, 1> kOutputPin{{{
    .name = VEX_W("Output"),
    .rendered = false,
    .output = true,
    .zeroInstances = false,
    .manyInstances = false,
}}};

struct GCreator {
    const GFilterInfo* info;
    GCreateFunction create;
};
constexpr GCreator kCreators[]{
    {&kAviFilter, CreateFilter<CAVI2_Filter>},
    {&kAsf1Filter, CreateFilter<CASF_Filter>},
    {&kAsfFilter, CreateFilter<CAsfEx_Filter>},
    {&kFlvFilter, CreateFilter<CFLV_Filter>},
    {&kMkvFilter, CreateFilter<CMKV_Filter>},
    {&kMp3Filter, CreateFilter<CMP3_Filter>},
    {&kAacFilter, CreateFilter<CAAC_Filter>},
    {&kMp4Filter, CreateFilter<CMP4_Filter>},
    {&kMpeg1Filter, CreateFilter<CMPG_Filter>},
    {&kMpegFilter, CreateFilter<CMPG2_Filter>},
    {&kOgg1Filter, CreateFilter<COGG_Filter>},
    {&kOggFilter, CreateFilter<COGG2_Filter>},
};

CFactoryTemplate Row(const GFilterInfo& info)
{
    static_assert(std::size(kCreators) == kFilterCount);
    const GCreateFunction create = std::ranges::find(kCreators, &info, &GCreator::info)->create;
    return {info.displayName, info.clsid, create, {info.clsid, info.displayName, kMeritDoNotUse, kOutputPin}};
}

std::array<CFactoryTemplate, kFilterCount> MakeTable()
{
    std::array<CFactoryTemplate, kFilterCount> table{};
    std::ranges::transform(FilterInfos(), table.begin(), [](const GFilterInfo* info) { return Row(*info); });
    return table;
}

}  // namespace

std::span<const CFactoryTemplate> FilterTable()
{
    static const std::array<CFactoryTemplate, kFilterCount> table = MakeTable();
    return table;
}

}  // namespace vex
