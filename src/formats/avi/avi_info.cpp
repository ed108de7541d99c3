#include "formats/avi/avi_info.h"

#include "formats/avi/avi_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

bool IsAvi(GBytes start)
{
    return HasTextAt(start, 0, "RIFF") && (HasTextAt(start, 8, "AVI ") || HasTextAt(start, 8, "AVIX"));
}

}  // namespace

const GFilterInfo kAviFilter{
    .shortName = "avi",
    .displayName = VEX_W("Orvane AVI Source Filter"),
    .clsid = CLSID_VexAvi,
    .container = "AVI",
    .formats = "AVI with OpenDML extensions",
    .extensions = " avi divx ",
    .recognises = IsAvi,
};

}  // namespace vex
