// Which bytes make a packet, when it is due, and in which order packets come.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/mp4_reading.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Mp4Packets, SamplesOfVaryingSizeComeOneByOneWithTheirTimesAndSyncMarks)
{
    for (const bool wide : {false, true}) {
        GMp4TestTrack video = NumberedVideo(5, 2);
        video.co64 = wide;
        video.timescale = 30000;
        video.stts = {{2, 1001}, {0, 7}, {3, 500}};
        const auto packets = ReadFile({.tracks = {video}});
        EXPECT_THAT(Marks(packets), ElementsAre(1, 2, 3, 4, 5));
        EXPECT_THAT(Sizes(packets), ElementsAre(16u, 17u, 18u, 19u, 20u));
        EXPECT_THAT(KeyFlags(packets), ElementsAre(true, false, true, false, true));
        EXPECT_THAT(Starts(packets), ElementsAre(0, 333'666, 667'333, 834'000, 1'000'666));  // cut, not rounded
        for (const GReadPacket& packet : packets)
            EXPECT_EQ(packet.next.stop, packet.next.start + 1);
    }
}

TEST(Mp4Packets, RunsOfChunksHoldTheSamplesTheirTableSays)
{
    GMp4TestTrack video{.stts = {{35, 10}}, .stsc = {{1, 10, 1}, {3, 5, 1}}};
    for (std::uint32_t i = 0; i < 35; ++i)
        video.sizes.push_back(1 + i % 3);
    for (std::uint32_t sample = 0, chunk = 0; chunk < 5; ++chunk) {
        GMp4Bytes bytes;
        for (std::uint32_t end = sample + (chunk < 2 ? 10 : 5); sample < end; ++sample)
            bytes.insert(bytes.end(), 1 + sample % 3, static_cast<std::uint8_t>(sample + 1));
        video.chunks.push_back(bytes);
    }
    const auto packets = ReadFile({.tracks = {video}});
    ASSERT_EQ(packets.size(), 35u);
    for (std::size_t i = 0; i < 35; ++i) {
        EXPECT_EQ(packets[i].payload, GMp4Bytes(1 + i % 3, static_cast<std::uint8_t>(i + 1)));
        EXPECT_EQ(packets[i].next.start, static_cast<REFERENCE_TIME>(i) * 100'000);
    }
}

struct GGroupCase {
    const char* what;
    GMp4TestTrack track;
    std::vector<std::size_t> sizes;
    std::vector<std::uint32_t> firstSamples;
};

TEST(Mp4Packets, SmallSamplesOfConstantSizeAreGroupedByTheirKind)
{
    GMp4TestTrack large = Packed({3, 2}, "mp4a");
    large.constantSize = 300;
    large.chunks = {GMp4Bytes(900), GMp4Bytes(600)};
    GMp4TestTrack medium = Packed({3, 2}, "mp4a");
    medium.constantSize = 256;
    medium.chunks = {GMp4Bytes(768), GMp4Bytes(512)};
    GMp4TestTrack blocks = Packed({128, 100}, "ima4");  // version 0: 64 samples in 34 bytes a channel
    blocks.constantSize = 1;
    const GGroupCase cases[] = {
        {"1024 at most, within a chunk", PcmSound({1500, 1024}), {4096, 1904, 4096}, {0, 1024, 1500}},
        {"above 256 bytes one by one", large, {300, 300, 300, 300, 300}, {0, 1, 2, 3, 4}},
        {"256 bytes still grouped", medium, {768, 512}, {0, 3}},
        {"blocks of version 0", blocks, {68, 68, 68, 68}, {0, 64, 128, 192}},
        {"blocks of version 1", Packed({12, 8}, "MAC3", 1, {4, 2, 6, 2}), {}, {}},  // has no media type
        {"blocks of a described size",
         Packed({12, 8}, "in24", 1, {4, 3, 12, 2}),
         {12, 12, 12, 12, 12},
         {0, 4, 8, 12, 16}},
        {"whole chunks", Packed({12, 8}, "sowt", 1, {4, 2, 6, 2}), {18, 12}, {0, 12}},
        {"a version 1 without samples in a packet", Packed({12, 8}, "sowt", 1), {48, 32}, {0, 12}},
    };
    for (const GGroupCase& one : cases) {
        const auto packets = ReadFile({.tracks = {one.track}});
        EXPECT_EQ(Sizes(packets), one.sizes) << one.what;
        std::vector<REFERENCE_TIME> starts;
        for (const std::uint32_t sample : one.firstSamples)
            starts.push_back(REFERENCE_TIME{sample} * kSecond / 44100);
        EXPECT_EQ(Starts(packets), starts) << one.what;
    }
}

TEST(Mp4Packets, BigEndianSoundIsSwappedAndRawPicturesAreTurned)
{
    GMp4TestTrack twos = PcmSound({2});
    twos.chunks[0] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(ReadFile({.tracks = {twos}}).at(0).payload, (GMp4Bytes{2, 1, 4, 3, 6, 5, 8, 7}));
    twos.entry = "raw ";
    EXPECT_EQ(ReadFile({.tracks = {twos}}).at(0).payload, (GMp4Bytes{2, 1, 4, 3, 6, 5, 8, 7}));
    twos.sound = {4, 8, 44100};
    EXPECT_EQ(ReadFile({.tracks = {twos}}).at(0).payload, twos.chunks[0]) << "8-bit samples have no order";

    GMp4TestTrack raw{
        .entry = "raw ", .picture = {2, 3, 24}, .stts = {{1, 40}}, .constantSize = 18, .constantCount = 1};
    raw.chunks = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}};
    EXPECT_EQ(ReadFile({.tracks = {raw}}).at(0).payload,
              (GMp4Bytes{15, 14, 13, 18, 17, 16, 9, 8, 7, 12, 11, 10, 3, 2, 1, 6, 5, 4}));
}

TEST(Mp4Order, TracksTakeTurnsWithinATenthOfASecondAndEndOneByOne)
{
    GMp4TestTrack slow = NumberedVideo(3, 1, 1);
    slow.stts = {{1, 90}, {2, 2'000'000'000}};  // far beyond what steps of the horizon may be counted up to
    GMp4TestTrack quick = NumberedVideo(4, 1, 2);
    quick.handler = "soun";
    quick.entry = "mp4a";
    GMp4Reading reading(GMp4TestFile{.tracks = {slow, quick}});
    const auto packets = reading.ReadAll();
    EXPECT_EQ(Fields(packets, &GNextPacket::stream), (std::vector<std::uint32_t>{1, 1, 2, 2, 2, 2, 1}));
    EXPECT_THAT(reading.Ended(), ElementsAre(2u, 1u));

    reading.Want({2});
    reading.Seek(0);
    EXPECT_EQ(reading.ReadAll().size(), 4u);
    EXPECT_THAT(reading.Ended(), ElementsAre(2u));
}

TEST(Mp4Order, OfTwoVideoTracksTheOneWithMoreChunksStays)
{
    GMp4Reading reading(GMp4TestFile{.tracks = {NumberedVideo(2, 1, 1), PcmSound({8}, 2), NumberedVideo(5, 1, 3)}});
    ASSERT_EQ(reading.Streams().size(), 2u);
    EXPECT_EQ(reading.Streams()[0].number, 2u);
    EXPECT_EQ(reading.Streams()[1].number, 3u);
    GMp4Reading equal(GMp4TestFile{.tracks = {NumberedVideo(2, 1, 1), NumberedVideo(2, 1, 3)}});
    ASSERT_EQ(equal.Streams().size(), 1u);
    EXPECT_EQ(equal.Streams()[0].number, 1u);
}

TEST(Mp4Arrival, AFileThatShrankIsWaitedForAndTheTimeItHoldsIsKnown)
{
    const GMp4Bytes body = HeaderFirst({.tracks = {NumberedVideo(50)}});
    const GTempFile file(body);
    GMp4Reading reading(file);
    ASSERT_TRUE(reading.IsOpen());
    EXPECT_EQ(reading.Handler().AvailableTime(), 2 * kSecond);
    file.Resize(body.size() - 65 - 64 - 63 - 62 - 1);  // the last five pictures are not whole
    const auto before = reading.ReadAvailable();
    ASSERT_EQ(before.size(), 45u);
    EXPECT_EQ(reading.Handler().AvailableTime(), 18 * kSecond / 10);
    GNextPacket next;
    EXPECT_EQ(reading.Announce(next), GReadStatus::Wait);
    file.Resize(body.size());
    EXPECT_EQ(reading.Handler().AvailableTime(), 2 * kSecond) << "also before the reader gets there";
    EXPECT_EQ(reading.ReadAvailable().size(), 5u);

    const GMp4Bytes sound = HeaderFirst({.tracks = {PcmSound({44'100, 44'100})}});
    const GMp4Bytes cut(sound.begin(), sound.end() - 3 * 22'050 * 2 - 1);
    EXPECT_EQ(GMp4Reading(cut).Handler().AvailableTime(), (88'200 - 33'076) * kSecond / 44'100);
}

}  // namespace
}  // namespace vex::test
