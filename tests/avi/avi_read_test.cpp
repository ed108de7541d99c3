// What a stream tells a pin, and what becomes of payloads that are not all there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "avi/avi_reading.h"
#include "media/codec_guids.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

CMediaType TypeOf(const GAviTestStream& stream)
{
    GAviReading reading(GAviTestFile{.streams = {stream}, .parts = {{}}}.Build());
    const auto& types = reading.Streams().front().mediaTypes;
    return types.empty() ? CMediaType() : types.front();
}

// All but the format block.
void ExpectType(const CMediaType& type, const GUID& major, const GUID& subtype, const GUID& format, ULONG sampleSize)
{
    EXPECT_EQ(type.majortype, major);
    EXPECT_EQ(type.subtype, subtype);
    EXPECT_EQ(type.formattype, format);
    EXPECT_EQ(type.lSampleSize, sampleSize);
    EXPECT_EQ(type.bFixedSizeSamples != FALSE, major == MEDIATYPE_Audio);
    EXPECT_EQ(type.bTemporalCompression != FALSE, major == MEDIATYPE_Video);
}

TEST(AviMediaType, VideoCarriesTheWholeFormatBehindAHeaderOfItsFrameTime)
{
    GAviTestStream stream = VideoStream("H264", 25);
    stream.format.insert(stream.format.end(), {1, 2, 3});
    stream.suggestedBufferSize = 1'000'000;
    const CMediaType type = TypeOf(stream);
    ExpectType(type, MEDIATYPE_Video, SubtypeFromFourCC(FourCC("H264")), FORMAT_VideoInfo, 2'000'000);
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
    ExpectType(type, MEDIATYPE_Audio, MEDIASUBTYPE_PCM, FORMAT_WaveFormatEx, 352'800);
    ASSERT_EQ(type.cbFormat, 16u);
    EXPECT_EQ(std::memcmp(type.pbFormat, stream.format.data(), 16), 0);
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
    video.format = BitmapFormat("XVID", INT32_MIN, INT32_MIN);  // 2^62 pixels
    EXPECT_EQ(TypeOf(video).lSampleSize, kLargest);
    video.format = BitmapFormat("XVID", 320, -240);  // top-down
    EXPECT_EQ(TypeOf(video).lSampleSize, 320u * 240u * 4u);
    video.suggestedBufferSize = 0xFFFFFFFF;
    EXPECT_EQ(TypeOf(video).lSampleSize, kLargest);
    GAviTestStream audio = PcmStream();
    audio.format = WaveFormat(1, 0x8000, 0x20000, 1, 1);  // 2^34, which is 0 in 32 bits
    EXPECT_EQ(TypeOf(audio).lSampleSize, kLargest);
}

// The entries of idx1, 16 bytes each: code, flags, offset, size.
std::vector<std::uint8_t> WithIndexField(std::vector<std::uint8_t> bytes, std::size_t entry, std::size_t field,
                                         std::uint32_t value)
{
    Put(bytes, PositionOf(bytes, "idx1") + 8 + 16 * entry + field, value);
    return bytes;
}

TEST(AviPayload, AChunkCutByTheEndOfTheFileIsDeliveredAsFarAsItGoes)
{
    const auto indexed = NumberedVideo(3, GAviTestIndex::Idx1Relative).Build();
    const auto scanned = NumberedVideo(3, GAviTestIndex::None).Build();
    const std::size_t there = indexed.size() - PositionOf(indexed, "idx1") + 18;
    struct GCut {
        std::vector<std::uint8_t> bytes;
        std::size_t delivered;
        std::uint64_t missing;
    };
    for (const GCut& cut :
         {GCut{WithIndexField(indexed, 2, 12, 100'000), there, 100'000 - there},
          GCut{WithIndexField(indexed, 2, 12, 0x7FFFFFF0), 0, 0x7FFFFFF0},  // more than a packet may have
          GCut{First(scanned, scanned.size() - 13), 5, 13}}) {
        GAviReading reading(cut.bytes);
        const auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), 3u);
        EXPECT_EQ(packets[2].delivered, cut.delivered > 0);
        EXPECT_THAT(packets[2].payload, testing::SizeIs(cut.delivered));
        EXPECT_LT(packets[2].capacity, 100'000u) << "room for what is not there";
        EXPECT_EQ(reading.Damage().count, 1u);
        EXPECT_EQ(reading.Damage().bytes, cut.missing);
    }
}

TEST(AviPayload, AChunkThatCannotAllBeReadIsDeliveredAsFarAsItGoes)
{
    GAviTestFile file{.streams = {VideoStream()}, .parts = {{}}, .index = GAviTestIndex::Idx1Relative};
    file.parts[0] = {Chunk("00dc", 10, 1), Chunk("00dc", 5000, 2), Chunk("00dc", 10, 3)};
    const auto bytes = file.Build();
    GAviReading reading(bytes);
    reading.LeavePayloads();
    reading.Watch().failFrom = static_cast<std::int64_t>(PositionOf(bytes, "idx1")) - 18 - 500;
    reading.Watch().failUntil = reading.Watch().failFrom + 1;
    const auto packets = reading.ReadAll();
    EXPECT_THAT(Marks(packets), ElementsAre(1, 2, 3));
    EXPECT_THAT(packets.at(1).payload, testing::SizeIs(4096)) << "what the pieces before the bad one hold";
    EXPECT_EQ(reading.Damage().bytes, 904u);
}

TEST(AviPayload, ChunksBeyondTheEndOfTheFileArePassedOverAndTheRestPlays)
{
    auto bytes = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
    bytes = WithIndexField(bytes, 1, 8, 1'000'000);
    bytes = WithIndexField(bytes, 2, 8, 2'000'000);
    bytes = WithIndexField(bytes, 3, 8, 0xFFFFFF00);
    GAviReading reading(bytes);
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(1));
    EXPECT_EQ(reading.Damage().count, 3u);
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
