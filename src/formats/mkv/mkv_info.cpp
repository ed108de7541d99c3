#include "formats/mkv/mkv_info.h"

#include "formats/mkv/mkv_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

bool IsMatroska(GBytes start) { return HasTextAt(start, 0, "\x1A\x45\xDF\xA3"); }

}  // namespace

const GFilterInfo kMkvFilter{
    .shortName = "mkv",
    .displayName = VEX_W("Orvane MKV Source Filter"),
    .clsid = CLSID_VexMkv,
    .container = "Matroska",
    .formats = "Matroska, WebM",
    .extensions = " mkv mka mks mk3d webm ",
    .recognises = IsMatroska,
};

}  // namespace vex
