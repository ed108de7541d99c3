// The frame header of MPEG audio: layers I to III of MPEG-1 (ISO/IEC 11172-3 clause 2.4.2.3), MPEG-2 (ISO/IEC 13818-3)
// and the lower rates known as MPEG-2.5.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kMpegAudioHeaderSize = 4;  // bytes

// As coded: the reader accepts what a format may refuse. `bitRate` and `sampleRate` are 0 where a code has no meaning.
struct GMpegAudioHeader {
    static constexpr std::uint8_t kMpeg25 = 0;  // values of `version`
    static constexpr std::uint8_t kReserved = 1;
    static constexpr std::uint8_t kMpeg2 = 2;
    static constexpr std::uint8_t kMpeg1 = 3;

    std::uint8_t version = 0;
    std::uint8_t layer = 0;         // 1 to 3; 4 for the reserved code
    bool protectionAbsent = false;  // the bit as coded: false means that a CRC follows the header
    std::uint8_t bitRateIndex = 0;  // 0 free format, 15 forbidden
    std::uint16_t bitRate = 0;      // kbit/s; the reserved version counts as MPEG-2
    std::uint8_t rateIndex = 0;     // 3 is reserved
    std::uint32_t sampleRate = 0;   // Hz
    bool padding = false;
    bool privateBit = false;
    std::uint8_t mode = 0;           // 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel
    std::uint8_t modeExtension = 0;  // 2 bits
    bool copyright = false;
    bool original = false;
    std::uint8_t emphasis = 0;  // 2 is reserved

    bool LowSamplingFrequency() const { return version != kMpeg1; }
    std::uint16_t Channels() const { return mode == 3 ? 1 : 2; }
    // Bytes, header included, as the standards count them; 0 when the bit rate or the rate is unknown.
    std::uint32_t FrameSize() const;
};

// The header that `bytes` begin with. Needs 4 bytes; nothing when the 11 bits of the sync are not all set.
std::optional<GMpegAudioHeader> ReadMpegAudioHeader(GBytes bytes);

// The same tables and the same sum, for a format that has its own idea of versions and indices.

// Hz: MPEG-1, MPEG-2, MPEG-2.5, three of each.
inline constexpr std::array<std::uint32_t, 9> kMpegAudioRates{44100, 48000, 32000, 22050, 24000,
                                                              16000, 11025, 12000, 8000};
// kbit/s; 0 for index 0 and 15 and above, and for layers other than 1 to 3.
std::uint16_t MpegAudioBitRate(bool lowSamplingFrequency, unsigned layer, unsigned index);
// Bytes. Layer I: (12000 * bitRate / sampleRate + padding) * 4; layer II: 144000 * bitRate / sampleRate + padding;
// layer III: the same, with half of 144000 * bitRate when `lowSamplingFrequency`. Integer division; bitRate in kbit/s.
// 0 for a rate of 0 or another layer.
std::uint32_t MpegAudioFrameSize(unsigned layer, bool lowSamplingFrequency, std::uint32_t bitRate,
                                 std::uint32_t sampleRate, bool padding);

}  // namespace vex
