// Files that end anywhere, lie anywhere and cannot be read anywhere.
#include <gtest/gtest.h>

#include "asf/asf_reading.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

using GData = std::vector<std::uint8_t>;

// Every kind of header object, payload and index once.
GData Everything()
{
    GAsfTestFile file = AsfFilm(8, 3);
    file.streams = {{.number = 1, .spread = {2, 5, 0, 2, 0, 1, 0, 0}}, {.number = 2, .video = true}, {.number = 3}};
    file.extension.Object(GAsfId::LanguageList, LanguageList({"de", "en"}))
        .Object(GAsfId::ExtendedStreamProperties, ExtendedStream(3, 5, 1))
        .Object(GAsfId::AdvancedMutualExclusion, GAsfBytes().Zeros(16).Raw(Numbers({1, 3}).bytes))
        .Object(GAsfId::GroupMutualExclusion, GAsfBytes().Zeros(16).Number(1, 2).Raw(Numbers({1}).bytes));
    file.children.Object(GAsfId::BitrateMutualExclusion, GAsfBytes().Zeros(16).Raw(Numbers({1}).bytes))
        .Object(GAsfId::StreamBitrateProperties, GAsfBytes().Number(1, 2).Number(1, 2).Number(9, 4));
    file.packets.Raw(
        Packet({{.stream = 3, .timeMs = 1'100, .data = {2, 1, 1, 1, 2}, .replicated = 1, .deltaMs = 9}}).bytes);
    file.packets.Raw(Packet({{.stream = 2, .timeMs = 1'200, .objectSize = 90, .data = GData(50, 1)}}).bytes);
    file.packets.Raw(
        Packet({{.stream = 2, .data = GData(40, 2), .replicated = 0}}, 100, {.multiple = false, .paddingType = 1})
            .bytes);
    return file.Bytes();
}

GTrialResult Try(const GData& bytes)
{
    GAsfReading reading(bytes);
    return TryHandler(reading, {.targets = {reading.Handler().Duration() - 1, 100 * kMillisecond, 1}});
}

TEST(AsfBroken, EveryPrefixGivesNoFewerObjectsThanAShorterOne)
{
    const GData whole = Everything();
    std::size_t most = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const std::size_t count = Try({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)}).packets;
        ASSERT_GE(count, most) << "of " << size;
        most = count;
    }
    EXPECT_EQ(most, 19u);
}

TEST(AsfBroken, AnyByteMayLieAndAnySizeBeNothingOrEverything)
{
    const GData whole = Everything();
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
    for (std::uint8_t stream = 3; stream < 128; ++stream)
        file.packets.Raw(Packet({{.stream = stream, .timeMs = 1'000, .objectSize = 250u << 20, .data = {1}}}).bytes);
    for (std::uint16_t stream = 3; stream < 128; ++stream) {
        file.streams.push_back({.number = stream});
        file.extension.Object(GAsfId::ExtendedStreamProperties, ExtendedStream(stream, 1, stream));
    }
    std::vector<std::string> codes;
    for (int i = 0; i < 128; ++i)
        codes.push_back("x" + std::to_string(i));
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
    const GData whole = AsfFilm(10, 5).Bytes();
    GAsfExReadHandler handler(
        std::make_unique<GMemoryFile>(std::make_shared<GMemoryDisk>(GData(whole.begin(), whole.begin() + 900))),
        {.growthPause = std::chrono::hours(1)});
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(handler.Open("memory").Ok());
        for (const GHangCheck hang("an index that never catches up"); !handler.IsIndexComplete(); hang.Check())
            std::this_thread::yield();
        handler.Close();
    }
}

}  // namespace
}  // namespace vex::test
