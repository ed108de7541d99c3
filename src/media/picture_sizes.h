// The size of the picture, out of the first bytes of a frame or a decoder configuration.
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

struct GPictureSize {
    std::uint32_t width = 0;  // samples
    std::uint32_t height = 0;

    bool operator==(const GPictureSize&) const = default;
};

// MPEG-4 Visual (ISO/IEC 14496-2): the size at fixed bit positions of a configuration of exactly 34 bytes that starts
// with a visual object sequence (00 00 01 B0); nothing for others. The least significant bit of the width counts 2.
std::optional<GPictureSize> Mpeg4ConfigurationSize(GBytes configuration);

// The picture header of Sorenson H.263, as FLV carries it. Fields past the end are 0.
struct GSorensonHeader {
    bool startCode = false;    // the 17 bits 0...01
    std::uint8_t version = 0;  // 5 bits; 0 and 1 are in use
    std::uint8_t temporalReference = 0;
    std::uint8_t sizeCode = 0;     // 3 bits: 0 and 1 explicit sizes of 8 and 16 bits, 2 to 6 fixed sizes, 7 reserved
    GPictureSize size;             // 0 x 0 for code 7
    std::uint8_t pictureType = 0;  // 2 bits: 0 intra, 1 inter, 2 disposable inter
    bool whole = false;            // everything up to the picture type was there
};
GSorensonHeader ReadSorensonHeader(GBytes frame);

// The header of a VP6 frame, without the byte (or bytes) that FLV puts in front of it. Only a key frame has sizes.
struct GVp6Header {
    bool keyFrame = false;
    std::uint8_t quantiser = 0;  // 6 bits
    bool separatedCoefficients = false;
    std::uint8_t version = 0;  // 5 bits; 6 to 8 are in use
    std::uint8_t profile = 0;  // 2 bits; 0 simple, 3 advanced
    bool interlaced = false;
    std::uint8_t codedRows = 0;  // macroblocks of 16 samples
    std::uint8_t codedColumns = 0;
    std::uint8_t displayedRows = 0;
    std::uint8_t displayedColumns = 0;

    GPictureSize CodedSize() const { return {codedColumns * 16u, codedRows * 16u}; }
};
// Nothing when the header, with the sizes of a key frame, is cut off.
std::optional<GVp6Header> ReadVp6Header(GBytes frame);

}  // namespace vex
