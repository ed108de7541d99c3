// Writes bit fields, most significant bit first.
#pragma once

#include <cstdint>
#include <vector>

namespace vex::test {

class BitWriter {
public:
    BitWriter& U(std::uint64_t value, int bits)
    {
        while (bits-- > 0)
            Bit((value >> bits & 1) != 0);
        return *this;
    }
    BitWriter& Ue(std::uint64_t value)
    {
        int bits = 0;
        while ((value + 1) >> (bits + 1) != 0)
            ++bits;
        return U(0, bits).U(value + 1, bits + 1);
    }
    BitWriter& Se(std::int64_t value)
    {
        return Ue(value > 0 ? 2 * std::uint64_t(value) - 1 : 2 * std::uint64_t(-value));
    }
    // With the stop bit of H.264.
    std::vector<std::uint8_t> Done()
    {
        Bit(true);
        return Filled();
    }
    // With zeros up to the next byte.
    std::vector<std::uint8_t> Filled()
    {
        while (used != 0)
            Bit(false);
        return bytes;
    }

private:
    void Bit(bool set)
    {
        if (used == 0)
            bytes.push_back(0);
        if (set)
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | 0x80 >> used);
        used = (used + 1) % 8;
    }

    std::vector<std::uint8_t> bytes;
    int used = 0;
};

}  // namespace vex::test
