// Indexes: the same chunks whichever index names them, and none that a lying index makes up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

GAviTestFile TwoStreams(GAviTestIndex index, std::size_t parts)
{
    GAviTestFile file{.streams = {VideoStream(), PcmStream()}, .parts = {}, .index = index};
    std::uint8_t mark = 1;
    for (std::size_t part = 0; part < parts; ++part) {
        auto& chunks = file.parts.emplace_back();
        for (int i = 0; i < 3; ++i) {
            chunks.push_back(Chunk("00dc", 21, mark++, i == 0));
            chunks.push_back(Chunk("01wb", 32, mark++));
        }
    }
    return file;
}

TEST(AviIdx1, OffsetsFromTheMoviCodeAndFromTheFileGiveTheSamePackets)
{
    for (const std::size_t junk : {std::size_t{0}, std::size_t{30}}) {  // JUNK that the index leaves out
        GAviTestFile file = TwoStreams(GAviTestIndex::Idx1Relative, 1);
        file.junkBeforeData = junk;
        GAviReading relative(file.Build());
        file.index = GAviTestIndex::Idx1Absolute;
        GAviReading absolute(file.Build());
        ASSERT_TRUE(relative.Open() && absolute.Open());
        EXPECT_EQ(relative.Index(), "idx1");
        const auto packets = relative.ReadAll();
        EXPECT_THAT(Marks(OfStream(packets, kStream00)), ElementsAre(1, 3, 5));
        EXPECT_THAT(Marks(OfStream(packets, kStream01)), ElementsAre(2, 4, 6));
        EXPECT_THAT(KeyFlags(OfStream(packets, kStream00)), ElementsAre(true, false, false));
        EXPECT_EQ(Marks(packets), Marks(absolute.ReadAll()));
    }
}

TEST(AviIdx1, AnIndexInRecListsFindsTheChunksInThem)
{
    GAviTestFile file = TwoStreams(GAviTestIndex::Idx1Relative, 1);
    file.recLists = true;
    const auto packets = ReadFile(file.Build());
    EXPECT_THAT(Marks(OfStream(packets, kStream00)), ElementsAre(1, 3, 5));
}

TEST(AviIdx1, AnEntryThatGoesBackwardsIsDroppedAndOneThatRepeatsShowsTheChunkAgain)
{
    auto bytes = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
    const std::size_t entries = PositionOf(bytes, "idx1") + 8;
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(entries) + 16, 16,
                bytes.begin() + static_cast<std::ptrdiff_t>(entries) + 32);  // entry 2 repeats entry 1
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(entries), 16,
                bytes.begin() + static_cast<std::ptrdiff_t>(entries) + 48);  // entry 3 goes back to entry 0
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 2, 2));
    EXPECT_EQ(reading.Handler().Damage().count, 1u);
    EXPECT_EQ(reading.Handler().Damage().first, "idx1 entry goes backwards at byte " + std::to_string(entries + 48));
}

TEST(AviIdx1, AnIndexOfNoUseLeavesTheChunksToTheScan)
{
    const auto good = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
    const std::size_t idx1 = PositionOf(good, "idx1");
    const auto cut = [&](std::size_t size) {
        return std::vector(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    };

    auto foreign = good;  // its entries name streams that do not exist
    for (std::size_t entry = idx1 + 8; entry < foreign.size(); entry += 16)
        foreign[entry] = '7';
    auto oversize = good;
    for (const std::size_t byte : {idx1 + 4, idx1 + 5, idx1 + 6})
        oversize[byte] = 0xFF;

    for (const auto& bytes : {cut(idx1 + 8), cut(good.size() - 1), foreign, oversize}) {
        GAviReading reading(bytes);
        ASSERT_TRUE(reading.Open());
        EXPECT_EQ(reading.Index(), "none");
        EXPECT_EQ(Marks(reading.ReadAll()), Numbers(4));
        EXPECT_GE(reading.Handler().Damage().count, 1u);
    }
}

TEST(AviIdx1, HundredsOfThousandsOfEntriesForAHundredStreamsAreReadInOnePass)
{
    constexpr std::uint32_t kEntries = 600'000;
    GAviTestFile file{.streams = std::vector(100, VideoStream()), .parts = {{Chunk("00dc", 8, 7)}}};
    auto bytes = file.Build();
    const std::size_t idx1 = PositionOf(bytes, "idx1");
    GRiffBuilder index;
    for (std::uint32_t i = 0; i < kEntries; ++i) {
        index.Text(i % 2 != 0 ? "99dc" : "00dc");
        index.U32LE(0x10);
        index.U32LE(4);
        index.U32LE(0);
    }
    bytes.resize(idx1 + 8);
    bytes.insert(bytes.end(), index.Bytes().begin(), index.Bytes().end());
    for (int i = 0; i < 4; ++i)
        bytes[idx1 + 4 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(kEntries * 16 >> 8 * i);
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Handler().LongestStreamDuration(), kEntries / 2 / 25 * kSecond);
}

class AviOpenDml : public testing::TestWithParam<GAviTestIndex> {};
INSTANTIATE_TEST_SUITE_P(Kinds, AviOpenDml, testing::Values(GAviTestIndex::OpenDml, GAviTestIndex::OpenDmlFields));

TEST_P(AviOpenDml, ChunksOfAllRiffsAreReadThroughTheTwoLevelIndexWhichWinsOverIdx1)
{
    GAviReading reading(TwoStreams(GetParam(), 3).Build());  // has an idx1 of the first RIFF as well
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Index(), "OpenDML");
    const auto packets = reading.ReadAll();
    EXPECT_THAT(Marks(OfStream(packets, kStream00)), ElementsAre(1, 3, 5, 7, 9, 11, 13, 15, 17));
    EXPECT_THAT(Marks(OfStream(packets, kStream01)), ElementsAre(2, 4, 6, 8, 10, 12, 14, 16, 18));
    EXPECT_THAT(KeyFlags(OfStream(packets, kStream00)),
                ElementsAre(true, false, false, true, false, false, true, false, false));
    EXPECT_EQ(reading.Handler().Damage().count, 0u);
}

TEST(AviOpenDml, IsIgnoredInAFileOfOneRiff)
{
    auto bytes = TwoStreams(GAviTestIndex::OpenDml, 1).Build();
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Index(), "idx1");
    EXPECT_EQ(reading.ReadAll().size(), 6u);
}

// Two RIFFs with a super index for one stream. The index of the first part is at Index(0).
class AviLyingOpenDml : public testing::Test {
protected:
    AviLyingOpenDml()
    {
        file = NumberedVideo(3, GAviTestIndex::OpenDml);
        file.parts.push_back({Chunk("00dc", 20, 4), Chunk("00dc", 20, 5)});
        bytes = file.Build();
        super = PositionOf(bytes, "indx") + 8;
        standard = PositionOf(bytes, "ix00");
    }
    void Put(std::size_t position, std::uint64_t value, int count)
    {
        for (int i = 0; i < count; ++i)
            bytes[position + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> 8 * i);
    }

    GAviTestFile file;
    std::vector<std::uint8_t> bytes;
    std::size_t super = 0;
    std::size_t standard = 0;
};

TEST_F(AviLyingOpenDml, EntriesThatRepeatOrGoBackwardsAreDropped)
{
    Put(standard + 32 + 16, 0, 4);  // the third chunk moves to the front
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 2, 4, 5));
    EXPECT_EQ(reading.Handler().Damage().count, 1u);
}

TEST_F(AviLyingOpenDml, ACountBeyondTheIndexIsCutToWhatItHolds)
{
    Put(standard + 12, 0xFFFFFFFF, 4);
    Put(super + 4, 0x10000000, 4);
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(5));
    EXPECT_EQ(reading.Handler().Damage().count, 2u);
}

TEST_F(AviLyingOpenDml, AnIndexThatPointsAtItselfGivesNothingAndTheRestPlays)
{
    Put(super + 24, super - 8, 8);
    EXPECT_THAT(Marks(ReadFile(bytes)), ElementsAre(4, 5));
}

TEST_F(AviLyingOpenDml, ThousandsOfEntriesForOneIndexChunkCostNoMoreThanTheFile)
{
    GRiffBuilder riff;
    {
        const auto first = riff.Riff("AVI ");
        {
            const auto hdrl = riff.List("hdrl");
            const auto strl = riff.List("strl");
            {
                const auto strf = riff.Chunk("strf");
                riff.Append(BitmapFormat("XVID", 16, 16));
            }
            const auto indx = riff.Chunk("indx");
            riff.U32LE(0);
            riff.U32LE(50'000);
            riff.Zeros(16);
            for (int i = 0; i < 50'000; ++i) {
                riff.U64LE(1'000'000);
                riff.U32LE(400'000);
                riff.U32LE(1);
            }
        }
    }
    riff.Zeros(1'000'000 - riff.Position());
    {
        const auto ix = riff.Chunk("ix00");
        riff.U32LE(0x01000002);
        riff.U32LE(50'000);
        riff.Zeros(16);
        for (std::uint32_t i = 0; i < 50'000; ++i)
            riff.U64LE(i * 8);
    }
    GAviReading reading(riff.Bytes());
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Handler().LongestStreamDuration(), 50'000 * kSecond);  // each entry once
    EXPECT_LT(reading.Handler().Damage().count, 300'000u);
}

TEST_F(AviLyingOpenDml, AStandardIndexInTheHeaderIsReadAndTheScanAddsTheRest)
{
    // The super index becomes an index of chunks with one entry, for the first chunk.
    const std::size_t chunk = PositionOf(bytes, "00dc", PositionOf(bytes, "movi"));
    Put(super + 3, 1, 1);
    Put(super + 4, 1, 4);
    Put(super + 12, chunk, 8);
    Put(super + 20, 0, 4);
    Put(super + 24, 8, 4);
    Put(super + 28, 16 | 0x80000000u, 4);
    // Without it the idx1 would be read: there is none.
    Put(PositionOf(bytes, "idx1"), 'x', 1);
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Index(), "none");
    const auto packets = reading.ReadAll();
    EXPECT_EQ(Marks(packets), Numbers(5));
    EXPECT_FALSE(packets.at(0).next.keyFrame) << "the flag is that of the index";
}

TEST_F(AviLyingOpenDml, AnIndexBeyondTheEndIsRefusedAndTheScanFollowsTheFileToItsEnd)
{
    const std::size_t half = PositionOf(bytes, "00dc", PositionOf(bytes, "AVIX")) + 8 + 20;
    const std::vector<std::uint8_t> begun(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(half));
    const std::vector<std::uint8_t> rest(bytes.begin() + static_cast<std::ptrdiff_t>(half), bytes.end());
    GAviReading reading(begun);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Index(), "none");
    EXPECT_EQ(reading.Handler().Duration(), 5 * kSecond / 25) << "the super index has announced it";
    std::vector<GReadPacket> packets;
    reading.ReadUntil(packets, 4);
    reading.Disk().Append(rest);
    reading.ReadUntil(packets, 5);
    EXPECT_EQ(Marks(packets), Numbers(5));
    EXPECT_EQ(reading.ReadAll().size(), 0u);
    EXPECT_EQ(reading.Handler().LongestStreamDuration(), 5 * kSecond / 25);
}

}  // namespace
}  // namespace vex::test
