// Indexes: the same chunks whichever index names them, and none that a lying index makes up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;

// Three pictures, the first of which is a key frame, and three chunks of sound in every part, marked from 1 on in turn.
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

void ExpectTwoStreams(const GAviTestFile& file, const std::string& index)
{
    GAviReading reading(file.Build());
    EXPECT_EQ(reading.Index(), index);
    const auto packets = reading.ReadAll();
    std::vector<int> video;
    std::vector<int> audio;
    std::vector<bool> keys;
    for (int i = 0; i < 3 * static_cast<int>(file.parts.size()); ++i) {
        video.push_back(2 * i + 1);
        audio.push_back(2 * i + 2);
        keys.push_back(i % 3 == 0);
    }
    EXPECT_EQ(Marks(OfStream(packets, kStream00)), video);
    EXPECT_EQ(Marks(OfStream(packets, kStream01)), audio);
    EXPECT_EQ(KeyFlags(OfStream(packets, kStream00)), keys);
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(AviIndex, OffsetsFromTheMoviCodeAndFromTheFileGiveTheSamePackets)
{
    for (const auto index : {GAviTestIndex::Idx1Relative, GAviTestIndex::Idx1Absolute}) {
        GAviTestFile file = TwoStreams(index, 1);
        ExpectTwoStreams(file, "idx1");
        file.junkBeforeData = 30;  // which the index leaves out
        ExpectTwoStreams(file, "idx1");
        file.recLists = true;
        ExpectTwoStreams(file, "idx1");
    }
}

TEST(AviIndex, TheTwoLevelIndexCoversAllRiffsAndWinsOverIdx1ButNotInAFileOfOneRiff)
{
    for (const auto index : {GAviTestIndex::OpenDml, GAviTestIndex::OpenDmlFields}) {  // with an idx1 of the first RIFF
        ExpectTwoStreams(TwoStreams(index, 3), "OpenDML");
        ExpectTwoStreams(TwoStreams(index, 1), "idx1");
    }
}

TEST(AviIdx1, AnEntryThatGoesBackwardsIsDroppedAndOneThatRepeatsShowsTheChunkAgain)
{
    auto bytes = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
    const std::size_t entries = PositionOf(bytes, "idx1") + 8;
    const auto entry = bytes.begin() + static_cast<std::ptrdiff_t>(entries);
    std::copy_n(entry + 16, 16, entry + 32);  // entry 2 repeats entry 1
    std::copy_n(entry, 16, entry + 48);       // entry 3 goes back to entry 0
    GAviReading reading(bytes);
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 2, 2));
    EXPECT_EQ(reading.Damage().count, 1u);
    EXPECT_EQ(reading.Damage().first, "idx1 entry goes backwards at byte " + std::to_string(entries + 48));
}

TEST(AviIdx1, AnIndexOfNoUseLeavesTheChunksToTheScan)
{
    const auto good = NumberedVideo(4, GAviTestIndex::Idx1Relative).Build();
    const std::size_t idx1 = PositionOf(good, "idx1");
    auto foreign = good;  // its entries name streams that do not exist
    for (std::size_t entry = idx1 + 8; entry < foreign.size(); entry += 16)
        foreign[entry] = '7';
    auto oversize = good;
    Put(oversize, idx1 + 4, 600'001 * 16);
    oversize.resize(idx1 + 8 + 600'001 * 16);

    for (const auto& bytes : {First(good, idx1 + 8), First(good, good.size() - 1), foreign, oversize}) {
        GAviReading reading(bytes);
        EXPECT_EQ(reading.Index(), "none");
        EXPECT_EQ(Marks(reading.ReadAll()), Numbers(4));
        EXPECT_GE(reading.Damage().count, 1u);
    }
}

// A file of one RIFF with two entries in its idx1, as a camera leaves it.
std::vector<std::uint8_t> WithStubIndex(GAviTestFile file)
{
    auto bytes = file.Build();
    const std::size_t idx1 = PositionOf(bytes, "idx1");
    Put(bytes, idx1 + 4, 2 * 16);
    bytes.resize(idx1 + 8 + 2 * 16);
    Put(bytes, 4, bytes.size() - 8);
    return bytes;
}

TEST(AviIdx1, AStubGivesWayToTheOpenDmlIndexOrToAScan)
{
    auto broken = WithStubIndex(NumberedVideo(20, GAviTestIndex::OpenDml));
    Put(broken, PositionOf(broken, "indx") + 8 + 4, 0);  // no entry in use
    const struct {
        std::vector<std::uint8_t> bytes;
        const char* index;
    } kCases[] = {
        {WithStubIndex(NumberedVideo(20, GAviTestIndex::OpenDml)), "OpenDML"},
        {WithStubIndex(NumberedVideo(20, GAviTestIndex::Idx1Relative)), "none"},
        {broken, "none"},
    };
    for (const auto& one : kCases) {
        GAviReading reading(one.bytes);
        EXPECT_EQ(reading.Index(), one.index);
        EXPECT_EQ(Marks(reading.ReadAll()), Numbers(20));
        EXPECT_EQ(reading.Handler().Properties().size(), 1u);
        EXPECT_EQ(reading.Damage().count, 0u);
    }
}

TEST(AviIdx1, ThatNamesMostOfTheDataIsBelievedAndTheRestIsSaid)
{
    auto bytes = NumberedVideo(20, GAviTestIndex::Idx1Relative).Build();
    const std::size_t idx1 = PositionOf(bytes, "idx1");
    Put(bytes, idx1 + 4, 15 * 16);
    GAviReading reading(bytes);
    EXPECT_EQ(reading.Index(), "idx1");
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(15));
    const auto properties = reading.Handler().Properties();
    ASSERT_EQ(properties.size(), 2u);
    EXPECT_EQ(properties[1].value, std::to_string(5 * 8 + 31 + 32 + 33 + 34 + 35));
    EXPECT_EQ(reading.Damage().count, 0u) << "a note, not damage";

    GAviTestFile padded = TwoStreams(GAviTestIndex::Idx1Relative, 1);
    padded.junkBeforeData = 100'000;
    padded.recLists = true;
    EXPECT_EQ(GAviReading(padded.Build()).Handler().Properties().size(), 1u) << "padding is not a stream";
}

// Two RIFFs with a super index for one stream; the first one's index of chunks stands at `standard`.
class AviLyingOpenDml : public testing::Test {
protected:
    AviLyingOpenDml()
    {
        GAviTestFile file = NumberedVideo(3, GAviTestIndex::OpenDml);
        file.parts.push_back({Chunk("00dc", 20, 4), Chunk("00dc", 20, 5)});
        bytes = file.Build();
        super = PositionOf(bytes, "indx") + 8;
        standard = PositionOf(bytes, "ix00");
    }

    std::vector<std::uint8_t> bytes;
    std::size_t super = 0;
    std::size_t standard = 0;
};

TEST_F(AviLyingOpenDml, NothingIsMadeUpFromEntriesThatRepeatOrGoBackFromACountTooLargeOrAnIndexThatPointsAtItself)
{
    struct GLie {
        std::vector<std::pair<std::size_t, std::uint32_t>> fields;
        std::vector<int> marks;
        std::uint64_t damage;
    };
    const std::size_t thirdEntry = standard + 32 + 16;
    for (const GLie& lie : {GLie{{{thirdEntry, 0}}, {1, 2, 4, 5}, 1},        // in front of the first chunk
                            GLie{{{thirdEntry, 12 + 24}}, {1, 2, 4, 5}, 1},  // on the second one
                            GLie{{{standard + 12, ~0u}, {super + 4, 0x10000000}}, Numbers(5), 2},
                            GLie{{{super + 24, static_cast<std::uint32_t>(super - 8)}}, {4, 5}, 0}}) {
        auto lying = bytes;
        for (const auto& [position, value] : lie.fields)
            Put(lying, position, value);
        GAviReading reading(lying);
        EXPECT_EQ(Marks(reading.ReadAll()), lie.marks);
        EXPECT_EQ(reading.Damage().count, lie.damage);
    }
}

TEST_F(AviLyingOpenDml, AStandardIndexInTheHeaderIsReadAndTheScanAddsTheRest)
{
    // The super index becomes an index of chunks with one entry, for the first chunk.
    Put(bytes, super + 3, 1, 1);
    Put(bytes, super + 4, 1);
    Put(bytes, super + 12, PositionOf(bytes, "00dc", PositionOf(bytes, "movi")), 8);
    Put(bytes, super + 20, 0);
    Put(bytes, super + 24, 8);
    Put(bytes, super + 28, 16 | 0x80000000u);
    // Without it the idx1 would be read: there is none.
    Put(bytes, PositionOf(bytes, "idx1"), FourCC("xdx1"));
    GAviReading reading(bytes);
    EXPECT_EQ(reading.Index(), "none");
    const auto packets = reading.ReadAll();
    EXPECT_EQ(Marks(packets), Numbers(5));
    EXPECT_FALSE(packets.at(0).next.keyFrame) << "the flag is that of the index";
}

TEST(AviOpenDml, ThousandsOfEntriesForOneIndexChunkCostNoMoreThanTheFile)
{
    const std::vector chunk{Chunk("00dc", 1)};
    GAviTestFile file{.streams = {VideoStream()}, .parts = std::vector(3000, chunk), .index = GAviTestIndex::OpenDml};
    file.parts[0].resize(20'000, chunk[0]);
    auto bytes = file.Build();
    const auto entries = bytes.begin() + static_cast<std::ptrdiff_t>(PositionOf(bytes, "indx") + 32);
    for (int i = 1; i < 3000; ++i)
        std::copy_n(entries, 16, entries + 16 * i);
    GAviReading reading(bytes);
    EXPECT_EQ(reading.Handler().LongestStreamDuration(), 20'000 / 25 * kSecond);  // each chunk once
    EXPECT_LT(reading.Damage().count, 300'000u);
}

}  // namespace
}  // namespace vex::test
