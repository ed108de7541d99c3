// Writes RIFF files for tests: sizes are filled in when a chunk ends, and any byte can be broken afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "support/bytes.h"

namespace vex::test {

// Overwrites `width` bytes of `file`, the lowest of `value` first.
inline void Put(std::vector<std::uint8_t>& file, std::size_t position, std::uint64_t value, std::size_t width = 4)
{
    for (std::size_t i = 0; i < width; ++i)
        file.at(position + i) = static_cast<std::uint8_t>(value >> 8 * i);
}

class GRiffBuilder {
public:
    // A chunk of what `write` writes. Returns the position of its code; the size stands 4 bytes behind.
    template <class Write>
    std::size_t Chunk(std::string_view code, Write&& write)
    {
        const std::size_t position = Position();
        Text(code);
        U32LE(0);
        write();
        Put(bytes, position + 4, Position() - position - 8);
        Zeros(Position() % 2);
        return position;
    }
    template <class Write>
    std::size_t List(std::string_view type, Write&& write, std::string_view code = "LIST")
    {
        return Chunk(code, [&] {
            Text(type);
            write();
        });
    }

    template <class... Values>
    void U16LE(Values... values)
    {
        (Number(static_cast<std::uint64_t>(values), 2), ...);
    }
    template <class... Values>
    void U32LE(Values... values)
    {
        (Number(static_cast<std::uint64_t>(values), 4), ...);
    }
    void U64LE(std::uint64_t value) { Number(value, 8); }
    void Text(std::string_view text) { bytes.insert(bytes.end(), text.begin(), text.end()); }
    void Zeros(std::size_t count) { bytes.resize(bytes.size() + count); }
    void Append(std::span<const std::uint8_t> more) { bytes.insert(bytes.end(), more.begin(), more.end()); }

    std::size_t Position() const { return bytes.size(); }
    std::vector<std::uint8_t>& Bytes() { return bytes; }

private:
    void Number(std::uint64_t value, std::size_t width)
    {
        Zeros(width);
        Put(bytes, Position() - width, value, width);
    }

    std::vector<std::uint8_t> bytes;
};

}  // namespace vex::test
