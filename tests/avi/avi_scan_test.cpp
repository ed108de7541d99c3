// Files without a usable index: every packet plays, damage costs what it covers, and growth is followed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

// The header of data chunk `number`, from 0, of stream 00.
std::size_t ChunkPosition(const std::vector<std::uint8_t>& bytes, int number)
{
    std::size_t position = PositionOf(bytes, "00dc", PositionOf(bytes, "movi"));
    for (int i = 0; i < number; ++i)
        position = PositionOf(bytes, "00dc", position + 4);
    return position;
}

// Sizes as a recorder leaves them that never came to fill them in.
void UnfillSizes(std::vector<std::uint8_t>& bytes, std::uint32_t unfilled)
{
    Put(bytes, 4, unfilled);
    Put(bytes, PositionOf(bytes, "movi") - 4, unfilled);
}

TEST(AviScan, Mpeg4KeyFramesAreToldFromThePayload)
{
    GAviTestFile file{.streams = {VideoStream("XVID"), PcmStream()}, .parts = {{}}, .index = GAviTestIndex::None};
    for (const bool keyFrame : {true, false, false, true}) {
        file.parts[0].push_back(Mpeg4Chunk("00dc", 9, keyFrame));
        file.parts[0].push_back(Chunk("01wb", 64));
    }
    file.parts[0].push_back(Mpeg4Chunk("00dc", 8, true));  // too short to be one
    const auto packets = ReadFile(file.Build());
    EXPECT_THAT(KeyFlags(OfStream(packets, kStream00)), ElementsAre(true, false, false, true, false));
    EXPECT_THAT(KeyFlags(OfStream(packets, kStream01)), ElementsAre(true, true, true, true));
}

TEST(AviScan, ChunksInRecListsAndInAllContinuationsAreFound)
{
    GAviTestFile file = NumberedVideo(2, GAviTestIndex::None);
    file.recLists = true;
    file.junkBeforeData = 500'000;  // more than any chunk may have
    file.parts.push_back({Chunk("00dc", 5, 3)});
    file.parts.push_back({Chunk("00dc", 7, 4), Chunk("00dc", 9, 5)});
    EXPECT_EQ(Marks(ReadFile(file.Build())), Numbers(5));
}

TEST(AviScan, ASecondMoviListOfTheSameRiffIsFound)
{
    auto bytes = NumberedVideo(2, GAviTestIndex::None).Build();
    GRiffBuilder more;
    more.List("movi", [&] { more.Chunk("00dc", [&] { more.U32LE(3); }); });
    bytes.insert(bytes.end(), more.Bytes().begin(), more.Bytes().end());
    Put(bytes, 4, bytes.size() - 8);
    EXPECT_EQ(Marks(ReadFile(bytes)), Numbers(3));
}

TEST(AviScan, AChunkSizeOfTwoGigabytesCostsThatChunkAndTheNextOnePlays)
{
    for (const std::uint32_t size : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x00100000u}) {
        auto bytes = NumberedVideo(5, GAviTestIndex::None).Build();
        Put(bytes, ChunkPosition(bytes, 1) + 4, size);
        Put(bytes, ChunkPosition(bytes, 2) + 4, size);
        GAviReading reading(bytes);
        EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 4, 5));
        EXPECT_EQ(reading.Damage().count, 2u);
        EXPECT_EQ(reading.Damage().bytes, 8u + 18u + 8u + 18u);
        EXPECT_EQ(reading.Damage().first, "no chunk in the data at byte " + std::to_string(ChunkPosition(bytes, 1)));
    }
}

TEST(AviScan, AnOverwrittenHeaderIsSearchedBeyondAtAnyAlignmentAndAcrossSearchBlocks)
{
    for (const std::size_t hole : {std::size_t{17}, std::size_t{0x40000 - 8 - 2}, std::size_t{0x80001}}) {
        GAviTestFile file = NumberedVideo(1, GAviTestIndex::None);
        file.parts[0].push_back(Chunk("00dc", hole, 0xFF));
        file.parts[0].push_back(Chunk("00dc", 16, 3));
        auto bytes = file.Build();
        EXPECT_THAT(Marks(ReadFile(bytes)), ElementsAre(1, 0xFF, 3)) << "the last size is more than a chunk may have";
        const std::size_t broken = ChunkPosition(bytes, 1);
        Put(bytes, broken, ~std::uint64_t{0}, 8);
        EXPECT_THAT(Marks(ReadFile(bytes)), ElementsAre(1, 3));
        bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(broken));  // what follows stands at odd positions
        EXPECT_THAT(Marks(ReadFile(bytes)), ElementsAre(1, 3));
    }
}

TEST(AviScan, ARecordingWhoseSizesWereNeverFilledInOpensAndPlays)
{
    for (const std::uint32_t unfilled : {0u, 0xFFFFFFFFu}) {
        GAviTestFile file = NumberedVideo(4, GAviTestIndex::None);
        file.parts.push_back({Chunk("00dc", 5, 5)});
        file.parts.push_back({Chunk("00dc", 7, 6)});
        auto bytes = file.Build();
        UnfillSizes(bytes, unfilled);
        Put(bytes, PositionOf(bytes, "AVIX") - 4, unfilled);
        EXPECT_EQ(Marks(ReadFile(bytes)), Numbers(6));

        // The list alone: what follows it is told from data by its code.
        bytes = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
        Put(bytes, PositionOf(bytes, "movi") - 4, unfilled);
        GAviReading reading(bytes);
        EXPECT_EQ(Marks(reading.ReadAll()), Numbers(4));
        EXPECT_EQ(reading.Handler().LongestStreamDuration(), 4 * kSecond / 25);
    }
}

TEST(AviScan, IndexesInAndBehindTheDataAreNotTakenForData)
{
    // 200 frames of at most 1024 bytes: both the index chunk at the end of the data, which names the code of the
    // chunks, and the idx1 behind it are larger than that.
    GAviTestFile file = NumberedVideo(200, GAviTestIndex::OpenDml);
    file.streams[0].format = BitmapFormat("XVID", 16, 16);
    auto bytes = file.Build();
    UnfillSizes(bytes, 0);
    GAviReading reading(bytes);
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(200));
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(AviScan, AReadThatFailsForAMomentCostsNothing)
{
    GAviTestFile file{.streams = {VideoStream("XVID")}, .parts = {{}, {}}, .index = GAviTestIndex::None};
    file.recLists = true;
    for (const bool keyFrame : {true, false, true, true})
        for (auto& part : file.parts)
            part.push_back(Mpeg4Chunk("00dc", 20, keyFrame));
    auto bytes = file.Build();
    const std::size_t lied = PositionOf(bytes, "00dc", PositionOf(bytes, "00dc", PositionOf(bytes, "movi")) + 4);
    Put(bytes, lied + 4, 0x7FFFFFFF);
    const auto disk = std::make_shared<GMemoryDisk>(bytes);
    GSourceWatch watch;
    std::atomic<int> countdown{0};
    watch.onRead = [&](bool ofTheScan) { return ofTheScan && countdown-- == 0; };
    int failures = 0;
    for (; failures == 0 || countdown < 0; ++failures) {
        countdown = failures;
        GAviReading reading(std::make_unique<GWatchedSource>(std::make_unique<GMemoryFile>(disk), watch));
        EXPECT_THAT(KeyFlags(reading.ReadAll()), ElementsAre(true, true, true, true, false, true, true))
            << "read " << failures;
        EXPECT_EQ(reading.Damage().count, 1u);
    }
    EXPECT_GT(failures, 20);
}

TEST(AviScan, ManyStreamsAndTinyChunksAllArrive)
{
    GAviTestFile file{.streams = std::vector(120, VideoStream()), .parts = {{}}, .index = GAviTestIndex::None};
    for (std::size_t i = 0; i < 101; ++i)
        for (const std::size_t size : {1u, 2u, 3u})
            file.parts[0].push_back(Chunk(AviStreamCode(i) + "dc", size));
    GAviReading reading(file.Build());
    EXPECT_EQ(reading.Streams().size(), 101u) << "further streams have no chunk code";
    EXPECT_EQ(reading.ReadAll().size(), 303u);
}

TEST(AviGrowth, AFileThatGrowsByteByByteGivesEveryPacketWhole)
{
    GAviTestFile file = NumberedVideo(3, GAviTestIndex::None);
    file.parts.push_back({Chunk("00dc", 5, 4)});
    file.parts.push_back({Chunk("00dc", 9, 5), Chunk("00dc", 2, 6)});
    const auto bytes = file.Build();
    const std::size_t begun = PositionOf(bytes, "movi") + 4;
    const GTempFile growing{std::span(bytes).first(begun)};
    GAviReading reading(growing);
    std::size_t announced = 0;
    for (std::size_t at = begun; at < bytes.size(); ++at) {
        announced += reading.ReadAll().size();
        growing.Append(std::span(bytes).subspan(at, 1));
    }
    while (announced < 6)
        announced += reading.ReadAll().size();
    const auto packets = reading.ReadFrom(0);
    EXPECT_EQ(Marks(packets), Numbers(6));
    for (const GReadPacket& packet : packets)
        EXPECT_EQ(packet.payload.size(), packet.next.size);
}

TEST(AviGrowth, ClosingWakesAScanThatWaitsForTheFileToGrow)
{
    const auto bytes = NumberedVideo(2, GAviTestIndex::None).Build();
    const std::size_t chunk = ChunkPosition(bytes, 1);
    for (const std::size_t size :
         {bytes.size(), chunk + 4, chunk + 8, chunk + 10}) {  // at a header, in it, in a payload
        GAviReading reading(First(bytes, size), std::chrono::hours(24));
        EXPECT_TRUE(reading.Next());
        EXPECT_TRUE(reading.Handler().Open("memory").Ok());  // closes first
    }
}

// Opens `bytes` up to `begun`, and adds the rest when the handler has come to the end. There are four packets at last.
void ExpectGrowth(const std::vector<std::uint8_t>& bytes, std::size_t begun, int packetsBegun)
{
    GAviReading reading(First(bytes, begun));
    EXPECT_EQ(reading.Index(), "none");
    auto packets = reading.ReadAll();
    EXPECT_EQ(Marks(packets), Numbers(packetsBegun));
    reading.Append(std::span(bytes).subspan(begun));
    while (packets.size() < 4) {
        for (const GReadPacket& packet : reading.ReadAll())
            packets.push_back(packet);
        std::this_thread::yield();
    }
    EXPECT_EQ(Marks(packets), Numbers(4));
    EXPECT_EQ(reading.Handler().LongestStreamDuration(), 4 * kSecond / 25);
}

TEST(AviGrowth, AnIndexBeyondTheEndIsRefusedAndSaysHowFarTheFileIsToGrow)
{
    GAviTestFile file = NumberedVideo(2, GAviTestIndex::OpenDml);
    file.parts.push_back({Chunk("00dc", 10, 3), Chunk("00dc", 10, 4)});
    auto bytes = file.Build();
    const std::size_t half = PositionOf(bytes, "00dc", PositionOf(bytes, "AVIX")) + 8 + 10;
    ExpectGrowth(bytes, half, 3);
    EXPECT_EQ(GAviReading(First(bytes, half)).Handler().Duration(), 4 * kSecond / 25) << "as the super index announces";

    const std::size_t second = PositionOf(bytes, "AVIX") - 8;
    const std::string junk("JUNK\0\0\0\0", 8);  // with it the file has more than one RIFF, and is whole so far
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(second), junk.begin(), junk.end());
    ExpectGrowth(bytes, second + 8, 2);
}

}  // namespace
}  // namespace vex::test
