// Files without a usable index: every packet plays, damage costs what it covers, and growth is followed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

void PutU32(std::vector<std::uint8_t>& bytes, std::size_t position, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes.at(position + static_cast<std::size_t>(i)) = static_cast<std::uint8_t>(value >> 8 * i);
}

// The header of data chunk `number`, from 0, of stream 00.
std::size_t ChunkPosition(const std::vector<std::uint8_t>& bytes, int number)
{
    std::size_t position = PositionOf(bytes, "00dc", PositionOf(bytes, "movi"));
    for (int i = 0; i < number; ++i)
        position = PositionOf(bytes, "00dc", position + 4);
    return position;
}

TEST(AviScan, Mpeg4KeyFramesAreToldFromThePayload)
{
    GAviTestFile file{.streams = {VideoStream("XVID"), PcmStream()}, .parts = {{}}, .index = GAviTestIndex::None};
    for (int i = 0; i < 6; ++i) {
        file.parts[0].push_back(Mpeg4Chunk("00dc", 40, i % 3 == 0));
        file.parts[0].push_back(Chunk("01wb", 64));
    }
    file.parts[0].push_back(Mpeg4Chunk("00dc", 8, true));  // too short to be one
    const auto packets = ReadFile(file.Build());
    EXPECT_THAT(KeyFlags(OfStream(packets, kStream00)), ElementsAre(true, false, false, true, false, false, false));
    EXPECT_THAT(KeyFlags(OfStream(packets, kStream01)), ElementsAre(true, true, true, true, true, true));
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
    {
        const auto movi = more.List("movi");
        const auto chunk = more.Chunk("00dc");
        more.U32LE(3);
    }
    bytes.insert(bytes.end(), more.Bytes().begin(), more.Bytes().end());
    PutU32(bytes, 4, static_cast<std::uint32_t>(bytes.size() - 8));
    EXPECT_EQ(Marks(ReadFile(bytes)), Numbers(3));
}

TEST(AviScan, AChunkSizeOfTwoGigabytesCostsThatChunkAndTheNextOnePlays)
{
    for (const std::uint32_t size : {0x7FFFFFFFu, 0xFFFFFFFFu, 0x00100000u}) {
        auto bytes = NumberedVideo(4, GAviTestIndex::None).Build();
        PutU32(bytes, ChunkPosition(bytes, 1) + 4, size);
        GAviReading reading(bytes);
        ASSERT_TRUE(reading.Open());
        EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 3, 4));
        EXPECT_EQ(reading.Handler().Damage().count, 1u);
        EXPECT_EQ(reading.Handler().Damage().bytes, 8u + 18u);
        EXPECT_EQ(reading.Handler().Damage().first,
                  "no chunk in the data at byte " + std::to_string(ChunkPosition(bytes, 1)));
    }
}

TEST(AviScan, AnOverwrittenHeaderIsSearchedBeyondAtAnyAlignmentAndAcrossSearchBlocks)
{
    for (const std::size_t hole : {std::size_t{17}, std::size_t{0x40000 - 8 - 2}, std::size_t{0x80001}}) {
        GAviTestFile file = NumberedVideo(1, GAviTestIndex::None);
        file.parts[0].push_back(Chunk("00dc", hole, 0xFF));
        file.parts[0].push_back(Chunk("00dc", 16, 3));
        auto bytes = file.Build();
        const std::size_t broken = ChunkPosition(bytes, 1);
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(broken), 8, 0xFF);
        EXPECT_THAT(Marks(ReadFile(bytes)), ElementsAre(1, 3));
        bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(broken));  // what follows stands at odd positions
        EXPECT_THAT(Marks(ReadFile(bytes)), ElementsAre(1, 3));
    }
}

TEST(AviScan, AnOversizeChunkThatFitsWhereItStandsIsTaken)
{
    GAviTestFile file = NumberedVideo(1, GAviTestIndex::None);
    file.parts[0].push_back(Chunk("00dc", 400'000, 2));  // 320 x 240 x 4 is less
    file.parts[0].push_back(Chunk("00dc", 16, 3));
    EXPECT_EQ(Marks(ReadFile(file.Build())), Numbers(3));
}

TEST(AviScan, ARecordingWhoseSizesWereNeverFilledInOpensAndPlays)
{
    for (const std::uint32_t unfilled : {0u, 0xFFFFFFFFu}) {
        auto bytes = NumberedVideo(4, GAviTestIndex::None).Build();
        PutU32(bytes, 4, unfilled);
        PutU32(bytes, PositionOf(bytes, "movi") - 4, unfilled);
        EXPECT_EQ(Marks(ReadFile(bytes)), Numbers(4));

        // The list alone: what follows it is told from data by its code.
        bytes = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
        PutU32(bytes, PositionOf(bytes, "movi") - 4, unfilled);
        GAviReading reading(bytes);
        ASSERT_TRUE(reading.Open());
        EXPECT_EQ(Marks(reading.ReadAll()), Numbers(4));
        EXPECT_EQ(reading.Handler().LongestStreamDuration(), 4 * kSecond / 25);
    }
}

TEST(AviScan, AFileThatGrowsByteByByteGivesEveryPacketWhole)
{
    GAviTestFile file = NumberedVideo(3, GAviTestIndex::None);
    file.parts.push_back({Chunk("00dc", 5, 4)});
    file.parts.push_back({Chunk("00dc", 9, 5), Chunk("00dc", 2, 6)});
    const auto bytes = file.Build();
    const std::size_t begun = PositionOf(bytes, "movi") + 4;
    const GTempFile growing{std::span(bytes).first(begun)};
    GAvi2ReadHandler handler(std::make_unique<GCacheFile>(),
                             {std::chrono::milliseconds(1), std::chrono::milliseconds(1)});
    ASSERT_TRUE(handler.Open(growing.Path()).Ok());
    std::size_t announced = 0;
    const auto drain = [&] {
        GNextPacket next;
        for (GReadStatus status = handler.ReadPacket(next); status != GReadStatus::End;
             status = handler.ReadPacket(next))
            announced += status == GReadStatus::Packet ? 1 : 0;
    };
    for (std::size_t at = begun; at < bytes.size(); ++at) {
        drain();
        growing.Append(std::span(bytes).subspan(at, 1));
    }
    while (announced < 6)
        drain();
    handler.Seek(0, GSeekMode::Independent);
    std::vector<int> marks;
    GNextPacket next;
    GPacket2 packet;
    while (handler.ReadPacket(next) == GReadStatus::Packet) {
        EXPECT_TRUE(handler.ReadPayload(packet));
        EXPECT_EQ(packet.data.Size(), next.size);
        marks.push_back(packet.data.Data()[0]);
    }
    EXPECT_EQ(marks, Numbers(6));
}

TEST(AviScan, ClosingWakesAScanThatWaitsForTheFileToGrow)
{
    const auto bytes = NumberedVideo(2, GAviTestIndex::None).Build();
    const std::size_t chunk = ChunkPosition(bytes, 1);
    for (const std::size_t size :
         {bytes.size(), chunk + 4, chunk + 8, chunk + 10}) {  // at a header, in it, in a payload
        const auto disk = std::make_shared<GMemoryDisk>(
            std::vector(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)));
        constexpr auto kForEver = std::chrono::hours(24);
        GAvi2ReadHandler handler(std::make_unique<GMemoryFile>(disk), {kForEver, kForEver});
        ASSERT_TRUE(handler.Open("memory").Ok());
        GNextPacket next;
        while (handler.ReadPacket(next) != GReadStatus::Packet) {}
        EXPECT_TRUE(handler.Open("memory").Ok());  // closes first
    }
}

TEST(AviScan, IndexesInAndBehindTheDataAreNotTakenForData)
{
    // 200 frames of at most 1024 bytes: both the index chunk at the end of the data, which names the code of the chunks,
    // and the idx1 behind it are larger than that.
    GAviTestFile file = NumberedVideo(200, GAviTestIndex::OpenDml);
    file.streams[0].format = BitmapFormat("XVID", 16, 16);
    auto bytes = file.Build();
    for (const std::size_t size : {std::size_t{4}, PositionOf(bytes, "movi") - 4})
        PutU32(bytes, size, 0);
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(200));
    EXPECT_EQ(reading.Handler().Damage().count, 0u);
}

// Opens `bytes` up to `begun`, and adds the rest when the handler has come to the end.
void ExpectGrowth(const std::vector<std::uint8_t>& bytes, std::size_t begun, int packetsBegun, int packetsAtLast)
{
    const auto cut = bytes.begin() + static_cast<std::ptrdiff_t>(begun);
    GAviReading reading(std::vector(bytes.begin(), cut));
    ASSERT_TRUE(reading.Open());
    auto packets = reading.ReadAll();
    EXPECT_EQ(Marks(packets), Numbers(packetsBegun));
    reading.Disk().Append({cut, bytes.end()});
    reading.ReadUntil(packets, static_cast<std::size_t>(packetsAtLast));
    EXPECT_EQ(Marks(packets), Numbers(packetsAtLast));
}

TEST(AviGrowth, AChunkOfWhichOnlyTheHeaderIsThereIsWaitedFor)
{
    const auto bytes = NumberedVideo(3, GAviTestIndex::None).Build();
    ExpectGrowth(bytes, ChunkPosition(bytes, 1) + 8, 1, 3);
}

TEST(AviGrowth, AContinuationOfWhichOnlyTheBeginningIsThereIsWaitedFor)
{
    GAviTestFile file = NumberedVideo(2, GAviTestIndex::None);
    file.parts.push_back({Chunk("00dc", 10, 3)});
    const auto bytes = file.Build();
    const std::size_t second = PositionOf(bytes, "AVIX") - 8;
    for (const std::size_t there : {std::size_t{3}, std::size_t{8}, std::size_t{12}, std::size_t{20}})
        ExpectGrowth(bytes, second + there, 2, 3);
}

TEST(AviGrowth, ARefusedIndexSaysHowFarTheFileIsToGrow)
{
    GAviTestFile file = NumberedVideo(2, GAviTestIndex::OpenDml);
    file.parts.push_back({Chunk("00dc", 10, 3)});
    auto bytes = file.Build();
    const std::size_t second = PositionOf(bytes, "AVIX") - 8;
    const std::string junk("JUNK\0\0\0\0", 8);  // with it the file has more than one RIFF, and is whole so far
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(second), junk.begin(), junk.end());
    ExpectGrowth(bytes, second + 8, 2, 3);
}

TEST(AviScan, AFileWithoutDataEndsAtOnce)
{
    GAviTestFile file = NumberedVideo(0, GAviTestIndex::None);
    auto bytes = file.Build();
    EXPECT_TRUE(ReadFile(bytes).empty());
    bytes.resize(PositionOf(bytes, "movi") - 8);  // not even the list
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_TRUE(reading.ReadAll().empty());
}

TEST(AviScan, ManyStreamsAndTinyChunksAllArrive)
{
    GAviTestFile file{.streams = std::vector(120, VideoStream()), .parts = {{}}, .index = GAviTestIndex::None};
    for (int i = 0; i < 3000; ++i) {
        const int stream = i % 100;
        const std::string code{static_cast<char>('0' + stream / 10), static_cast<char>('0' + stream % 10), 'd', 'c'};
        file.parts[0].push_back(Chunk(code, static_cast<std::size_t>(1 + i % 3), 9));
    }
    GAviReading reading(file.Build());
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Handler().Streams().size(), 101u) << "further streams have no chunk code";
    EXPECT_EQ(reading.ReadAll().size(), 3000u);
}

}  // namespace
}  // namespace vex::test
