// The decoder configuration that goes with AAC in a wave format (AudioSpecificConfig, ISO/IEC 14496-3 clause 1.6.2).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "io/bytes.h"

namespace vex {

// Writes an AudioSpecificConfig (ISO/IEC 14496-3) and returns its length in bytes: 2, or 5 when SBR is signalled.
// `profile`: 0 Main, 1 LC, 2 SSR, 3 LTP; negated, it signals SBR at twice `sampleRate` (Hz). Bytes past the length
// are left alone.
std::size_t MakeAacConfig(std::span<std::uint8_t, 5> out, int profile, std::uint32_t sampleRate,
                          std::uint32_t channels);

// The rate in Hz of a sampling frequency index; 0 for 13 and above, which have none.
std::uint32_t AacSampleRate(unsigned index);

struct GAacConfig {
    // Of the core, when SBR or PS wrap one. 1 Main, 2 LC, 3 SSR, 4 LTP ...
    std::uint8_t objectType = 0;
    std::uint8_t rateIndex = 0;             // of the core; 15: the rate is explicit
    std::uint8_t channelConfiguration = 0;  // 4 bits; 0: described by the codec's own element
};
// Nothing when the configuration ends before its channel configuration (or before the core's type).
std::optional<GAacConfig> ReadAacConfig(GBytes config);

}  // namespace vex
