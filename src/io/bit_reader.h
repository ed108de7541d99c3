// A bounds-checked cursor over bits, most significant first. The first read past the end latches: that read and all
// that follow give zero, nothing is left, and Ok() is false for good.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vex {

// Does not own the bytes. A copy is an independent cursor, which is the way to look ahead.
class GBitReader {
public:
    GBitReader() = default;
    explicit GBitReader(std::span<const std::uint8_t> bytes) : data(bytes), end(std::uint64_t{bytes.size()} * 8) {}

    bool Ok() const { return !failed; }
    std::uint64_t Left() const { return end - pos; }  // bits
    std::uint64_t Pos() const { return pos; }         // bits from the first one; stays where an overrun began

    // The next `count` bits as an unsigned number; `count` is 0 to 32.
    std::uint32_t Bits(unsigned count)
    {
        assert(count <= 32);
        if (count > 32 || count > Left()) [[unlikely]] {
            Fail();
            return 0;
        }
        std::uint64_t window = 0;  // at most five bytes hold 32 bits at any alignment
        const unsigned offset = static_cast<unsigned>(pos % 8);
        const unsigned bytes = (offset + count + 7) / 8;
        const std::uint8_t* p = data.data() + static_cast<std::size_t>(pos / 8);
        for (unsigned i = 0; i < bytes; ++i)
            window = window << 8 | p[i];
        pos += count;
        window >>= bytes * 8 - offset - count;
        return static_cast<std::uint32_t>(window & ((std::uint64_t{1} << count) - 1));
    }

    bool Flag() { return Bits(1) != 0; }

    void Skip(std::uint64_t count)
    {
        if (count > Left())
            Fail();
        else
            pos += count;
    }

    // Exp-Golomb codes under the names ITU-T H.264 gives them (9.1). A code whose number needs more than 32 bits
    // counts as an overrun, so the search for its first 1 never looks at more than 33 bits.
    std::uint32_t ue()
    {
        unsigned zeros = 0;
        while (!Flag()) {
            if (failed || ++zeros > 32) {
                Fail();
                return 0;
            }
        }
        const std::uint32_t suffix = Bits(zeros);
        if (failed)
            return 0;
        if (zeros == 32) {
            if (suffix != 0)
                Fail();
            return suffix == 0 ? 0xFFFFFFFFu : 0;
        }
        return ((std::uint32_t{1} << zeros) - 1) + suffix;
    }

    std::int32_t se()
    {
        const std::uint32_t code = ue();
        if (code == 0xFFFFFFFFu) {  // would be 2^31
            Fail();
            return 0;
        }
        const std::int32_t magnitude = static_cast<std::int32_t>(code / 2 + code % 2);
        return code % 2 != 0 ? magnitude : -magnitude;
    }

private:
    // What cannot be read is cut off, so that loops over Left() end.
    void Fail()
    {
        failed = true;
        end = pos;
    }

    std::span<const std::uint8_t> data;
    std::uint64_t pos = 0;  // bits
    std::uint64_t end = 0;  // bits
    bool failed = false;
};

}  // namespace vex
