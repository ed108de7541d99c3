#include <gtest/gtest.h>

#include <limits>

#include "io/checked_math.h"

namespace vex::test {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t kUMax = std::numeric_limits<std::uint64_t>::max();

TEST(MulDiv, KeepsAllBitsRoundsTowardsZeroAndSaysSoWhenThereIsNoAnswer)
{
    const struct {
        std::int64_t value, mul, div;
        std::optional<std::int64_t> quotient;
    } cases[] = {
        {kMax, 10'000'000, 10'000'000, kMax},
        {900'000'000'000'000, 10'000'000, 90'000, 100'000'000'000'000'000},
        {7, 3, 2, 10},
        {-7, 3, 2, -10},
        {7, 3, -2, -10},
        {-7, -3, 2, 10},
        {1, 1, 0, std::nullopt},
        {kMax, 2, 1, std::nullopt},
        {kMin, 1, -1, std::nullopt},  // one more than the largest
        {kMin, -1, 1, std::nullopt},
        {kMin, 1, 1, kMin},
        {kMin, kMin, kMin, kMin},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MulDiv64(c.value, c.mul, c.div), c.quotient) << c.value << " * " << c.mul << " / " << c.div;

    EXPECT_EQ(MulDivU64(kUMax, kUMax - 1, kUMax), kUMax - 1);
    EXPECT_EQ(MulDivU64(kUMax, 2, 2), kUMax);
    EXPECT_EQ(MulDivU64(0x1234'5678'9ABC'DEF0, 0xFEDC'BA98'7654'3210, kUMax - 58), 0x121F'A00A'D77D'7426);
    EXPECT_EQ(MulDivU64(kUMax, 3, 2), std::nullopt);
    EXPECT_EQ(MulDivU64(0, 0, 0), std::nullopt);
}

TEST(CheckedArithmetic, RefusesWhatDoesNotFit)
{
    EXPECT_EQ(CheckedAdd<std::uint32_t>(0xFFFFFFFF, 1), std::nullopt);
    EXPECT_EQ(CheckedAdd<std::uint64_t>(0xFFFFFFFF, 1), 0x100000000);
    EXPECT_EQ(CheckedAdd(kMin, -1), std::nullopt);
    EXPECT_EQ(CheckedMul<std::uint32_t>(0x10000, 0x10000), std::nullopt);
    EXPECT_EQ(CheckedMul(kMin, -1), std::nullopt);
    EXPECT_EQ(CheckedMul(kUMax / 3, 3), kUMax);
}

}  // namespace
}  // namespace vex::test
