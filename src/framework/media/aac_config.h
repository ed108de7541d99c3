// The decoder configuration that goes with AAC in a wave format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vex {

// Writes an AudioSpecificConfig (ISO/IEC 14496-3) and returns its length in bytes: 2, or 5 when SBR is signalled.
// `profile`: 0 Main, 1 LC, 2 SSR, 3 LTP; negated, it signals SBR at twice `sampleRate` (Hz). Bytes past the length
// are left alone.
std::size_t MakeAacConfig(std::span<std::uint8_t, 5> out, int profile, std::uint32_t sampleRate,
                          std::uint32_t channels);

}  // namespace vex
