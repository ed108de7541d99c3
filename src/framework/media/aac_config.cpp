#include "framework/media/aac_config.h"

#include <array>

namespace vex {

namespace {

// The lowest rate (Hz) of each sampling frequency index: half way to the next standard rate. What is below the last
// one has the index after it.
constexpr std::array<std::uint32_t, 11> kLowestRates{92017, 75132, 55426, 46009, 37566, 27713,
                                                     23004, 18783, 13856, 11502, 9391};

unsigned FrequencyIndex(std::uint64_t rate)
{
    unsigned index = 0;
    while (index < kLowestRates.size() && rate < kLowestRates[index])
        ++index;
    return index;
}

std::uint8_t Low8(unsigned value) { return static_cast<std::uint8_t>(value & 0xFF); }

}  // namespace

std::size_t MakeAacConfig(std::span<std::uint8_t, 5> out, int profile, std::uint32_t sampleRate, std::uint32_t channels)
{
    const bool sbr = profile < 0;
    const unsigned objectType = (sbr ? 0u - static_cast<unsigned>(profile) : static_cast<unsigned>(profile)) + 1;
    const unsigned index = FrequencyIndex(sampleRate);
    out[0] = Low8(objectType << 3 | index >> 1);
    out[1] = Low8((index & 1) << 7 | channels << 3);
    if (!sbr)
        return 2;
    // The sync extension 0x2B7 (11 bits), object type 5 (5), the SBR flag (1), the index of the doubled rate (4).
    out[2] = 0x56;
    out[3] = 0xE5;
    out[4] = Low8(0x80 | FrequencyIndex(std::uint64_t{sampleRate} * 2) << 3);
    return 5;
}

}  // namespace vex
