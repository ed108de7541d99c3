// Where a seek lands.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/mp4_reading.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

REFERENCE_TIME Landing(GMp4Reading& reading, REFERENCE_TIME time, std::uint32_t stream = 1)
{
    EXPECT_EQ(reading.Seek(time), time);
    const auto own = OfStream(reading.ReadAll(), stream);
    return own.empty() ? -1 : own.front().next.start;
}

TEST(Mp4Seek, VideoGoesToTheSyncSampleAtOrBeforeTheTarget)
{
    GMp4TestTrack video = NumberedVideo(100, 12);
    GMp4Reading reading(GMp4TestFile{.tracks = {video}});
    for (const auto& [time, landing] : std::initializer_list<std::pair<REFERENCE_TIME, REFERENCE_TIME>>{
             {0, 0}, {4'799'999, 0}, {4'800'000, 4'800'000}, {30'000'000, 28'800'000}, {39'999'999, 38'400'000}}) {
        EXPECT_EQ(Landing(reading, time), landing) << time;
    }
    EXPECT_TRUE((reading.Seek(30'000'000), reading.Next()->next.keyFrame));

    video.stss = {11, 21};
    GMp4Reading late(GMp4TestFile{.tracks = {video}});
    EXPECT_EQ(Landing(late, 0), 4'000'000) << "before the first one: the first one";
    EXPECT_EQ(Landing(late, 30'000'000), 8'000'000) << "after the last one: the last one";
}

TEST(Mp4Seek, SoundGoesToTheSampleItselfButBlocksStartWhole)
{
    GMp4TestTrack sound = PcmSound({22050, 22050});
    GMp4Reading samples(GMp4TestFile{.tracks = {sound}});
    EXPECT_EQ(Landing(samples, 6'000'000, 2), 6'000'000);
    EXPECT_EQ(Sizes((samples.Seek(6'000'000), samples.ReadAll())).front(), 4096u);

    sound.entry = "in24";
    sound.version = 1;
    sound.packing = {50, 3, 300, 2};
    GMp4Reading blocks(GMp4TestFile{.tracks = {sound}});
    EXPECT_EQ(Landing(blocks, 6'000'050, 2), REFERENCE_TIME{26450} * kSecond / 44100);
    sound.entry = "sowt";
    GMp4Reading chunks(GMp4TestFile{.tracks = {sound}});
    EXPECT_EQ(Landing(chunks, 9'000'000, 2), kSecond / 2);
}

TEST(Mp4Seek, RunsThatLastNothingAndRunsThatMeetAreFound)
{
    GMp4TestTrack video = NumberedVideo(10);
    video.stsc = {{1, 5, 1}};
    video.chunks = {GMp4Bytes(90, 1), GMp4Bytes(115, 2)};
    video.stts = {{3, 0}, {2, 100}, {5, 10}};  // 0 0 0 0 100 | 200 210 220 230 240
    GMp4Reading reading(GMp4TestFile{.tracks = {video}});
    const auto left = [&](REFERENCE_TIME milliseconds) {
        reading.Seek(milliseconds * kMillisecond);
        return reading.ReadAll().size();
    };
    EXPECT_EQ(left(0), 10u);
    EXPECT_EQ(left(1), 7u);
    EXPECT_EQ(left(100), 6u);
    EXPECT_EQ(left(199), 6u);
    EXPECT_EQ(left(200), 5u);
    EXPECT_EQ(left(245), 1u);
    EXPECT_EQ(left(250), 0u);
}

TEST(Mp4Seek, ATrackThatIsTooShortEndsAtOnceUntilTheNextSeek)
{
    GMp4Reading reading(GMp4TestFile{.tracks = {NumberedVideo(50), PcmSound({8})}});
    const auto packets = reading.ReadFrom(kSecond);
    EXPECT_EQ(Starts(packets).front(), kSecond);
    EXPECT_THAT(OfStream(packets, 2), IsEmpty());
    EXPECT_THAT(reading.Ended(), ElementsAre(2u, 1u));
    EXPECT_EQ(OfStream(reading.ReadFrom(0), 2).size(), 1u);
}

TEST(Mp4Seek, ASeekReadsNothingButThePacketsBehindIt)
{
    GMp4Reading reading(
        GMp4TestFile{.tracks = {NumberedVideo(200, 10), PcmSound(std::vector<std::uint32_t>(100, 882))}});
    const std::uint64_t before = reading.Watch().reads;
    reading.Seek(kSecond);
    EXPECT_EQ(reading.Watch().reads, before);
    EXPECT_TRUE(reading.Next().has_value());
    EXPECT_LE(reading.Watch().reads - before, 1u);
}

}  // namespace
}  // namespace vex::test
