#include "formats/aac/aac_info.h"

#include "formats/aac/aac_interface.h"
#include "io/bytes.h"
#include "media/id3.h"

namespace vex {

namespace {

// ADTS (ISO/IEC 13818-7): twelve sync bits and layer 00. With a defined sampling frequency.
bool IsAac(GBytes start)
{
    const GBytes audio = BehindId3(start);
    return audio.size() >= 4 && audio[0] == 0xFF && (audio[1] & 0xF6) == 0xF0 && (audio[2] >> 2 & 15) < 13;
}

}  // namespace

const GFilterInfo kAacFilter{
    .shortName = "aac",
    .displayName = VEX_W("Orvane AAC Source Filter"),
    .clsid = CLSID_VexAac,
    .container = "AAC",
    .formats = "AAC in ADTS frames",
    .extensions = " aac adts ",
    .recognises = IsAac,
};

}  // namespace vex
