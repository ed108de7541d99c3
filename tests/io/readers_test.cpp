#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <vector>

#include "io/bit_reader.h"
#include "io/byte_reader.h"

namespace vex::test {
namespace {

// High bits set throughout, so that a sign that leaks from one byte into the next shows.
constexpr std::array<std::uint8_t, 16> kBytes{0x81, 0x92, 0xA3, 0xB4, 0xC5, 0xD6, 0xE7, 0xF8,
                                              0x89, 0x9A, 0xAB, 0xBC, 0xCD, 0xDE, 0xEF, 0xF0};

GByteReader At(std::size_t offset) { return GByteReader(std::span(kBytes).subspan(offset)); }

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
    EXPECT_TRUE(GByteReader().Window(0).Ok());
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
