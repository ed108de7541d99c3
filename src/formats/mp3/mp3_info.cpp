#include "formats/mp3/mp3_info.h"

#include "formats/mp3/mp3_interface.h"
#include "io/bytes.h"
#include "media/id3.h"

namespace vex {

namespace {

// MPEG audio (ISO/IEC 11172-3): eleven sync bits, a version that exists, layer III, defined bit rate and frequency. A
// tag longer than the probe hides what follows it; far more often than not that is layer III.
bool IsMp3(GBytes start)
{
    const GBytes audio = BehindId3(start);
    if (audio.empty())
        return HasTextAt(start, 0, "ID3");
    return audio.size() >= 4 && audio[0] == 0xFF && (audio[1] & 0xE6) == 0xE2 && (audio[1] & 0x18) != 0x08 &&
           (audio[2] & 0xF0) != 0xF0 && (audio[2] & 0xF0) != 0 && (audio[2] & 0x0C) != 0x0C;
}

}  // namespace

const GFilterInfo kMp3Filter{
    .shortName = "mp3",
    .displayName = VEX_W("Orvane MP3 Source Filter"),
    .clsid = CLSID_VexMp3,
    .container = "MP3",
    .formats = "MPEG audio layer III",
    .extensions = " mp3 ",
    .recognises = IsMp3,
};

}  // namespace vex
