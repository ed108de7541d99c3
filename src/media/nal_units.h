// Start codes and NAL units: the byte stream of MPEG-1/2/4 video, VC-1 and H.264, and length-prefixed units.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "io/bytes.h"

namespace vex {

// The offset of the first 00 00 01 that starts at `from` or later and has its code byte behind it, or kNotFound. The
// code byte is bytes[offset + 3].
std::size_t FindStartCode(GBytes bytes, std::size_t from = 0);
// From the start code at `start` to the next one, or to the end of the bytes.
GBytes StartCodeSection(GBytes bytes, std::size_t start);

// Walks the NAL units of a byte stream (ITU-T H.264, annex B): GNalUnits units(bytes); while (auto unit =
// units.Next()). Bytes before the first start code are passed over.
class GNalUnits {
public:
    explicit GNalUnits(GBytes byteStream) : rest(byteStream) {}

    // The next unit without its start code and without the zeros that follow it; never empty. Nothing at the end. The
    // last unit reaches to the end of the bytes, where it may be cut.
    std::optional<GBytes> Next();

private:
    GBytes rest;
};

// nal_unit_type and nal_ref_idc of a unit's first byte (7.4.1). The unit must not be empty.
enum class GNalType : std::uint8_t { Slice = 1, IdrSlice = 5, Sei = 6, SequenceSet = 7, PictureSet = 8, Delimiter = 9 };
constexpr GNalType NalType(GBytes unit) { return static_cast<GNalType>(unit[0] & 0x1F); }
constexpr unsigned NalReference(GBytes unit) { return unit[0] >> 5 & 3u; }

// The bytes without emulation prevention: 00 00 03 becomes 00 00. Also for VC-1 (SMPTE 421M, annex E).
std::vector<std::uint8_t> WithoutEmulationPrevention(GBytes bytes);

// Appends a unit behind its length in `lengthSize` bytes (1 to 4), most significant first (ISO/IEC 14496-15). False,
// with nothing appended, when the length does not fit.
bool AppendLengthPrefixed(std::vector<std::uint8_t>& out, GBytes unit, unsigned lengthSize);

}  // namespace vex
