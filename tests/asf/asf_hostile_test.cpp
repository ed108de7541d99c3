// Files that end anywhere, lie anywhere and cannot be read anywhere.
#include <gtest/gtest.h>

#include "asf/asf_reading.h"
#include "support/bytes.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

using GData = std::vector<std::uint8_t>;

GTrialResult Try(const GData& bytes)
{
    GAsfReading reading(bytes);
    return TryHandler(reading, {.targets = {reading.Handler().Duration() - 1, 100 * kMillisecond, 1}});
}

TEST(AsfBroken, EveryPrefixGivesNoFewerObjectsThanAShorterOne)
{
    const GData whole = AsfEverything().Bytes();
    std::size_t most = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const std::size_t count = Try(First(whole, size)).packets;
        ASSERT_GE(count, most) << "of " << size;
        most = count;
    }
    EXPECT_EQ(most, 19u);
}

TEST(AsfBroken, AnyByteMayLieAndAnySizeBeNothingOrEverything)
{
    const GData whole = AsfEverything().Bytes();
    for (std::size_t i = 0; i + 8 <= whole.size(); ++i) {
        for (const auto& [lie, count] : {std::pair{0x00, 1}, {0x01, 1}, {0x80, 1}, {0xFF, 1}, {0x00, 8}, {0xFF, 8}}) {
            GData broken = whole;
            std::fill_n(broken.begin() + static_cast<std::ptrdiff_t>(i), count, static_cast<std::uint8_t>(lie));
            Try(broken);
        }
    }
}

TEST(AsfBroken, ABigClaimTakesNoMemory)
{
    GAsfTestFile file = AsfFilm(2, 1);
    file.dataSize = 1u << 30;
    std::vector<std::string> codes{"a", "b", "c"};
    for (std::uint8_t stream = 3; stream < 128; ++stream) {
        file.packets.Raw(Packet({{.stream = stream, .timeMs = 1'000, .objectSize = 250u << 20, .data = {1}}}).bytes);
        file.streams.push_back({.number = stream});
        file.extension.Object(GAsfId::ExtendedStreamProperties, ExtendedStream(stream, 1, stream));
        codes.push_back("x" + std::to_string(stream));
    }
    file.extension.Object(GAsfId::LanguageList, LanguageList(codes));
    GAsfReading reading(file.Bytes());
    EXPECT_GT(reading.Streams().size(), 100u);
    EXPECT_EQ(reading.ReadAll().size(), 4u);
}

TEST(AsfBroken, ASourceThatFailsCostsWhatLiesThere)
{
    const GAsfTestFile film = AsfFilm(3'000, 10);
    GAsfReading reading(film.Bytes());
    reading.WaitForIndex();
    const std::int64_t from = film.DataStart() + 150'000;
    reading.Watch().failFrom = from;
    reading.Watch().failUntil = from + 1;
    const auto read = reading.ReadFrom(0);
    EXPECT_GE(read.size(), 2'900u);
    EXPECT_GE(reading.Damage().count, 1u);
}

TEST(AsfClose, EndsAThreadThatWaitsForGrowth)
{
    const GWatchdog watchdog("an index thread that does not end");
    const GData whole = AsfFilm(10, 5).Bytes();
    for (int round = 0; round < 3; ++round)
        GAsfReading({whole.begin(), whole.begin() + 900}, std::chrono::hours(1)).WaitForIndex();
}

}  // namespace
}  // namespace vex::test
