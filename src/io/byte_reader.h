// A bounds-checked cursor over bytes from a file. The first read past the end latches: that read and all that
// follow give zero, nothing is left, and Ok() is false for good. So a parser reads all its fixed fields and asks
// Ok() once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace vex {

// Does not own the bytes. A copy is an independent cursor, which is the way to look ahead.
class GByteReader {
public:
    GByteReader() = default;
    // `firstBytePos` is the absolute file position, in bytes, of bytes[0].
    explicit GByteReader(std::span<const std::uint8_t> bytes, std::uint64_t firstBytePos = 0)
        : data(bytes), filePosOfData(firstBytePos)
    {
    }

    bool Ok() const { return !failed; }
    std::size_t Left() const { return data.size() - pos; }  // bytes
    std::size_t Pos() const { return pos; }                 // bytes from the first one; stays where an overrun began
    std::uint64_t FilePos() const { return filePosOfData + pos; }

    std::uint8_t U8()
    {
        const std::uint8_t* p = Take(1);
        return p ? *p : std::uint8_t{0};
    }
    std::uint16_t U16LE()
    {
        const std::uint8_t* p = Take(2);
        return p ? static_cast<std::uint16_t>(p[0] | p[1] << 8) : std::uint16_t{0};
    }
    std::uint16_t U16BE()
    {
        const std::uint8_t* p = Take(2);
        return p ? static_cast<std::uint16_t>(p[0] << 8 | p[1]) : std::uint16_t{0};
    }
    std::uint32_t U24BE()
    {
        const std::uint8_t* p = Take(3);
        return p ? Join(p[0], p[1], p[2]) : 0;
    }
    std::uint32_t U32LE()
    {
        const std::uint8_t* p = Take(4);
        return p ? Little32(p) : 0;
    }
    std::uint32_t U32BE()
    {
        const std::uint8_t* p = Take(4);
        return p ? Big32(p) : 0;
    }
    std::uint64_t U64LE()
    {
        const std::uint8_t* p = Take(8);
        return p ? std::uint64_t{Little32(p + 4)} << 32 | Little32(p) : 0;
    }
    std::uint64_t U64BE()
    {
        const std::uint8_t* p = Take(8);
        return p ? std::uint64_t{Big32(p)} << 32 | Big32(p + 4) : 0;
    }
    // An unsigned number of `size` bytes, 0 to 8; more is an overrun.
    std::uint64_t UIntBE(std::size_t size)
    {
        if (size > 8) {
            Fail();
            return 0;
        }
        std::uint64_t value = 0;
        for (const std::uint8_t byte : Bytes(size))
            value = value << 8 | byte;
        return value;
    }

    std::int32_t I32LE() { return static_cast<std::int32_t>(U32LE()); }
    std::int64_t I64LE() { return static_cast<std::int64_t>(U64LE()); }

    // Comparable with FourCC("abcd") of fourcc.h.
    std::uint32_t FourCC() { return U32LE(); }

    void Skip(std::uint64_t count)
    {
        if (count > Left())
            Fail();
        else
            pos += static_cast<std::size_t>(count);
    }

    // The next `count` bytes, which stay where they are; empty after an overrun.
    std::span<const std::uint8_t> Bytes(std::uint64_t count)
    {
        const std::size_t start = pos;
        Skip(count);
        return data.subspan(start, pos - start);
    }

    // A reader over the next `count` bytes, which this one steps over. One that does not fit is empty and failed too.
    GByteReader Window(std::uint64_t count)
    {
        const std::uint64_t start = FilePos();
        GByteReader window(Bytes(count), start);
        if (failed)
            window.Fail();
        return window;
    }

private:
    // What cannot be read is cut off, so that loops over Left() end.
    void Fail()
    {
        failed = true;
        data = data.first(pos);
    }

    const std::uint8_t* Take(std::size_t count)
    {
        if (count > Left()) [[unlikely]] {
            Fail();
            return nullptr;
        }
        const std::uint8_t* p = data.data() + pos;
        pos += count;
        return p;
    }

    static std::uint32_t Join(std::uint8_t high, std::uint8_t middle, std::uint8_t low)
    {
        return std::uint32_t{high} << 16 | std::uint32_t{middle} << 8 | std::uint32_t{low};
    }
    static std::uint32_t Little32(const std::uint8_t* p) { return std::uint32_t{p[3]} << 24 | Join(p[2], p[1], p[0]); }
    static std::uint32_t Big32(const std::uint8_t* p) { return std::uint32_t{p[0]} << 24 | Join(p[1], p[2], p[3]); }

    std::span<const std::uint8_t> data;
    std::size_t pos = 0;
    std::uint64_t filePosOfData = 0;
    bool failed = false;
};

}  // namespace vex
