#include "formats/mpeg/mpeg_info.h"

#include <string_view>

#include "formats/mpeg/mpeg_interface.h"
#include "io/bytes.h"

namespace vex {

namespace {

constexpr std::size_t kPackets = 5;  // that have to follow each other
constexpr struct {
    std::size_t packetBytes;
    std::size_t offset;
} kLayouts[] = {{188, 0}, {192, 4}};

// How many sync bytes there are at a packet's distance from each other, up to five; 0 when one is missing.
std::size_t SyncsFrom(GBytes start, std::size_t first, std::size_t packetBytes)
{
    std::size_t seen = 0;
    for (std::size_t at = first; seen < kPackets && at < start.size(); at += packetBytes, ++seen) {
        if (start[at] != 0x47)
            return 0;
    }
    return seen;
}

// At the start of a file as many as a shorter file has room for will do; behind a part of a packet or garbage all five.
bool IsTransportStream(GBytes start)
{
    constexpr std::size_t kGarbage = 384;  // bytes
    for (const auto& layout : kLayouts) {
        if (SyncsFrom(start, layout.offset, layout.packetBytes) >= 2)
            return true;
        for (std::size_t first = 0; first < kGarbage; ++first)
            if (SyncsFrom(start, first, layout.packetBytes) == kPackets)
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
