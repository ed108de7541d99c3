// The payloads of the boxes that describe a movie and its tracks (ISO/IEC 14496-12 clause 8; QuickTime File Format).
// All numbers are big-endian; what does not lie in the payload is 0.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "io/bytes.h"

namespace vex {

// "mvhd"; also the times of "mdhd".
struct Mp4Times {
    std::uint64_t timescale = 0;  // units a second; hostile: may be 0
    std::uint64_t duration = 0;   // units
};
Mp4Times ReadMovieHeader(GBytes mvhd);

struct Mp4MediaHeader {
    Mp4Times times;
    std::string language;  // three letters, or what else the 15 bits give
};
Mp4MediaHeader ReadMediaHeader(GBytes mdhd);

struct Mp4TrackHeader {
    bool enabled = false;
    std::uint32_t trackId = 0;
    std::int32_t width = 0;  // pixels, 0 to 65535
    std::int32_t height = 0;
};
Mp4TrackHeader ReadTrackHeader(GBytes tkhd);

// "vide", "soun" and others.
std::uint32_t ReadHandlerType(GBytes hdlr);

struct Mp4SoundEntry {
    std::uint16_t version = 0;  // QuickTime; 1 has the four fields at the end
    std::uint16_t channels = 0;
    std::uint16_t bits = 0;
    std::uint16_t sampleRate = 0;  // Hz, the integer part
    std::uint32_t samplesPerPacket = 0;
    std::uint32_t bytesPerPacket = 0;  // of one channel
    std::uint32_t bytesPerFrame = 0;   // of all channels, in samplesPerPacket samples
    std::uint32_t bytesPerSample = 0;
};
Mp4SoundEntry ReadSoundEntry(GBytes entry);

struct Mp4VideoEntry {
    std::uint16_t version = 0;
    std::uint16_t width = 0;  // pixels
    std::uint16_t height = 0;
    std::uint16_t depth = 0;  // bits
};
Mp4VideoEntry ReadVideoEntry(GBytes entry);

// What some codecs take for their configuration: everything from the version on, child boxes included.
GBytes EntryConfiguration(GBytes entry);

// The decoder configuration of an "esds" box (ISO/IEC 14496-1, 7.2.6).
struct Mp4DecoderConfig {
    std::uint8_t objectType = 0;
    std::uint32_t maxBitRate = 0;  // bit/s
    std::uint32_t avgBitRate = 0;  // bit/s
    GBytes specific;               // decoder-specific information; lies in the payload
};
// Nothing when the descriptor has none.
std::optional<Mp4DecoderConfig> ReadDecoderConfig(GBytes esds);

// The bit rate code of a "dac3" box, 0 to 31.
unsigned ReadAc3BitRateCode(GBytes dac3);

// "dqcp", "d723" and "devc": vendor, decoder version, one byte, two zeros.
std::vector<std::uint8_t> ReadSpeechConfig(GBytes box);

}  // namespace vex
