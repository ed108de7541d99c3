// Where a seek lands, and which packet comes when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

// 20 s: video at 10 frames a second with a key frame every 25, and one chunk of 8000 Hz PCM per quarter of a second.
GAviTestFile TwentySeconds()
{
    GAviTestFile file{.streams = {VideoStream("XVID", 10), PcmStream(8000)}, .parts = {{}}};
    for (int quarter = 0; quarter < 80; ++quarter) {
        file.parts[0].push_back(Chunk("01wb", 8000));
        for (int frame = quarter * 10 / 4; frame < (quarter + 1) * 10 / 4; ++frame)
            file.parts[0].push_back(Chunk("00dc", 10, 1, frame % 25 == 0));
    }
    return file;
}

REFERENCE_TIME FirstStart(const std::vector<GReadPacket>& packets, std::uint32_t stream)
{
    const auto own = OfStream(packets, stream);
    return own.empty() ? -1 : own.front().next.start;
}

TEST(AviSeek, VideoGoesToTheKeyFrameAtOrBeforeTheWholeSecondAndBytesToTheirSecond)
{
    GAviReading reading(TwentySeconds().Build());
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Handler().Seek(129'000'000, GSeekMode::Independent), 129'000'000);
    const auto packets = reading.ReadAll();
    EXPECT_EQ(FirstStart(packets, kStream00), 10 * kSecond);
    EXPECT_EQ(FirstStart(packets, kStream01), 12 * kSecond);
}

TEST(AviSeek, AnAlignedSeekTakesTheKeyFrameAtOrAfterTheWholeSecondAndTheAudioOfThatSecond)
{
    GAviReading reading(TwentySeconds().Build());
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Handler().Seek(129'000'000, GSeekMode::KeyFrame), 125'000'000);
    const auto packets = reading.ReadAll();
    EXPECT_EQ(FirstStart(packets, kStream00), 125'000'000);
    EXPECT_TRUE(OfStream(packets, kStream00).front().next.keyFrame);
    EXPECT_EQ(FirstStart(packets, kStream01), 12 * kSecond);

    // Behind the last key frame there is none: the end is reached.
    EXPECT_EQ(reading.Handler().Seek(19 * kSecond, GSeekMode::KeyFrame), 20 * kSecond);
    EXPECT_TRUE(OfStream(reading.ReadAll(), kStream00).empty());
}

TEST(AviSeek, TimesOutsideTheFileLandAtItsEnds)
{
    GAviReading reading(TwentySeconds().Build());
    ASSERT_TRUE(reading.Open());
    const std::size_t all = reading.ReadAll().size();
    for (const REFERENCE_TIME time :
         {REFERENCE_TIME{0}, REFERENCE_TIME{-5}, std::numeric_limits<REFERENCE_TIME>::min()}) {
        reading.Handler().Seek(time, GSeekMode::KeyFrame);
        EXPECT_EQ(reading.ReadAll().size(), all);
    }
    reading.Handler().Seek(std::numeric_limits<REFERENCE_TIME>::max(), GSeekMode::Independent);
    const auto packets = reading.ReadAll();
    EXPECT_EQ(FirstStart(packets, kStream00), 175'000'000);
    EXPECT_EQ(OfStream(packets, kStream01).size(), 1u);
}

TEST(AviSeek, VideoWithoutKeyFlagsGoesToTheFrameItself)
{
    GAviTestFile file{.streams = {VideoStream("XVID", 10)}, .parts = {{}}};
    for (int i = 0; i < 50; ++i)
        file.parts[0].push_back(Chunk("00dc", 10, static_cast<std::uint8_t>(i), false));
    GAviReading reading(file.Build());
    ASSERT_TRUE(reading.Open());
    reading.Handler().Seek(39'999'999, GSeekMode::Independent);
    EXPECT_EQ(FirstStart(reading.ReadAll(), kStream00), 3 * kSecond);
}

TEST(AviSeek, BytesAreFoundAmongChunksOfVeryDifferentSizes)
{
    GAviTestFile file{.streams = {PcmStream(1000)}, .parts = {{}}};  // 4000 bytes a second
    for (const std::size_t size : {100u, 100u, 100u, 100u, 15'600u, 4000u, 10u, 10u, 10u})
        file.parts[0].push_back(Chunk("00wb", size));
    GAviReading reading(file.Build());
    ASSERT_TRUE(reading.Open());
    const auto startAfterSeek = [&](REFERENCE_TIME time) {
        reading.Handler().Seek(time, GSeekMode::Independent);
        return reading.ReadAll().front().next.start;
    };
    EXPECT_EQ(startAfterSeek(2 * kSecond), kSecond / 10);  // inside the large chunk
    // At the first byte of a chunk: found from behind, the one before it is taken.
    EXPECT_EQ(startAfterSeek(9 * kSecond / 2), kSecond / 10);
    EXPECT_EQ(startAfterSeek(5 * kSecond), 4 * kSecond);
}

TEST(AviClock, AVbrMp3StreamDeclaredByAByteRateCountsFrames)
{
    GAviTestStream mp3{.type = "auds", .rate = 16'000, .format = WaveFormat(0x55, 2, 44'100, 16'000, 1152)};
    GAviTestFile file{.streams = {mp3}, .parts = {{}}};
    for (int i = 0; i < 100; ++i)
        file.parts[0].push_back(Chunk("00wb", static_cast<std::size_t>(100 + i)));
    GAviReading reading(file.Build());
    ASSERT_TRUE(reading.Open());
    const auto packets = reading.ReadAll();
    EXPECT_EQ(packets.at(1).next.start, 261'224);  // 1152 / 44100 s
    EXPECT_EQ(packets.at(99).next.stop, 26'122'448);
    reading.Handler().Seek(2 * kSecond, GSeekMode::Independent);
    EXPECT_EQ(reading.ReadAll().size(), 100u - 76u);
}

TEST(AviClock, BytesCountWhenTheRateIsTooHighForBlocks)
{
    GAviTestStream audio{.type = "auds", .rate = 2000, .format = WaveFormat(0x2000, 2, 48'000, 2000, 1)};
    GAviTestFile file{.streams = {audio}, .parts = {{Chunk("00wb", 1000), Chunk("00wb", 500)}}};
    const auto packets = ReadFile(file.Build());
    EXPECT_EQ(packets.at(1).next.start, kSecond / 2);
    EXPECT_EQ(packets.at(1).next.stop, 3 * kSecond / 4);
}

TEST(AviClock, ADurationComesFromTheHeaderOrTheLongerStream)
{
    GAviTestFile file = NumberedVideo(50, GAviTestIndex::Idx1Relative);
    file.totalFrames = 75;
    GAviReading declared(file.Build());
    ASSERT_TRUE(declared.Open());
    EXPECT_EQ(declared.Handler().Duration(), 3 * kSecond);
    EXPECT_EQ(declared.Handler().LongestStreamDuration(), 2 * kSecond);
    file.totalFrames = 25;
    GAviReading counted(file.Build());
    ASSERT_TRUE(counted.Open());
    EXPECT_EQ(counted.Handler().Duration(), 2 * kSecond);
}

TEST(AviClock, RatesThatAreNoRatesStillPlay)
{
    struct GRate {
        std::uint32_t scale;
        std::uint32_t rate;
        REFERENCE_TIME second;  // start of the second chunk
    };
    for (const GRate& r : {GRate{0, 25, kSecond}, GRate{1, 0, 0}, GRate{1, 0xFFFFFFFF, 0},
                           GRate{0xFFFFFFFF, 1, 4'294'967'295 * kSecond}}) {
        GAviTestFile file = NumberedVideo(3, GAviTestIndex::Idx1Relative);
        file.streams[0].scale = r.scale;
        file.streams[0].rate = r.rate;
        GAviReading reading(file.Build());
        ASSERT_TRUE(reading.Open());
        const auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), 3u);
        EXPECT_EQ(packets[1].next.start, r.second);
        reading.Handler().Seek(kSecond, GSeekMode::KeyFrame);
        EXPECT_LE(reading.ReadAll().size(), 3u);
    }
}

TEST(AviInterleave, AudioIsReadOneSecondAheadAndTheFirstStreamWinsATie)
{
    // Four frames a second beside two audio streams of one chunk a second each, all starting at 0.
    GAviTestStream audio{.type = "auds", .rate = 1, .format = WaveFormat(0x2000, 2, 48'000, 16'000, 1)};
    GAviTestFile file{.streams = {VideoStream("XVID", 4), audio, audio}, .parts = {{}}};
    for (int i = 0; i < 8; ++i)
        file.parts[0].push_back(Chunk("00dc", 4, static_cast<std::uint8_t>(0x10 + i)));
    for (int i = 0; i < 3; ++i)
        file.parts[0].push_back(Chunk("01wb", 4, static_cast<std::uint8_t>(0x20 + i)));
    for (int i = 0; i < 3; ++i)
        file.parts[0].push_back(Chunk("02wb", 4, static_cast<std::uint8_t>(0x30 + i)));
    EXPECT_THAT(Marks(ReadFile(file.Build())), ElementsAre(0x20, 0x30,        // due at -1 s
                                                           0x10, 0x21, 0x31,  // at 0 s: a tie
                                                           0x11, 0x12, 0x13,  //
                                                           0x14, 0x22, 0x32,  // at 1 s
                                                           0x15, 0x16, 0x17));
}

}  // namespace
}  // namespace vex::test
