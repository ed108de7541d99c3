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
    bool startCode = false;  // the 17 bits 0...01
    GPictureSize size;       // codes 0 and 1: explicit, of 8 and 16 bits; 2 to 6: fixed; 7 is reserved: 0 x 0
    bool whole = false;      // everything up to the picture type was there
};
GSorensonHeader ReadSorensonHeader(GBytes frame);

// The header of a VP6 frame, without the byte (or bytes) that FLV puts in front of it. Only a key frame has sizes.
struct GVp6Header {
    bool keyFrame = false;
    std::uint8_t codedRows = 0;  // macroblocks of 16 samples
    std::uint8_t codedColumns = 0;

    GPictureSize CodedSize() const { return {codedColumns * 16u, codedRows * 16u}; }
};
// Nothing when the header, with the sizes of a key frame, is cut off.
std::optional<GVp6Header> ReadVp6Header(GBytes frame);

}  // namespace vex
