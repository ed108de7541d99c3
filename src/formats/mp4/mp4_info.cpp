#include "formats/mp4/mp4_info.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "formats/mp4/mp4_interface.h"
#include "formats/mp4/mp4_url.h"
#include "io/bytes.h"

namespace vex {

namespace {

// The four letters at offset 4 name the first box.
bool IsMp4(GBytes start)
{
    static constexpr std::string_view kFirstBoxes[] = {"ftyp", "moov", "foov", "mdat", "moof", "styp",
                                                       "sidx", "free", "skip", "udta", "wide", "pnot",
                                                       "M1.0", "M1.2", "M1.3", "M1.5", "M1.6"};
    return std::any_of(std::begin(kFirstBoxes), std::end(kFirstBoxes),
                       [&](std::string_view box) { return HasTextAt(start, 4, box); });
}

}  // namespace

const GFilterInfo kMp4Filter{
    .shortName = "mp4",
    .displayName = VEX_W("Orvane MP4 Source Filter"),
    .clsid = CLSID_VexMp4,
    .container = "MP4",
    .formats = "MP4, QuickTime, 3GP",
    .extensions = " mp4 m4v m4a m4b m4r f4v mov qt 3gp 3gpp 3g2 ",
    .recognises = IsMp4,
    .takesUrl = IsUrl,
};

}  // namespace vex
