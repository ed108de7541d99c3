// What a stream tells a pin, and what becomes of payloads that are not all there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "avi/avi_reading.h"
#include "framework/media/codec_guids.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

CMediaType TypeOf(const GAviTestStream& stream)
{
    GAviReading reading(GAviTestFile{.streams = {stream}, .parts = {{}}}.Build());
    if (!reading.Open() || reading.Handler().Streams().size() != 1)
        return {};
    const auto& types = reading.Handler().Streams()[0].mediaTypes;
    return types.empty() ? CMediaType() : types.front();
}

TEST(AviMediaType, VideoCarriesTheWholeFormatBehindAHeaderOfItsFrameTime)
{
    GAviTestStream stream = VideoStream("H264", 25);
    stream.format.insert(stream.format.end(), {1, 2, 3});
    stream.suggestedBufferSize = 1'000'000;
    const CMediaType type = TypeOf(stream);
    EXPECT_EQ(type.majortype, MEDIATYPE_Video);
    EXPECT_EQ(type.subtype, SubtypeFromFourCC(FourCC("H264")));
    EXPECT_EQ(type.formattype, FORMAT_VideoInfo);
    EXPECT_EQ(type.lSampleSize, 2'000'000u);
    EXPECT_FALSE(type.bFixedSizeSamples);
    EXPECT_TRUE(type.bTemporalCompression);
    ASSERT_EQ(type.cbFormat, 48u + 43u);
    EXPECT_EQ(std::memcmp(type.pbFormat + 48, stream.format.data(), 43), 0);
    REFERENCE_TIME perFrame = 0;
    std::memcpy(&perFrame, type.pbFormat + 40, sizeof perFrame);
    EXPECT_EQ(perFrame, 400'000);
}

TEST(AviMediaType, AudioIsItsFormatAsItStandsAlsoWithoutTheSizeField)
{
    GAviTestStream stream = PcmStream(44'100);
    stream.format.resize(16);
    const CMediaType type = TypeOf(stream);
    EXPECT_EQ(type.majortype, MEDIATYPE_Audio);
    EXPECT_EQ(type.subtype, MEDIASUBTYPE_PCM);
    EXPECT_EQ(type.formattype, FORMAT_WaveFormatEx);
    EXPECT_EQ(type.cbFormat, 16u);
    EXPECT_EQ(type.lSampleSize, 352'800u);
    EXPECT_TRUE(type.bFixedSizeSamples);
    EXPECT_FALSE(type.bTemporalCompression);
}

TEST(AviMediaType, AStreamOfAnotherKindOrWithoutAFormatHasNone)
{
    EXPECT_FALSE(TypeOf({.type = "txts", .format = std::vector<std::uint8_t>(64)}).IsValid());
    for (std::size_t size = 0; size < 40; ++size) {
        GAviTestStream video = VideoStream();
        video.format.resize(size);
        EXPECT_FALSE(TypeOf(video).IsValid()) << size;
        GAviTestStream audio = PcmStream();
        audio.format.resize(size);
        EXPECT_EQ(TypeOf(audio).IsValid(), size >= 16) << size;
    }
}

TEST(AviMediaType, SizesThatNoPacketCanHaveDoNotBecomeBuffers)
{
    constexpr ULONG kLargest = 256u << 20;
    GAviTestStream video = VideoStream();
    video.format = BitmapFormat("XVID", 0x7FFFFFFF, -0x7FFFFFFF);
    EXPECT_EQ(TypeOf(video).lSampleSize, kLargest);
    video.format = BitmapFormat("XVID", 320, -240);  // top-down
    EXPECT_EQ(TypeOf(video).lSampleSize, 320u * 240u * 4u);
    video.suggestedBufferSize = 0xFFFFFFFF;
    EXPECT_EQ(TypeOf(video).lSampleSize, kLargest);
    GAviTestStream audio = PcmStream();
    audio.format = WaveFormat(1, 0xFFFF, 0xFFFFFFFF, 1, 1);
    EXPECT_EQ(TypeOf(audio).lSampleSize, kLargest);
}

TEST(AviStreams, AreNumberedByTheirDigitsInHeaderOrder)
{
    GAviReading reading(GAviTestFile{.streams = {PcmStream(), VideoStream(), PcmStream()}, .parts = {{}}}.Build());
    ASSERT_TRUE(reading.Open());
    std::vector<std::uint32_t> numbers;
    for (const GStreamInfo& info : reading.Handler().Streams())
        numbers.push_back(info.number);
    EXPECT_THAT(numbers, ElementsAre(kStream00, kStream01, kStream02));
}

// The entries of idx1, 16 bytes each: code, flags, offset, size.
void PatchIndex(std::vector<std::uint8_t>& bytes, std::size_t entry, std::size_t field, std::uint32_t value)
{
    const std::size_t position = PositionOf(bytes, "idx1") + 8 + 16 * entry + field;
    for (std::size_t i = 0; i < 4; ++i)
        bytes.at(position + i) = static_cast<std::uint8_t>(value >> 8 * i);
}

TEST(AviPayload, AChunkCutByTheEndOfTheFileIsDeliveredAsFarAsItGoes)
{
    auto indexed = NumberedVideo(3, GAviTestIndex::Idx1Relative).Build();
    const std::size_t there = indexed.size() - PositionOf(indexed, "idx1") + 18;
    PatchIndex(indexed, 2, 12, 0x7FFFFFF0);
    auto scanned = NumberedVideo(3, GAviTestIndex::None).Build();
    scanned.resize(scanned.size() - 13);

    for (const auto& [bytes, size] : {std::pair{indexed, std::size_t{0}}, std::pair{scanned, std::size_t{5}}}) {
        GAviReading reading(bytes);
        ASSERT_TRUE(reading.Open());
        const auto packets = reading.ReadAll();
        if (size == 0) {  // beyond what a packet may have
            EXPECT_FALSE(packets.at(2).delivered);
            continue;
        }
        EXPECT_EQ(Marks(packets), Numbers(3));
        EXPECT_EQ(packets[2].payload.size(), size);
        EXPECT_EQ(reading.Handler().Damage().bytes, 18u - size);
    }
    PatchIndex(indexed, 2, 12, 100'000);
    GAviReading reading(indexed);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.ReadAll().at(2).payload.size(), there);
    EXPECT_EQ(reading.Handler().Damage().count, 1u);
}

TEST(AviPayload, ChunksBeyondTheEndOfTheFileArePassedOverAndTheRestPlays)
{
    auto bytes = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
    PatchIndex(bytes, 1, 8, 1'000'000);
    PatchIndex(bytes, 2, 8, 2'000'000);
    PatchIndex(bytes, 3, 8, 0xFFFFFF00);
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(1));
    EXPECT_EQ(reading.Handler().Damage().count, 3u);
    EXPECT_EQ(reading.Handler().LongestStreamDuration(), 4 * kSecond / 25);
}

TEST(AviPayload, AChunkOfNoBytesIsAnnouncedAndTakesItsTime)
{
    for (const auto index : {GAviTestIndex::Idx1Relative, GAviTestIndex::None}) {
        GAviTestFile file{.streams = {VideoStream()}, .parts = {{}}, .index = index};
        file.parts[0] = {Chunk("00dc", 10, 1), Chunk("00dc", 0), Chunk("00dc", 10, 3)};
        const auto packets = ReadFile(file.Build());
        EXPECT_THAT(Marks(packets), ElementsAre(1, 0, 3));
        EXPECT_EQ(packets.at(1).next.size, 0u);
        EXPECT_EQ(packets.at(2).next.start, 2 * kSecond / 25);
    }
}

}  // namespace
}  // namespace vex::test
