// The compressed movie header of QuickTime ("cmov"): a "moov" box deflated by zlib.
#pragma once

#include <atomic>
#include <cstdint>

#include "formats/mp4/mp4_box.h"
#include "framework/contract/damage_log.h"

namespace vex {

// Bytes of a movie header once it is inflated. Ten hours of video with audio take less than 16 MiB.
inline constexpr std::uint32_t kMaxInflatedHeader = 64u << 20;

// Inflates the header in the first "moov" (else the first "foov") of the tree, if there is one, into a temporary file
// that is gone when this returns, and adds that file's boxes to the root. The box that held it is renamed "skip". A
// header that cannot be inflated is counted as damage and changes nothing.
void ExpandCompressedHeader(GMp4BoxTree& tree, GDamageLog& damage, const std::atomic<bool>& interrupted);

}  // namespace vex
