#include "media/nal_units.h"

#include <limits>

namespace vex {

namespace {

// The first 00 00 01 at or behind `from`, even at the very end of the bytes.
std::size_t FindPrefix(GBytes bytes, std::size_t from)
{
    if (bytes.size() < 3)
        return kNotFound;
    const std::size_t last = bytes.size() - 3;
    for (std::size_t i = from; i <= last;) {
        const std::uint8_t third = bytes[i + 2];
        if (third == 0)
            ++i;
        else if (third == 1 && bytes[i] == 0 && bytes[i + 1] == 0)
            return i;
        else
            i += 3;  // no prefix has this byte as one of its zeros
    }
    return kNotFound;
}

}  // namespace

std::size_t FindStartCode(GBytes bytes, std::size_t from)
{
    const std::size_t found = FindPrefix(bytes, from);
    return found != kNotFound && bytes.size() - found > 3 ? found : kNotFound;
}

GBytes StartCodeSection(GBytes bytes, std::size_t start)
{
    const std::size_t next = FindStartCode(bytes, start + 3);
    return bytes.subspan(start, next == kNotFound ? std::dynamic_extent : next - start);
}

std::optional<GBytes> GNalUnits::Next()
{
    for (;;) {
        const std::size_t prefix = FindPrefix(rest, 0);
        if (prefix == kNotFound)
            return std::nullopt;
        rest = rest.subspan(prefix + 3);
        const std::size_t next = FindPrefix(rest, 0);
        GBytes unit = rest.first(next == kNotFound ? rest.size() : next);
        rest = rest.subspan(unit.size());
        while (!unit.empty() && unit.back() == 0)
            unit = unit.first(unit.size() - 1);
        if (!unit.empty())
            return unit;
    }
}

std::vector<std::uint8_t> WithoutEmulationPrevention(GBytes bytes)
{
    std::vector<std::uint8_t> result;
    result.reserve(bytes.size());
    std::size_t zeros = 0;
    for (const std::uint8_t byte : bytes) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        result.push_back(byte);
    }
    return result;
}

bool AppendLengthPrefixed(std::vector<std::uint8_t>& out, GBytes unit, unsigned lengthSize)
{
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    if (lengthSize < 1 || lengthSize > 4 || unit.size() > kMost >> (32 - 8 * lengthSize))
        return false;
    for (unsigned i = lengthSize; i-- > 0;)
        out.push_back(static_cast<std::uint8_t>(unit.size() >> (8 * i) & 0xFF));
    out.insert(out.end(), unit.begin(), unit.end());
    return true;
}

}  // namespace vex
