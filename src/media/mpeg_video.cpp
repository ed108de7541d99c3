#include "media/mpeg_video.h"

#include <array>

#include "io/bit_reader.h"
#include "media/nal_units.h"

namespace vex {

namespace {

constexpr std::size_t kCodeSize = 4;             // bytes of a start code
constexpr std::uint32_t kSequenceExtension = 1;  // extension_start_code_identifier

// `extension` starts with its start code.
GMpegSequenceExtension ReadExtension(GBytes extension)
{
    GBitReader bits(extension.subspan(kCodeSize));
    GMpegSequenceExtension result;
    bits.Skip(4 + 1);  // identifier, escape
    result.profile = static_cast<std::uint8_t>(bits.Bits(3));
    result.level = static_cast<std::uint8_t>(bits.Bits(4));
    bits.Skip(1 + 2);  // progressive, chroma format
    result.widthHighBits = static_cast<std::uint8_t>(bits.Bits(2));
    result.heightHighBits = static_cast<std::uint8_t>(bits.Bits(2));
    result.bitRateHighBits = static_cast<std::uint16_t>(bits.Bits(12));
    bits.Skip(1 + 8 + 1);  // marker, buffer size, low delay
    result.rateNumerator = static_cast<std::uint8_t>(bits.Bits(2));
    result.rateDenominator = static_cast<std::uint8_t>(bits.Bits(5));
    return result;
}

bool ReadHeader(GBytes header, GMpegSequence& sequence)
{
    GBitReader bits(header.subspan(kCodeSize));
    sequence.width = static_cast<std::uint16_t>(bits.Bits(12));
    sequence.height = static_cast<std::uint16_t>(bits.Bits(12));
    sequence.aspectCode = static_cast<std::uint8_t>(bits.Bits(4));
    sequence.frameRateCode = static_cast<std::uint8_t>(bits.Bits(4));
    sequence.bitRate = bits.Bits(18);
    return header.size() >= kMpegSequenceHeaderSize;
}

}  // namespace

std::optional<GMpegSequenceExtension> FindMpegSequenceExtension(GBytes bytes)
{
    constexpr std::size_t kShortest = 6;  // bytes up to the level
    for (std::size_t pos = FindStartCode(bytes); pos != kNotFound; pos = FindStartCode(bytes, pos + 3)) {
        const GBytes here = bytes.subspan(pos);
        if (here[3] == kExtensionCode && here.size() >= kShortest && here[4] >> 4 == kSequenceExtension)
            return ReadExtension(here);
    }
    return std::nullopt;
}

std::optional<GMpegSequence> ReadMpegSequence(GBytes bytes)
{
    std::size_t pos = FindStartCode(bytes);
    if (pos == kNotFound || bytes[pos + 3] != kSequenceHeaderCode)
        return std::nullopt;
    GMpegSequence sequence;
    sequence.header = StartCodeSection(bytes, pos);
    if (!ReadHeader(sequence.header, sequence))
        return std::nullopt;
    while (sequence.secondExtension.empty() && (pos = FindStartCode(bytes, pos + 3)) != kNotFound) {
        if (bytes[pos + 3] != kExtensionCode)
            continue;
        const GBytes section = StartCodeSection(bytes, pos);
        if (!sequence.extension)
            sequence.extension = FindMpegSequenceExtension(section);
        (sequence.firstExtension.empty() ? sequence.firstExtension : sequence.secondExtension) = section;
    }
    return sequence;
}

std::uint32_t MpegFramePeriod(unsigned frameRateCode)
{
    constexpr std::array<std::uint32_t, 9> kPeriods{0,      1126125, 1125000, 1080000, 900900,
                                                    900000, 540000,  450450,  450000};
    return frameRateCode < kPeriods.size() ? kPeriods[frameRateCode] : 0;
}

double Mpeg1PelAspect(unsigned aspectCode)
{
    constexpr std::array<double, 15> kAspects{0,      1.0,    0.6735, 0.7031, 0.7615, 0.8055, 0.8437, 0.8935,
                                              0.9157, 0.9815, 1.0255, 1.0695, 1.0950, 1.1575, 1.2015};
    return aspectCode < kAspects.size() ? kAspects[aspectCode] : 0;
}

GRatio Mpeg2DisplayAspect(unsigned aspectCode)
{
    constexpr std::array<GRatio, 5> kAspects{{{1, 1}, {1, 1}, {4, 3}, {16, 9}, {221, 100}}};
    return aspectCode < kAspects.size() ? kAspects[aspectCode] : kAspects[0];
}

std::uint32_t VideoInfoProfile(unsigned profile)
{
    constexpr std::array<std::uint32_t, 6> kProfiles{0, 5, 4, 3, 2, 1};
    return profile < kProfiles.size() ? kProfiles[profile] : 0;
}

std::uint32_t VideoInfoLevel(unsigned level)
{
    constexpr std::array<std::uint32_t, 11> kLevels{0, 0, 0, 0, 4, 0, 3, 0, 2, 0, 1};
    return level < kLevels.size() ? kLevels[level] : 0;
}

}  // namespace vex
