#include "formats/mpeg/mpeg_info.h"

#include <string_view>

#include "formats/mpeg/mpeg_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

// Sync bytes at a packet's distance from each other: five in a row, or as many as a shorter file has room for.
bool IsTransportStream(GBytes start)
{
    constexpr std::size_t kPackets = 5;
    constexpr struct {
        std::size_t packetBytes;
        std::size_t offset;
    } kLayouts[] = {{188, 0}, {192, 4}, {204, 0}};
    for (const auto& layout : kLayouts) {
        std::size_t seen = 0;
        bool all = true;
        for (std::size_t at = layout.offset; seen < kPackets && at < start.size(); at += layout.packetBytes, ++seen)
            all = all && start[at] == 0x47;
        if (all && seen >= 2)
            return true;
    }
    return false;
}

bool IsProgramStream(GBytes start) { return HasTextAt(start, 0, std::string_view("\0\0\1\xBA", 4)); }

bool IsMpeg(GBytes start) { return IsProgramStream(start) || IsTransportStream(start); }

}  // namespace

const GFilterInfo kMpeg1Filter{
    .shortName = "mpeg1",
    .displayName = VEX_W("Orvane MPEG Source Filter"),
    .clsid = CLSID_VexMpeg,
    .container = "",
    .formats = "MPEG program and transport streams (older filter)",
    .extensions = "",
    .recognises = nullptr,
};

const GFilterInfo kMpegFilter{
    .shortName = "mpeg",
    .displayName = VEX_W("Orvane MPEG Source Filter2"),
    .clsid = CLSID_VexMpeg2,
    .container = "MPEG",
    .formats = "MPEG program and transport streams",
    .extensions = " mpg mpeg m2p vob evo mod ts m2ts mts m2t tp trp ",
    .recognises = IsMpeg,
};

}  // namespace vex
