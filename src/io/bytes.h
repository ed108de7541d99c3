// Looks at bytes that are in memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vex {

using GBytes = std::span<const std::uint8_t>;

// Whether `text` is at `offset` as a whole.
inline bool HasTextAt(GBytes bytes, std::size_t offset, std::string_view text)
{
    return bytes.size() >= offset && bytes.size() - offset >= text.size() &&
           std::equal(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                      [](char expected, std::uint8_t byte) { return static_cast<std::uint8_t>(expected) == byte; });
}

inline constexpr std::size_t kNotFound = static_cast<std::size_t>(-1);

// The offset of the first occurrence of `pattern` that starts at `from` or later, or kNotFound.
inline std::size_t FindBytes(GBytes bytes, GBytes pattern, std::size_t from = 0)
{
    if (from > bytes.size())
        return kNotFound;
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(from);
    const auto found = std::search(start, bytes.end(), pattern.begin(), pattern.end());
    return found == bytes.end() ? kNotFound : static_cast<std::size_t>(found - bytes.begin());
}

}  // namespace vex
