#include "media/aac_config.h"

#include <array>

#include "io/bit_reader.h"

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

constexpr std::uint8_t kExplicitRate = 15;
constexpr std::uint8_t kSbrType = 5;
constexpr std::uint8_t kPsType = 29;

std::uint8_t ReadObjectType(GBitReader& bits)
{
    constexpr std::uint32_t kEscape = 31;
    const std::uint32_t type = bits.Bits(5);
    return static_cast<std::uint8_t>(type == kEscape ? 32 + bits.Bits(6) : type);
}

// An explicit rate is stepped over.
std::uint8_t ReadRateIndex(GBitReader& bits)
{
    const auto index = static_cast<std::uint8_t>(bits.Bits(4));
    if (index == kExplicitRate)
        bits.Skip(24);
    return index;
}

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

std::uint32_t AacSampleRate(unsigned index)
{
    constexpr std::array<std::uint32_t, 13> kRates{96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                                   22050, 16000, 12000, 11025, 8000,  7350};
    return index < kRates.size() ? kRates[index] : 0;
}

std::optional<GAacConfig> ReadAacConfig(GBytes bytes)
{
    GBitReader bits(bytes);
    GAacConfig config;
    config.objectType = ReadObjectType(bits);
    config.rateIndex = ReadRateIndex(bits);
    config.channelConfiguration = static_cast<std::uint8_t>(bits.Bits(4));
    if (config.objectType == kSbrType || config.objectType == kPsType) {
        ReadRateIndex(bits);  // of the extension
        config.objectType = ReadObjectType(bits);
    }
    if (!bits.Ok())
        return std::nullopt;
    return config;
}

}  // namespace vex
