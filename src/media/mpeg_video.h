// Sequence headers of MPEG-1 and MPEG-2 video (ISO/IEC 11172-2 clause 2.4.2.3, ISO/IEC 13818-2 clause 6.2.2).
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"
#include "media/ratio.h"

namespace vex {

inline constexpr std::uint8_t kSequenceHeaderCode = 0xB3;  // the last byte of a start code
inline constexpr std::uint8_t kExtensionCode = 0xB5;
inline constexpr std::size_t kMpegSequenceHeaderSize = 12;  // bytes with the start code, without matrices

// sequence_extension(); what is cut off is 0. `profile` and `level` as coded (8.2); VideoInfoProfile and VideoInfoLevel
// translate them.
struct GMpegSequenceExtension {
    std::uint8_t profile = 0;           // 3 bits
    std::uint8_t level = 0;             // 4 bits
    std::uint8_t widthHighBits = 0;     // bits 12 and 13 of the width
    std::uint8_t heightHighBits = 0;    // bits 12 and 13 of the height
    std::uint16_t bitRateHighBits = 0;  // bits 18 to 29 of the bit rate
    std::uint8_t rateNumerator = 0;     // frame_rate_extension_n, 2 bits: the rate is multiplied by this plus 1
    std::uint8_t rateDenominator = 0;   // frame_rate_extension_d, 5 bits: the rate is divided by this plus 1
};

// The first sequence extension in `bytes`, with the six bytes from its start code to its level; wherever it is.
std::optional<GMpegSequenceExtension> FindMpegSequenceExtension(GBytes bytes);

// Sizes, bit rate and frame rate are those of the header alone; the extension's bits are added by whoever wants them.
struct GMpegSequence {
    std::uint16_t width = 0;         // 12 bits
    std::uint16_t height = 0;        // 12 bits
    std::uint8_t aspectCode = 0;     // MPEG-1: pel aspect ratio; MPEG-2: aspect_ratio_information
    std::uint8_t frameRateCode = 0;  // 0 to 15; 1 to 8 have a meaning
    std::uint32_t bitRate = 0;       // 18 bits, units of 400 bit/s; 0x3FFFF in MPEG-1: variable

    // Each from its start code to the next start code or the end of the bytes; empty when missing. The extensions are
    // the first two that follow in the buffer, of whatever kind.
    GBytes header;
    GBytes firstExtension;
    GBytes secondExtension;
    std::optional<GMpegSequenceExtension> extension;  // out of these two; none: MPEG-1
};

// The sequence header that the first start code in `bytes` must begin; nothing when it is another one, or when the
// header ends within its fixed fields. Needs 12 bytes from the start code.
std::optional<GMpegSequence> ReadMpegSequence(GBytes bytes);

// The time of one frame, in ticks of 27 MHz, of frame rate codes 1 to 8; 0 for all others.
std::uint32_t MpegFramePeriod(unsigned frameRateCode);
// Height by width of one sample of an MPEG-1 aspect code, 1 to 14 (11172-2, 2.4.3.2); 0 for all others.
double Mpeg1PelAspect(unsigned aspectCode);

// The display aspect of an MPEG-2 aspect code, 2 to 4 (13818-2, table 6-3); 1:1 for all others, of which code 1 stands
// for square samples.
GRatio Mpeg2DisplayAspect(unsigned aspectCode);

// dwProfile and dwLevel of an MPEG2VIDEOINFO (AM_MPEG2Profile, AM_MPEG2Level) for the codes of a sequence extension; 0
// for codes without a name.
std::uint32_t VideoInfoProfile(unsigned profile);
std::uint32_t VideoInfoLevel(unsigned level);

}  // namespace vex
