#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <random>
#include <vector>

#include "io/bit_reader.h"
#include "io/byte_reader.h"
#include "io/fourcc.h"

namespace vex::test {
namespace {

// High bits set throughout, so that a sign that leaks from one byte into the next shows.
constexpr std::array<std::uint8_t, 16> kBytes{0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8,
                                              0x89, 0x9A, 0xAB, 0xBC, 0xCD, 0xDE, 0xEF, 0xF0};

GByteReader At(std::size_t offset) { return GByteReader(std::span(kBytes).subspan(offset)); }

TEST(ByteReader, EveryWidthReadsItsOwnByteOrderAndNoMore)
{
    EXPECT_EQ(At(0).U16LE(), 0x9281u);
    EXPECT_EQ(At(0).U16BE(), 0x8192u);
    EXPECT_EQ(At(0).U24BE(), 0x8192A3u);
    EXPECT_EQ(At(0).U32LE(), 0xB4A39281u);
    EXPECT_EQ(At(0).U32BE(), 0x8192A3B4u);
    EXPECT_EQ(At(1).U64LE(), 0x89F8E7D6C5B4A392u);
    EXPECT_EQ(At(1).U64BE(), 0x92A3B4C5D6E7F889u);
    EXPECT_EQ(At(0).I32LE(), static_cast<std::int32_t>(0xB4A39281u));
    EXPECT_EQ(At(0).I64LE(), static_cast<std::int64_t>(0xF8E7D6C5B4A39281u));
    EXPECT_EQ(At(0).UIntBE(5), 0x8192A3B4C5u);
    EXPECT_EQ(At(0).UIntBE(0), 0u);

    GByteReader reader = At(0);
    reader.U24BE();
    reader.U16LE();
    reader.U8();
    reader.U64BE();
    EXPECT_EQ(reader.Pos(), 14u);
    GByteReader empty;
    EXPECT_TRUE(empty.Window(0).Ok());
    EXPECT_EQ(empty.U8(), 0u);
    EXPECT_FALSE(empty.Ok());

    const std::array<std::uint8_t, 4> code{'X', 'V', 'I', 'D'};
    EXPECT_EQ(GByteReader(code).FourCC(), FourCC("XVID"));
}

TEST(ByteReaderOverrun, LatchesSoThatOneQuestionAtTheEndIsEnough)
{
    GByteReader reader({kBytes.data(), 6}, 1'000);
    reader.U32LE();
    EXPECT_EQ(reader.U32LE(), 0u) << "two bytes are left, which is not half an answer";
    EXPECT_FALSE(reader.Ok());
    EXPECT_EQ(reader.FilePos(), 1'004u) << "where the field that is missing would be";
    EXPECT_EQ(reader.U8(), 0u) << "although that one was there";
    EXPECT_EQ(reader.Left(), 0u) << "so that loops over what is left end";
    EXPECT_TRUE(reader.Bytes(1).empty());
    reader.Skip(0);
    EXPECT_FALSE(reader.Ok());
}

TEST(ByteReaderOverrun, SizesFromAFileCannotWrapAround)
{
    constexpr std::uint64_t kHuge[] = {17, 0x1'0000'0000, 0x1'0000'0001, std::numeric_limits<std::uint64_t>::max()};
    for (const std::uint64_t size : kHuge) {
        GByteReader skipped = At(0);
        skipped.U8();
        skipped.Skip(size);
        EXPECT_FALSE(skipped.Ok()) << size;
        EXPECT_EQ(skipped.Pos(), 1u);

        GByteReader parent = At(0);
        const GByteReader window = parent.Window(size);
        EXPECT_FALSE(window.Ok()) << size;
        EXPECT_EQ(window.Left(), 0u);
        EXPECT_FALSE(parent.Ok());
    }
    GByteReader wide = At(0);
    EXPECT_EQ(wide.UIntBE(9), 0u);
    EXPECT_FALSE(wide.Ok());
}

TEST(ByteReaderWindow, EndsAtItsOwnSizeAndKnowsItsPlaceInTheFile)
{
    GByteReader parent(kBytes, 5'000'000'000);
    parent.Skip(4);
    GByteReader child = parent.Window(4);
    EXPECT_EQ(parent.FilePos(), 5'000'000'008u) << "whatever is read of the child";
    EXPECT_EQ(child.FilePos(), 5'000'000'004u);
    EXPECT_EQ(child.Bytes(4).data(), kBytes.data() + 4);
    EXPECT_EQ(child.U8(), 0u);
    EXPECT_FALSE(child.Ok());
    EXPECT_TRUE(parent.Ok()) << "a child that overruns does not spoil its parent";
    EXPECT_EQ(parent.U8(), kBytes[8]);
}

TEST(BitReader, AnyWidthAtAnyAlignmentMatchesTheBitsOneByOne)
{
    std::mt19937 random(7);
    std::vector<std::uint8_t> bytes(4'000);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(random());
    GBitReader reader(bytes);
    GBitReader single(bytes);
    while (true) {
        const auto count = static_cast<unsigned>(random() % 33);
        if (count > reader.Left())
            break;
        std::uint32_t expected = 0;
        for (unsigned i = 0; i < count; ++i)
            expected = expected << 1 | (single.Flag() ? 1 : 0);
        ASSERT_EQ(reader.Bits(count), expected) << count << " bits up to " << reader.Pos();
    }
    EXPECT_TRUE(reader.Ok());
}

TEST(BitReader, AnOverrunLatchesAndGivesNoPartOfTheBits)
{
    const std::array<std::uint8_t, 2> ones{0xFF, 0xFF};
    GBitReader reader(ones);
    reader.Skip(10);
    EXPECT_EQ(reader.Bits(7), 0u);
    EXPECT_FALSE(reader.Flag());
    EXPECT_EQ(reader.Left(), 0u);
    GBitReader skipped(ones);
    skipped.Skip(std::numeric_limits<std::uint64_t>::max());
    EXPECT_FALSE(reader.Ok() || skipped.Ok());
}

TEST(ExpGolomb, CodesReadAsTheStandardTabulatesThem)
{
    // 1, 010, 011, 00100, 00111, 0001000 and the stop bit of a payload
    const std::array<std::uint8_t, 4> codes{0b10100110, 0b01000011, 0b10001000, 0b10000000};
    GBitReader unsignedCodes(codes);
    for (const std::uint32_t expected : {0u, 1u, 2u, 3u, 6u, 7u, 0u})
        EXPECT_EQ(unsignedCodes.ue(), expected);
    EXPECT_EQ(unsignedCodes.Pos(), 25u);
    GBitReader signedCodes(codes);
    for (const std::int32_t expected : {0, 1, -1, 2, -3, 4, 0})
        EXPECT_EQ(signedCodes.se(), expected);
}

std::vector<std::uint8_t> LongCode(unsigned zeros, std::uint64_t suffix)
{
    std::vector<std::uint8_t> bytes((2 * zeros + 1 + 7) / 8);
    const auto set = [&](unsigned bit) {
        bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] | 0x80 >> bit % 8);
    };
    set(zeros);
    for (unsigned i = 0; i < zeros; ++i) {
        if (suffix >> (zeros - 1 - i) & 1)
            set(zeros + 1 + i);
    }
    return bytes;
}

TEST(ExpGolomb, TheLargestNumbersAreReadAndLargerOnesRefused)
{
    struct {
        unsigned zeros;
        std::uint64_t suffix;
        bool ok;
        std::uint32_t value;
    } const cases[] = {
        {31, 0x7FFFFFFF, true, 0xFFFFFFFEu}, {32, 0, true, 0xFFFFFFFFu}, {32, 1, false, 0}, {33, 0, false, 0}};
    for (const auto& c : cases) {
        const auto bytes = LongCode(c.zeros, c.suffix);
        GBitReader reader(bytes);
        EXPECT_EQ(reader.ue(), c.value) << c.zeros;
        EXPECT_EQ(reader.Ok(), c.ok) << c.zeros;
    }
    const auto lowest = LongCode(31, 0x7FFFFFFF);
    EXPECT_EQ(GBitReader(lowest).se(), -std::numeric_limits<std::int32_t>::max());
    const auto tooHigh = LongCode(32, 0);
    GBitReader reader(tooHigh);
    EXPECT_EQ(reader.se(), 0);
    EXPECT_FALSE(reader.Ok());
}

TEST(ExpGolomb, ACodeCutOffByTheEndIsAnOverrun)
{
    const std::array<std::uint8_t, 1> endsInItsZeros{0x00};
    const std::array<std::uint8_t, 1> endsInItsSuffix{0b00001011};
    for (const auto& bytes : {endsInItsZeros, endsInItsSuffix}) {
        GBitReader reader(bytes);
        EXPECT_EQ(reader.ue(), 0u);
        EXPECT_FALSE(reader.Ok());
    }
    const std::vector<std::uint8_t> zeros(1'000);
    GBitReader reader(zeros);
    reader.ue();
    EXPECT_LE(reader.Pos(), 33u) << "the search is bounded";
}

}  // namespace
}  // namespace vex::test
