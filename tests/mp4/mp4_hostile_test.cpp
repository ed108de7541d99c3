// Files that are damaged or built to hurt: every walk ends, memory follows the data.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/mp4_reading.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

constexpr std::size_t kPacketsOfSmallFile = 6 + 2 + 4;

std::size_t DataPosition(const GMp4Bytes& file) { return FindBox(file, "mdat"); }

GTrialResult UseWhole(GMp4Bytes bytes)
{
    GMp4Reading reading(std::move(bytes));
    return TryHandler(reading, {.targets = {0, 50 * kMillisecond, REFERENCE_TIME{1} << 62}});
}

TEST(Mp4Hostile, EveryPrefixGivesWhatIsWhole)
{
    const GMp4Bytes whole = SmallFile();
    const auto packetsOf = [&](const GMp4Bytes& prefix) {
        const std::size_t size = prefix.size();
        const GTrialResult use = UseWhole(prefix);
        EXPECT_TRUE(!use.opened || use.damage != 0 || size + 8 > whole.size() || size <= DataPosition(whole) + 8)
            << size;
        return use.packets;
    };
    EXPECT_EQ(TryPrefixes(whole, packetsOf), kPacketsOfSmallFile);
}

TEST(Mp4Hostile, EverySingleByteOfDamageIsSurvived)
{
    TryBytes(SmallFile(), {0x00, 0x01, 0x07, 0x7F, 0x80, 0xFF}, UseWhole);
}

TEST(Mp4Hostile, LyingTablesCostTheTrackAtMost)
{
    const GMp4Bytes whole = SmallFile();
    // The third track's tables, of which the first two are unharmed; `field` counts 32-bit numbers behind the header.
    struct GLie {
        const char* table;
        std::size_t field;
        std::uint32_t value;
        std::size_t packets;  // of the third track
    };
    const GLie lies[] = {
        {"stts", 1, 0xFFFF'FFFF, 0}, {"stsc", 1, 0xFFFF'FFFF, 0}, {"stsz", 2, 0xFFFF'FFFF, 0},
        {"stco", 1, 0xFFFF'FFFF, 0}, {"stts", 1, 0x7FFF'FFFF, 4}, {"stco", 1, 0x7FFF'FFFF, 4},
        {"stsz", 2, 0x7FFF'FFFF, 4}, {"stts", 2, 2, 2},           {"stts", 3, 0xFFFF'FFFF, 4},
        {"stts", 2, 0xFFFF'FFFF, 4}, {"stsz", 2, 3, 3},           {"stco", 1, 0, 0},
        {"stco", 3, 0xFFFF'FF00, 1}, {"stsc", 2, 0, 0},           {"stsc", 2, 9, 0},
        {"stsc", 4, 0, 0},           {"stsc", 3, 0xFFFF'FFFF, 4}, {"stsz", 4, 0xFFFF'FFFF, 3},
    };
    for (const GLie& lie : lies) {
        GMp4Bytes bytes = whole;
        Put32(bytes, FindBox(bytes, lie.table, 2) + 8 + 4 * lie.field, lie.value);
        GMp4Reading reading(bytes);
        ASSERT_TRUE(reading.IsOpen());
        const auto packets = reading.ReadAll();
        EXPECT_EQ(OfStream(packets, 1).size(), 6u) << lie.table << lie.field;
        EXPECT_EQ(OfStream(packets, 2).size(), 2u) << lie.table << lie.field;
        const auto own = OfStream(packets, 3);
        EXPECT_EQ(std::ranges::count_if(own, &GReadPacket::delivered), static_cast<std::ptrdiff_t>(lie.packets))
            << lie.table << lie.field << " = " << lie.value;
        UseWhole(std::move(bytes));
    }
}

TEST(Mp4Hostile, RunsOfChunksThatGoBackwardsEnd)
{
    GMp4TestTrack video = NumberedVideo(2000);
    video.stsc.clear();
    for (std::uint32_t i = 0; i < 50'000; ++i)
        video.stsc.push_back({i % 2 == 0 ? 2000u : 1u, 1, 1});
    GMp4Reading reading(GMp4TestFile{.tracks = {video}});
    EXPECT_FALSE(reading.IsOpen());
    video.stsc = {{1, 1, 1}, {5, 1, 1}, {3, 1, 1}};
    EXPECT_EQ(ReadFile({.tracks = {video}}).size(), 2000u);
}

TEST(Mp4Hostile, BoxesInBoxesEndAtALimit)
{
    const GMp4TestFile film{.tracks = {NumberedVideo(2)}};
    for (const char* type : {"moov", "wave"}) {
        GMp4Bytes nested;
        for (int depth = 0; depth < 5000; ++depth)
            nested = Box(type, nested);
        UseWhole(Join({film.start, nested}));
        const GTrialResult use = UseWhole(Join({film.Build(), nested}));
        EXPECT_EQ(use.packets, 2u);
    }
    const GTrialResult many = UseWhole(Join({film.Build(), GMp4Bytes(1 << 16, 8)}));
    EXPECT_TRUE(many.opened);
}

TEST(Mp4Hostile, AHeaderOfJunkIsRefusedWithinItsMemory)
{
    // Containers of eight bytes, and one table that many boxes claim to be.
    GMp4Bytes junk;
    while (junk.size() < 4 << 20) {
        const GMp4Bytes more =
            Join({BigEndian(8 + 16), {'s', 't', 'b', 'l'}, BigEndian(3u << 20), {'s', 't', 's', 'z'}, GMp4Bytes(8)});
        junk.insert(junk.end(), more.begin(), more.end());
    }
    const GMp4TestFile film{.tracks = {NumberedVideo(2)}};
    GMp4Reading reading(Join({film.start, Box("moov", junk)}));
    EXPECT_FALSE(reading.IsOpen());
    EXPECT_LE(reading.Watch().bytes, 60u << 20);  // a header costs 32 bytes, a payload its size once
}

TEST(Mp4Hostile, AReadThatFailsCostsItsPacket)
{
    const GMp4TestFile film{.tracks = {NumberedVideo(6)}};
    for (const bool leaves : {false, true}) {
        GMp4Reading reading(film);
        if (leaves)
            reading.LeavePayloads();
        const auto start = static_cast<std::int64_t>(film.start.size()) + 8;
        reading.Watch().failFrom = start + 16 + 3;
        reading.Watch().failUntil = start + 16 + 17;
        const auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), 6u);
        EXPECT_EQ(std::ranges::count_if(packets, &GReadPacket::delivered), 5);
        EXPECT_EQ(reading.Damage().count, 1u);
    }
}

TEST(Mp4Hostile, ANumberThatTwoTracksShareGoesToTheFirst)
{
    GMp4Reading reading(GMp4TestFile{.tracks = {NumberedVideo(3, 1, 1), PcmSound({8}, 1)}});
    EXPECT_EQ(reading.Streams().size(), 1u);
    EXPECT_EQ(reading.ReadAll().size(), 3u);
    EXPECT_EQ(reading.Damage().count, 1u);
}

// 2^31 samples in a chunk, in blocks of no bytes: walking them one by one takes half a minute.
TEST(Mp4Hostile, TheTimeThatIsAvailableDoesNotWalkWhatAChunkClaims)
{
    GMp4TestTrack track = PcmSound({25});
    track.version = 1;
    track.packing = {1, 0, 0, 0};
    track.constantSize = 1;
    track.constantCount = 0x7FFF'FFFF;
    track.stts = {{0x7FFF'FFFF, 1}};
    track.stsc = {{1, 0x7FFF'FFFF, 1}};
    GMp4Reading reading({.tracks = {track}});
    const GWatchdog hang("a walk over 100 times what one chunk claims");
    for (int i = 0; i < 100; ++i)
        EXPECT_GT(reading.Handler().AvailableTime(), 1'000 * kSecond);
}

}  // namespace
}  // namespace vex::test
