#include "media/h264_parameters.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <vector>

#include "io/bit_reader.h"
#include "media/nal_units.h"
#include "media/ratio.h"

namespace vex {

namespace {

constexpr std::size_t kFixedBytes = 6;  // of the record, the number of sequence parameter sets included

// What a field stores on top of its code; a code that leaves no room for it saturates.
std::uint32_t Biased(std::uint32_t code, std::uint32_t bias)
{
    const std::uint32_t room = std::numeric_limits<std::uint32_t>::max() - bias;
    return (code < room ? code : room) + bias;
}

// A product of macroblock counts in samples; 0 for what no picture can have.
std::uint32_t Samples(std::uint32_t macroblocks, std::uint32_t each)
{
    constexpr std::uint32_t kMostMacroblocks = 0xFFFF;
    return macroblocks <= kMostMacroblocks ? macroblocks * each : 0;
}

// Samples cut off one side, at most what is there.
std::uint32_t Crop(std::uint32_t units, std::uint32_t unit, std::uint32_t available)
{
    return units <= available / unit ? units * unit : available;
}

// High 4:4:4 of the edition of 2005, which a later one took back: eight scaling lists whatever the chroma format.
constexpr std::uint8_t kFirstHigh444 = 144;

// Profiles whose sets carry the chroma format and what goes with it.
constexpr auto kChromaProfiles =
    std::to_array<std::uint8_t>({44, 83, 86, 100, 110, 118, 122, 128, 134, 135, 138, 139, kFirstHigh444, 244});

void SkipScalingList(GBitReader& bits, int entries)
{
    std::uint32_t last = 8;
    for (int i = 0; i < entries && bits.Ok(); ++i) {
        last = (last + static_cast<std::uint32_t>(bits.se())) & 0xFF;
        if (last == 0)  // the rest repeats what came before
            return;
    }
}

void SkipScalingMatrix(GBitReader& bits, int lists)
{
    for (int i = 0; i < lists && bits.Ok(); ++i)
        if (bits.Flag())
            SkipScalingList(bits, i < 6 ? 16 : 64);
}

void ReadSampleAspect(GBitReader& bits, GH264Parameters& out)
{
    constexpr std::uint32_t kExplicit = 255;

    const std::uint32_t index = bits.Bits(8);
    if (index == kExplicit) {
        out.aspectX = bits.Bits(16);
        out.aspectY = bits.Bits(16);
    } else if (index < kSampleAspectCodes) {
        const GRatio ratio = SampleAspect(index);
        out.aspectX = ratio.x;
        out.aspectY = ratio.y;
    }
}

void ReadVui(GBitReader& bits, GH264Parameters& out)
{
    if (bits.Flag())
        ReadSampleAspect(bits, out);
    if (bits.Flag())  // overscan
        bits.Skip(1);
    if (bits.Flag()) {  // video signal type
        bits.Skip(3 + 1);
        if (bits.Flag())
            bits.Skip(3 * 8);
    }
    if (bits.Flag()) {  // chroma sample positions
        bits.ue();
        bits.ue();
    }
    out.hasTiming = bits.Flag();
    if (out.hasTiming) {
        out.numUnitsInTick = bits.Bits(32);
        out.timeScale = bits.Bits(32);
        out.fixedFrameRate = bits.Flag();
    }
}

// chroma_format_idc: 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4.
std::uint32_t ReadChromaFormat(GBitReader& bits, std::uint8_t profile)
{
    if (!std::ranges::binary_search(kChromaProfiles, profile))
        return 1;
    const std::uint32_t format = bits.ue();
    if (format == 3)
        bits.Skip(1);  // separate colour planes
    bits.ue();         // bit depths
    bits.ue();
    bits.Skip(1);  // lossless transform bypass
    if (bits.Flag())
        SkipScalingMatrix(bits, format == 3 && profile != kFirstHigh444 ? 12 : 8);
    return format;
}

void SkipPictureOrder(GBitReader& bits)
{
    const std::uint32_t type = bits.ue();
    if (type == 0) {
        bits.ue();
    } else if (type == 1) {
        bits.Skip(1);
        bits.se();
        bits.se();
        const std::uint32_t cycle = bits.ue();
        for (std::uint32_t i = 0; i < cycle && bits.Ok(); ++i)
            bits.se();
    }
}

void ReadFrameSize(GBitReader& bits, std::uint32_t chromaFormat, GH264Parameters& out)
{
    const std::uint32_t columns = Biased(bits.ue(), 1);
    const std::uint32_t rows = Biased(bits.ue(), 1);
    const bool framesOnly = bits.Flag();
    const std::uint32_t fields = framesOnly ? 1 : 2;
    if (!framesOnly)
        bits.Skip(1);  // adaptive frame/field macroblocks
    bits.Skip(1);      // direct 8x8 inference
    out.width = Samples(columns, 16);
    out.height = Samples(rows, 16 * fields);
    if (bits.Flag()) {
        const bool halfWidth = chromaFormat == 1 || chromaFormat == 2;
        const std::uint32_t unitX = halfWidth ? 2 : 1;
        const std::uint32_t unitY = (chromaFormat == 1 ? 2 : 1) * fields;
        out.width -= Crop(bits.ue(), unitX, out.width);  // left, then right
        out.width -= Crop(bits.ue(), unitX, out.width);
        out.height -= Crop(bits.ue(), unitY, out.height);
        out.height -= Crop(bits.ue(), unitY, out.height);
    }
}

// `bits` is a cursor of its own, past the NAL unit header. It may run into what follows the set. False when it ends
// before the size of the picture.
bool ReadSequenceSet(GBitReader bits, GH264Parameters& out)
{
    out.profile = static_cast<std::uint8_t>(bits.Bits(8));
    bits.Skip(8);  // constraints
    out.level = static_cast<std::uint8_t>(bits.Bits(8));
    bits.ue();  // number of the set
    const std::uint32_t chromaFormat = ReadChromaFormat(bits, out.profile);
    bits.ue();  // length of the frame number
    SkipPictureOrder(bits);
    bits.ue();     // reference frames
    bits.Skip(1);  // gaps in the frame number
    ReadFrameSize(bits, chromaFormat, out);
    const bool hasSize = bits.Ok();
    if (bits.Flag())
        ReadVui(bits, out);
    return hasSize;
}

}  // namespace

bool ReadAvcConfiguration(std::span<const std::uint8_t> avcC, GH264Parameters& out)
{
    out = {};
    if (avcC.size() < kFixedBytes)
        return false;
    // The whole record is treated, its lengths too, while those count the bytes that were taken out: a set behind
    // one that lost bytes is looked for that much too late. Frame durations depend on it, so it stays.
    const std::vector<std::uint8_t> record = WithoutEmulationPrevention(avcC);
    GBitReader bits(record);
    bits.Skip(4 * 8);  // version, profile, compatibility, level
    bits.Skip(6 + 2);  // size of the lengths in the payloads
    bits.Skip(3);
    const std::uint32_t count = bits.Bits(5);
    for (std::uint32_t i = 0; i < count && bits.Left() > 0; ++i) {
        const std::uint32_t length = bits.Bits(16);
        GBitReader set = bits;  // which cannot disturb where the next one starts
        set.Skip(8);            // NAL unit header
        if (set.Left() > 0)
            ReadSequenceSet(set, out);
        bits.Skip(std::uint64_t{length} * 8);
    }
    return true;
}

bool ReadSequenceParameterSet(GBytes unit, GH264Parameters& out)
{
    out = {};
    if (unit.empty() || NalType(unit) != GNalType::SequenceSet)
        return false;
    const std::vector<std::uint8_t> plain = WithoutEmulationPrevention(unit);
    if (ReadSequenceSet(GBitReader(GBytes(plain).subspan(1)), out))
        return true;
    out = {};
    return false;
}

}  // namespace vex
