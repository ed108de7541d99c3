#include "module/filter_table.h"

#include <array>

#include "formats/avi/avi_filter.h"
#include "formats/mkv/mkv_filter.h"
#include "module/class_ids.h"

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

constexpr CFactoryTemplate Row(const WCHAR* name, const CLSID& clsid, GCreateFunction create)
{
    return {name, clsid, create, {clsid, name, kMeritDoNotUse, kOutputPin}};
}

constexpr std::array<CFactoryTemplate, 12> kFilters{{
    Row(VEX_W("Orvane AVI Source Filter"), CLSID_VexAvi, CreateAviFilter),
    Row(VEX_W("Orvane OGG Source Filter"), CLSID_VexOgg, RefuseFilter),
    Row(VEX_W("Orvane MPEG Source Filter"), CLSID_VexMpeg, RefuseFilter),
    Row(VEX_W("Orvane MKV Source Filter"), CLSID_VexMkv, CreateMkvFilter),
    Row(VEX_W("Orvane MP4 Source Filter"), CLSID_VexMp4, RefuseFilter),
    Row(VEX_W("Orvane ASF Source Filter"), CLSID_VexAsf, RefuseFilter),
    Row(VEX_W("Orvane FLV Source Filter"), CLSID_VexFlv, RefuseFilter),
    Row(VEX_W("Orvane AsfEx Source Filter"), CLSID_VexAsfEx, RefuseFilter),
    Row(VEX_W("Orvane OGG Source Filter2"), CLSID_VexOgg2, RefuseFilter),
    Row(VEX_W("Orvane MP3 Source Filter"), CLSID_VexMp3, RefuseFilter),
    Row(VEX_W("Orvane AAC Source Filter"), CLSID_VexAac, RefuseFilter),
    Row(VEX_W("Orvane MPEG Source Filter2"), CLSID_VexMpeg2, RefuseFilter),
}};

}  // namespace

std::span<const CFactoryTemplate> FilterTable() { return kFilters; }

CUnknown* RefuseFilter(IUnknown*, HRESULT* result)
{
    *result = E_NOTIMPL;
    return nullptr;
}

}  // namespace vex
