#include "formats/ogg/ogg_info.h"

#include "formats/ogg/ogg_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

bool IsOgg(GBytes start) { return HasTextAt(start, 0, "OggS"); }

}  // namespace

const GFilterInfo kOgg1Filter{
    .shortName = "ogg1",
    .displayName = VEX_W("Orvane OGG Source Filter"),
    .clsid = CLSID_VexOgg,
    .container = "",
    .formats = "Ogg (older filter)",
    .extensions = "",
    .recognises = nullptr,
};

const GFilterInfo kOggFilter{
    .shortName = "ogg",
    .displayName = VEX_W("Orvane OGG Source Filter2"),
    .clsid = CLSID_VexOgg2,
    .container = "Ogg",
    .formats = "Ogg with Vorbis, Theora and OGM streams",
    .extensions = " ogg ogv oga ogm ogx spx ",
    .recognises = IsOgg,
};

}  // namespace vex
