#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "io/checked_math.h"
#include "io/result.h"

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
    EXPECT_EQ(MulDivU64(kUMax, 3, 2), std::nullopt);
    EXPECT_EQ(MulDivU64(0, 0, 0), std::nullopt);
}

TEST(MulDiv, TheQuotientTimesTheDivisorComesBackWithinTheDivisor)
{
    std::mt19937_64 random(99);
    int answers = 0;
    for (int i = 0; i < 20'000; ++i) {
        const std::uint64_t a = random() >> random() % 64;
        const std::uint64_t b = random() >> random() % 64;
        const std::uint64_t c = random() >> random() % 64;
        const auto quotient = MulDivU64(a, b, c);
        if (!quotient)
            continue;
        ++answers;
        const auto product = detail::Multiply128(a, b);
        const auto back = detail::Multiply128(*quotient, c);
        ASSERT_EQ(product.high - back.high - (product.low < back.low ? 1 : 0), 0u) << a << " " << b << " " << c;
        ASSERT_LT(product.low - back.low, c) << a << " " << b << " " << c;
    }
    EXPECT_GT(answers, 5'000);
}

TEST(CheckedArithmetic, RefusesWhatDoesNotFit)
{
    EXPECT_EQ(CheckedAdd<std::uint32_t>(0xFFFFFFFF, 1), std::nullopt);
    EXPECT_EQ(CheckedAdd<std::uint64_t>(0xFFFFFFFF, 1), 0x100000000);
    EXPECT_EQ(CheckedAdd(kMin, -1), std::nullopt);
    EXPECT_EQ(CheckedMul<std::uint32_t>(0x10000, 0x10000), std::nullopt);
    EXPECT_EQ(CheckedMul(kMin, -1), std::nullopt);
    EXPECT_EQ(CheckedMul(kUMax / 3, 3), kUMax);

    std::vector<std::uint64_t> entries;
    ReserveFromFile(entries, kUMax);
    EXPECT_LT(entries.capacity(), 100'000u) << "a declared count reserves little";
}

GResult<std::unique_ptr<std::string>> Named(bool there)
{
    if (!there)
        return GError{GErrorKind::Unsupported, "no such name", 42};
    return std::make_unique<std::string>("name");
}

GStatus Twice(bool first, bool second, int& reached)
{
    G_TRY(const auto one, Named(first));
    ++reached;
    const auto again = [&]() -> GResult<std::size_t> {
        G_TRY(auto two, Named(second));
        return two->size() + one->size();
    };
    G_TRY_STATUS([&]() -> GStatus {
        G_TRY(const std::size_t length, again());
        G_TRY_STATUS(length == 8 ? GStatus{} : GStatus{GError{GErrorKind::Malformed, "length", 0}});
        return {};
    }());
    ++reached;
    return {};
}

TEST(Result, TryPassesTheFirstErrorOnWithItsPlaceAndStopsThere)
{
    int reached = 0;
    EXPECT_TRUE(Twice(true, true, reached).Ok());
    EXPECT_EQ(reached, 2);

    reached = 0;
    const GStatus failed = Twice(true, false, reached);
    ASSERT_FALSE(failed.Ok());
    EXPECT_EQ(failed.Error().kind, GErrorKind::Unsupported);
    EXPECT_STREQ(failed.Error().what, "no such name");
    EXPECT_EQ(failed.Error().filePos, 42u);
    EXPECT_EQ(reached, 1);
    EXPECT_FALSE(Twice(false, true, reached).Ok());
    EXPECT_EQ(reached, 1);
}

}  // namespace
}  // namespace vex::test
