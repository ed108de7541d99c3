// Files that end anywhere, lie anywhere and cannot be read anywhere.
#include <gtest/gtest.h>

#include "asf/asf_reading.h"
#include "support/bytes.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

using GData = std::vector<std::uint8_t>;

std::size_t Try(const GData& bytes)
{
    GAsfReading reading(bytes);
    return TryHandler(reading, {.targets = {reading.Handler().Duration() - 1, 100 * kMillisecond, 1}}).packets;
}

TEST(AsfBroken, EveryPrefixGivesNoFewerObjectsThanAShorterOne)
{
    EXPECT_EQ(TryPrefixes(AsfEverything().Bytes(), Try), 19u);
}

TEST(AsfBroken, AnyByteMayLieAndAnySizeBeNothingOrEverything)
{
    const GData whole = AsfEverything().Bytes();
    TryBytes(whole, {0x00, 0x01, 0x80, 0xFF}, Try);
    TryBytes(whole, {0x00, 0xFF}, Try, 8);
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
