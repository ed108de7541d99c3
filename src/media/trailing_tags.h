// Tags at the end of raw audio files: ID3v1 and APE.
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kId3v1Size = 128;     // bytes
inline constexpr std::size_t kApeFooterSize = 32;  // bytes
// As many bytes from the end of a file hold all that these functions look at.
inline constexpr std::size_t kTrailingTagsLook = kId3v1Size + kApeFooterSize;

// Whether `end`, the end of a file, is an ID3v1 tag.
bool EndsWithId3v1(GBytes end);
// The size of the APE tag whose footer `end` ends with, footer and header included; nothing without one. The size is a
// claim: it may exceed the file.
std::optional<std::uint64_t> ApeTagSize(GBytes end);

// The bytes that the tags at the end of a file take: an APE tag, an ID3v1 tag, or an APE tag before an ID3v1 tag. `end`
// holds the last kTrailingTagsLook bytes of the file, or all of a shorter one. The size is a claim.
std::uint64_t TrailingTagsSize(GBytes end);

}  // namespace vex
