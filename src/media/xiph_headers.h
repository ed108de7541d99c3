// Identification headers of Theora and Vorbis, and the lacing that joins headers to private data.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "io/byte_reader.h"
#include "io/bytes.h"

namespace vex {

// The Theora identification header (Theora I, 6.2). Fields past the end of the packet are 0.
struct GTheoraIdentification {
    bool valid = false;  // type byte 0x80, "theora" and all 42 bytes
    std::uint8_t versionMajor = 0;
    std::uint8_t versionMinor = 0;
    std::uint8_t versionRevision = 0;
    std::uint16_t frameColumns = 0;  // macroblocks of 16 samples
    std::uint16_t frameRows = 0;
    std::uint32_t pictureWidth = 0;   // 24 bits
    std::uint32_t pictureHeight = 0;  // 24 bits
    std::uint32_t rateNumerator = 0;  // frames a second; hostile: may be 0
    std::uint32_t rateDenominator = 0;
    std::uint32_t nominalBitRate = 0;  // 24 bits, bit/s
    std::uint8_t granuleShift = 0;     // 5 bits: KFGSHIFT
};
GTheoraIdentification ReadTheoraIdentification(GBytes packet);

// The Vorbis identification header (Vorbis I, 4.2.2).
struct GVorbisIdentification {
    std::uint32_t shortBlock = 0;  // samples, a power of two of 1 to 32768 (valid streams: 64 to 8192)
    std::uint32_t longBlock = 0;
};
// Nothing when the packet is not of type 1 with "vorbis", or has fewer than 30 bytes.
std::optional<GVorbisIdentification> ReadVorbisIdentification(GBytes packet);

// One size of Xiph lacing: bytes of 255 and the first one below, added up. Nothing, and a failed reader, when the bytes
// end first.
std::optional<std::uint64_t> ReadXiphSize(GByteReader& reader);

// Packets in Xiph lacing, as Matroska's private data and others carry three headers: a count less one, the sizes of all
// but the last as runs of bytes that end with one below 255, then the packets. Empty when the sizes do not fit.
std::vector<GBytes> SplitXiphPackets(GBytes laced);

}  // namespace vex
