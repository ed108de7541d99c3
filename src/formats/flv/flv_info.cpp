#include "formats/flv/flv_info.h"

#include "formats/flv/flv_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

bool IsFlv(GBytes start) { return HasTextAt(start, 0, "FLV"); }

}  // namespace

const GFilterInfo kFlvFilter{
    .shortName = "flv",
    .displayName = VEX_W("Orvane FLV Source Filter"),
    .clsid = CLSID_VexFlv,
    .container = "FLV",
    .formats = "Flash video",
    .extensions = " flv ",
    .recognises = IsFlv,
};

}  // namespace vex
