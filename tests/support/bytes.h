// Bytes of test files: joined, repeated, cut, and made of text and numbers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace vex::test {

using GTestBytes = std::vector<std::uint8_t>;

inline void Append(GTestBytes& all, const GTestBytes& more) { all.insert(all.end(), more.begin(), more.end()); }
inline GTestBytes Join(std::initializer_list<GTestBytes> parts)
{
    GTestBytes all;
    for (const GTestBytes& part : parts)
        Append(all, part);
    return all;
}
inline GTestBytes Repeat(const GTestBytes& part, std::size_t count)
{
    GTestBytes all;
    all.reserve(part.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        Append(all, part);
    return all;
}
inline GTestBytes First(GTestBytes bytes, std::size_t count)
{
    bytes.resize(count);
    return bytes;
}
// With zeros up to `size`.
inline GTestBytes Text(std::string_view text, std::size_t size = 0)
{
    GTestBytes bytes(text.begin(), text.end());
    bytes.resize(std::max(size, bytes.size()));
    return bytes;
}
// `width` bytes, the most significant first.
inline GTestBytes BigEndian(std::uint64_t value, unsigned width = 4)
{
    GTestBytes bytes(width);
    for (unsigned i = 0; i < width; ++i, value >>= 8)
        bytes[width - 1 - i] = static_cast<std::uint8_t>(value);
    return bytes;
}

}  // namespace vex::test
