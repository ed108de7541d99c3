// How far a file is believed. What lies beyond is refused with GErrorKind::Limit, or cut, never attempted.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vex {

// Containers within containers. Honest files stay below 12; every level costs stack, of which a host's thread may
// have little.
inline constexpr int kMaxNestingDepth = 32;

// Bytes of one packet. An uncompressed 8K frame of 32-bit pixels is 133 MB; a 32-bit process can hold a few of
// those and no more.
inline constexpr std::uint32_t kMaxPacketSize = 256u << 20;

// Bytes of one stream's codec set-up data, which is copied into every media type offered for it. Three Vorbis
// headers with a big comment are the largest seen, well below 1 MiB.
inline constexpr std::uint32_t kMaxCodecDataSize = 16u << 20;

}  // namespace vex
