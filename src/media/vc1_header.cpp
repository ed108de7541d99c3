#include "media/vc1_header.h"

#include <array>

#include "io/bit_reader.h"
#include "media/nal_units.h"

namespace vex {

namespace {

constexpr std::uint8_t kSequenceCode = 0x0F;
constexpr std::uint8_t kEntryPointCode = 0x0E;
constexpr std::uint8_t kAdvanced = 3;

// The section of the first start code `code` at or behind `from`; empty when there is none.
GBytes FindSection(GBytes bytes, std::uint8_t code, std::size_t from)
{
    std::size_t start = FindStartCode(bytes, from);
    while (start != kNotFound && bytes[start + 3] != code)
        start = FindStartCode(bytes, start + 3);
    return start == kNotFound ? GBytes() : StartCodeSection(bytes, start);
}

void ReadFrameRate(GBitReader& bits, GVc1Sequence& sequence)
{
    constexpr std::array<std::uint8_t, 8> kRates{0, 24, 25, 30, 50, 60, 48, 72};
    constexpr std::array<std::uint16_t, 3> kDivisors{0, 1000, 1001};
    if (bits.Flag()) {  // in units of 1/32 frames a second
        sequence.rateNumerator = bits.Bits(16) + 1;
        sequence.rateDenominator = 32;
        return;
    }
    const std::uint32_t rate = bits.Bits(8);
    const std::uint32_t divisor = bits.Bits(4);
    if (rate == 0 || rate >= kRates.size() || divisor == 0 || divisor >= kDivisors.size())
        return;
    sequence.rateNumerator = kRates[rate] * 1000u;
    sequence.rateDenominator = kDivisors[divisor];
}

void ReadDisplay(GBitReader& bits, GVc1Sequence& sequence)
{
    constexpr std::uint32_t kExplicit = 15;
    sequence.displayWidth = bits.Bits(14) + 1;
    sequence.displayHeight = bits.Bits(14) + 1;
    if (bits.Flag()) {
        const std::uint32_t code = bits.Bits(4);
        if (code == kExplicit) {
            sequence.aspect.x = bits.Bits(8);
            sequence.aspect.y = bits.Bits(8);
        } else if (code < 14) {  // 14 is reserved
            sequence.aspect = SampleAspect(code);
        }
    }
    if (bits.Flag())
        ReadFrameRate(bits, sequence);
}

void ReadAdvanced(GBitReader& bits, GVc1Sequence& sequence)
{
    bits.Skip(3 + 2 + 3 + 5 + 1);  // level, chroma format, hints at the rates, post processing
    sequence.codedWidth = 2 * bits.Bits(12) + 2;
    sequence.codedHeight = 2 * bits.Bits(12) + 2;
    bits.Skip(1 + 1 + 4);  // pulldown, interlacing, frame counter, interpolation, reserved, segmented frames
    sequence.hasDisplay = bits.Flag();
    if (sequence.hasDisplay)
        ReadDisplay(bits, sequence);
}

}  // namespace

std::optional<GVc1Sequence> ReadVc1Sequence(GBytes bytes)
{
    GVc1Sequence sequence;
    sequence.sequenceHeader = FindSection(bytes, kSequenceCode, 0);
    if (sequence.sequenceHeader.empty())
        return std::nullopt;
    const auto end =
        static_cast<std::size_t>(sequence.sequenceHeader.data() + sequence.sequenceHeader.size() - bytes.data());
    sequence.entryPoint = FindSection(bytes, kEntryPointCode, end);
    const std::vector<std::uint8_t> plain = WithoutEmulationPrevention(sequence.sequenceHeader.subspan(4));
    GBitReader bits(plain);
    sequence.profile = static_cast<std::uint8_t>(bits.Bits(2));
    if (sequence.profile == kAdvanced)
        ReadAdvanced(bits, sequence);
    if (!bits.Ok())
        return std::nullopt;
    return sequence;
}

}  // namespace vex
