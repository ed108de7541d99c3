#include "formats/asf/asf_info.h"

#include <string_view>

#include "formats/asf/asf_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

// The GUID of the Header Object.
bool IsAsf(GBytes start)
{
    static constexpr std::string_view kHeaderObject("\x30\x26\xB2\x75\x8E\x66\xCF\x11\xA6\xD9\x00\xAA\x00\x62\xCE\x6C",
                                                    16);
    return HasTextAt(start, 0, kHeaderObject);
}

}  // namespace

const GFilterInfo kAsf1Filter{
    .shortName = "asf1",
    .displayName = VEX_W("Orvane ASF Source Filter"),
    .clsid = CLSID_VexAsf,
    .container = "",
    .formats = "ASF (older filter)",
    .extensions = "",
    .recognises = nullptr,
};

const GFilterInfo kAsfFilter{
    .shortName = "asf",
    .displayName = VEX_W("Orvane AsfEx Source Filter"),
    .clsid = CLSID_VexAsfEx,
    .container = "ASF",
    .formats = "ASF, Windows Media",
    .extensions = " asf wmv wma dvr-ms ",
    .recognises = IsAsf,
};

}  // namespace vex
