// Where a seek lands, and which packet comes when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

REFERENCE_TIME FirstStart(const std::vector<GReadPacket>& packets, std::uint32_t stream = kStream00)
{
    const auto own = OfStream(packets, stream);
    return own.empty() ? -1 : own.front().next.start;
}

// 20 s: video at 10 frames a second with a key frame every 25, and one chunk of 8000 Hz PCM per quarter of a second.
class AviSeek : public testing::Test {
protected:
    static std::vector<std::uint8_t> TwentySeconds()
    {
        GAviTestFile file{.streams = {VideoStream("XVID", 10), PcmStream(8000)}, .parts = {{}}};
        for (int quarter = 0; quarter < 80; ++quarter) {
            file.parts[0].push_back(Chunk("01wb", 8000));
            for (int frame = quarter * 10 / 4; frame < (quarter + 1) * 10 / 4; ++frame)
                file.parts[0].push_back(Chunk("00dc", 10, 1, frame % 25 == 0));
        }
        return file.Build();
    }
    GAviReading reading{TwentySeconds()};
};

TEST_F(AviSeek, VideoGoesToTheKeyFrameAtOrBeforeTheWholeSecondAndBytesToTheirSecond)
{
    EXPECT_EQ(reading.Seek(129'000'000, GSeekMode::Independent), 129'000'000);
    const auto packets = reading.ReadAll();
    EXPECT_EQ(FirstStart(packets, kStream00), 10 * kSecond);
    EXPECT_EQ(FirstStart(packets, kStream01), 12 * kSecond);
}

TEST_F(AviSeek, AnAlignedSeekTakesTheKeyFrameAtOrAfterTheWholeSecondAndTheAudioOfThatSecond)
{
    EXPECT_EQ(reading.Seek(129'000'000, GSeekMode::KeyFrame), 125'000'000);
    const auto packets = reading.ReadAll();
    EXPECT_EQ(FirstStart(packets, kStream00), 125'000'000);
    EXPECT_TRUE(OfStream(packets, kStream00).front().next.keyFrame);
    EXPECT_EQ(FirstStart(packets, kStream01), 12 * kSecond);

    // Behind the last key frame there is none: the end is reached.
    EXPECT_EQ(reading.Seek(19 * kSecond, GSeekMode::KeyFrame), 20 * kSecond);
    EXPECT_TRUE(OfStream(reading.ReadAll(), kStream00).empty());
}

TEST_F(AviSeek, TimesOutsideTheFileLandAtItsEnds)
{
    for (const REFERENCE_TIME time :
         {REFERENCE_TIME{0}, REFERENCE_TIME{-5}, std::numeric_limits<REFERENCE_TIME>::min()})
        EXPECT_EQ(reading.ReadFrom(time, GSeekMode::KeyFrame).size(), 280u);
    const auto packets = reading.ReadFrom(std::numeric_limits<REFERENCE_TIME>::max());
    EXPECT_EQ(FirstStart(packets, kStream00), 175'000'000);
    EXPECT_EQ(OfStream(packets, kStream01).size(), 1u);
}

// One stream and its chunks, with an idx1.
GAviReading ReadingOf(const GAviTestStream& stream, const std::vector<GAviTestChunk>& chunks)
{
    return GAviReading(GAviTestFile{.streams = {stream}, .parts = {chunks}}.Build());
}

TEST(AviSeekPlace, VideoWithoutKeyFlagsGoesToTheFrameItself)
{
    GAviReading reading = ReadingOf(VideoStream("XVID", 10), std::vector(50, Chunk("00dc", 10, 1, false)));
    EXPECT_EQ(FirstStart(reading.ReadFrom(39'999'999)), 3 * kSecond);
}

TEST(AviSeekPlace, BytesAreFoundAmongChunksOfVeryDifferentSizes)
{
    std::vector<GAviTestChunk> chunks;
    for (const std::size_t size : {100u, 100u, 100u, 100u, 15'600u, 4000u, 10u, 10u, 10u})
        chunks.push_back(Chunk("00wb", size));
    GAviReading reading = ReadingOf(PcmStream(1000), chunks);            // 4000 bytes a second
    EXPECT_EQ(FirstStart(reading.ReadFrom(2 * kSecond)), kSecond / 10);  // inside the large chunk
    // At the first byte of a chunk: found from behind, the one before it is taken.
    EXPECT_EQ(FirstStart(reading.ReadFrom(9 * kSecond / 2)), kSecond / 10);
    EXPECT_EQ(FirstStart(reading.ReadFrom(5 * kSecond)), 4 * kSecond);
}

TEST(AviClock, AVbrMp3StreamDeclaredByAByteRateCountsFrames)
{
    std::vector<GAviTestChunk> chunks;
    for (std::size_t size = 100; size < 200; ++size)
        chunks.push_back(Chunk("00wb", size));
    GAviReading reading =
        ReadingOf({.type = "auds", .rate = 16'000, .format = WaveFormat(0x55, 2, 44'100, 16'000, 1152)}, chunks);
    const auto packets = reading.ReadAll();
    EXPECT_EQ(packets.at(1).next.start, 261'224);  // 1152 / 44100 s
    EXPECT_EQ(packets.at(99).next.stop, 26'122'448);
    EXPECT_EQ(reading.ReadFrom(2 * kSecond).size(), 100u - 76u);
}

TEST(AviClock, BytesCountWhenTheRateIsTooHighForBlocks)
{
    const auto packets = ReadingOf({.type = "auds", .rate = 2000, .format = WaveFormat(0x2000, 2, 48'000, 2000, 1)},
                                   {Chunk("00wb", 1000), Chunk("00wb", 500)})
                             .ReadAll();
    EXPECT_EQ(packets.at(1).next.start, kSecond / 2);
    EXPECT_EQ(packets.at(1).next.stop, 3 * kSecond / 4);
}

TEST(AviClock, ADurationComesFromTheHeaderOrTheLongerStream)
{
    GAviTestFile file = NumberedVideo(50, GAviTestIndex::Idx1Relative);
    for (const std::uint32_t declared : {75u, 25u}) {
        file.totalFrames = declared;
        GAviReading reading(file.Build());
        EXPECT_EQ(reading.Handler().Duration(), std::max(declared, 50u) / 25 * kSecond);
        EXPECT_EQ(reading.Handler().LongestStreamDuration(), 2 * kSecond);
    }
}

TEST(AviClock, RatesThatAreNoRatesStillPlay)
{
    // Scale, rate, and where the second chunk starts.
    for (const auto& [scale, rate, second] :
         {std::tuple{0u, 25u, kSecond}, std::tuple{1u, 0u, REFERENCE_TIME{0}}, std::tuple{1u, ~0u, REFERENCE_TIME{0}},
          std::tuple{~0u, 1u, 4'294'967'295 * kSecond}}) {
        GAviTestFile file = NumberedVideo(3, GAviTestIndex::Idx1Relative);
        file.streams[0].scale = scale;
        file.streams[0].rate = rate;
        GAviReading reading(file.Build());
        const auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), 3u);
        EXPECT_EQ(packets[1].next.start, second);
        EXPECT_LE(reading.ReadFrom(kSecond, GSeekMode::KeyFrame).size(), 3u);
    }
}

TEST(AviInterleave, AudioIsReadOneSecondAheadAndTheFirstStreamWinsATie)
{
    // Four frames a second beside two audio streams of one chunk a second each, all starting at 0.
    GAviTestStream audio{.type = "auds", .rate = 1, .format = WaveFormat(0x2000, 2, 48'000, 16'000, 1)};
    GAviTestFile file{.streams = {VideoStream("XVID", 4), audio, audio}, .parts = {{}}};
    for (std::uint8_t i = 0; i < 8; ++i)
        file.parts[0].push_back(Chunk("00dc", 4, static_cast<std::uint8_t>(0x10 + i)));
    for (std::uint8_t i = 0; i < 3; ++i) {
        file.parts[0].push_back(Chunk("01wb", 4, static_cast<std::uint8_t>(0x20 + i)));
        file.parts[0].push_back(Chunk("02wb", 4, static_cast<std::uint8_t>(0x30 + i)));
    }
    EXPECT_THAT(Marks(ReadFile(file.Build())), ElementsAre(0x20, 0x30,        // due at -1 s
                                                           0x10, 0x21, 0x31,  // at 0 s: a tie
                                                           0x11, 0x12, 0x13,  //
                                                           0x14, 0x22, 0x32,  // at 1 s
                                                           0x15, 0x16, 0x17));
}

}  // namespace
}  // namespace vex::test
