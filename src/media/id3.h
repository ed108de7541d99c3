// ID3v2 tags, which precede raw audio streams (id3.org, "ID3 tag version 2.4.0").
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kId3HeaderSize = 10;  // bytes

// The size of the tag that `bytes` begin with, header included; nothing when they do not begin with one. The size is a
// claim: it may lead beyond the file.
std::optional<std::uint32_t> Id3TagSize(GBytes bytes);

// What follows the tags at the start of `bytes`, however many; empty when a tag is longer than `bytes`.
GBytes BehindId3(GBytes bytes);

}  // namespace vex
