// Files that are damaged or built to hurt: every walk ends, memory follows the data.
#include <gtest/gtest.h>

#include "io/limits.h"
#include "mkv/mkv_reading.h"
#include "mkv/mkv_sources.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

using namespace mkv_id;

const GEbmlBytes kWhole = SmallFile();
constexpr std::size_t kPacketsOfSmallFile = 7;

GTrialResult UseWhole(GEbmlBytes bytes)
{
    const std::size_t size = bytes.size();
    GMkvReading reading(std::move(bytes));
    const auto use = TryHandler(reading, {.targets = {0, 50 * kMillisecond, REFERENCE_TIME{1} << 62}});
    EXPECT_LE(use.packets, size);
    EXPECT_LE(reading.Calls(), 8 * size + 64);
    return use;
}

TEST(MkvHostile, EveryPrefixGivesWhatIsWhole)
{
    std::size_t most = 0;
    for (std::size_t size = 0; size <= kWhole.size(); ++size) {
        const GTrialResult use = UseWhole(First(kWhole, size));
        EXPECT_EQ(use.opened, size >= SegmentDataPos()) << size;
        EXPECT_EQ(use.damage != 0, use.opened && size < kWhole.size()) << size;
        EXPECT_GE(use.packets, most) << "more of the file, fewer packets at " << size;
        most = use.packets;
    }
    EXPECT_EQ(most, kPacketsOfSmallFile);
}

TEST(MkvHostile, EverySingleByteOfDamageIsSurvived)
{
    for (std::size_t at = 0; at < kWhole.size(); ++at) {
        for (const std::uint8_t value : GEbmlBytes{0x00, 0x01, 0x0F, 0x10, 0x1F, 0x40, 0x7F, 0x80, 0x81, 0xFE, 0xFF}) {
            GEbmlBytes bytes = kWhole;
            bytes[at] = value;
            UseWhole(std::move(bytes));
        }
    }
}

TEST(MkvHostile, ASourceThatFailsAnywhereEndsTheStream)
{
    const GEbmlBytes whole = Join({kWhole, GEbmlBytes(5000)});
    for (std::int64_t from = 0; from < static_cast<std::int64_t>(whole.size()); from += 23) {
        GMkvReading reading(whole);
        ASSERT_TRUE(reading.IsOpen());
        reading.Watch().failFrom = from;
        EXPECT_LE(reading.ReadAll().size(), kPacketsOfSmallFile);
        reading.Seek(50 * kMillisecond, GSeekMode::Independent);
        EXPECT_LE(reading.ReadAll().size(), kPacketsOfSmallFile);
    }
}

void OpenBuilt(GMkvTestFile& file, GMkvBuilder& builder) { ASSERT_TRUE(file.Open(OpenInMemory(builder.Build())).Ok()); }

TEST(MkvHostile, SizesThatLieNearTheTopOfTheirRangeAreHeldAgainstTheFile)
{
    for (const std::uint64_t claimed : {(std::uint64_t{1} << 56) - 2, std::uint64_t{1} << 55, std::uint64_t{1} << 32,
                                        std::uint64_t{0xFFFFFFFF}, std::uint64_t{1000}}) {
        const GEbmlBytes entry =
            Element(kTrackEntry, {UIntElement(kTrackNumber, 1), LyingElement(kCodecPrivate, claimed, {1, 2, 3})});
        const GEbmlBytes attached = Element(kAttachedFile, {LyingElement(kFileData, claimed, {1, 2})});
        GMkvTestFile file;
        OpenBuilt(file, GMkvBuilder()
                            .AddInfo(LyingElement(kTitle, claimed, {'t'}))
                            .AddTracks({entry, TrackEntry(2, 2, "A_AC3")})
                            .Add(Element(kAttachments, attached))
                            .Add(Cluster(1, {LyingElement(kSimpleBlock, claimed, {0x81, 0, 0, 0})}))
                            .Add(LyingElement(kCluster, claimed, UIntElement(kTimecode, 4))));
        EXPECT_EQ(file.info.title, VEX_W("t"));
        ASSERT_EQ(file.tracks.size(), 2u) << "the next track is where the first one's own size says";
        EXPECT_EQ(file.tracks[0].codecPrivate, (GMkvBytes{1, 2, 3}));
        ASSERT_EQ(file.attachments.size(), 1u);
        EXPECT_EQ(file.attachments[0].dataSize, 2u);
        EXPECT_TRUE(file.cluster->NextCluster());
        EXPECT_GE(file.reader->Damage().Report().count, 3u);
    }
}

TEST(MkvHostile, ChaptersNestOnlySoDeep)
{
    GEbmlBytes atom;
    for (int i = 0; i < 10'000; ++i)
        atom = Join({EbmlId(kChapterAtom), EbmlSize(atom.size(), 4), atom});
    GMkvTestFile file;
    OpenBuilt(file, GMkvBuilder().Add(Element(kChapters, {Element(kEditionEntry, atom)})));
    ASSERT_EQ(file.chapters.size(), 1u);
    int depth = 0;
    for (const auto* atoms = &file.chapters[0].atoms; !atoms->empty(); atoms = &atoms->at(0).atoms)
        ++depth;
    EXPECT_EQ(depth, kMaxNestingDepth);
}

// Each list full of the smallest entries there are, one million of them. What is quadratic does not come back.
TEST(MkvHostile, AMillionTinyElementsOfAnyKindAreWalkedOnceAndKeptUpToALimit)
{
    constexpr std::size_t kMany = 1'000'000;
    GMkvTestFile file;
    const auto open = [&](const GEbmlBytes& child) {
        OpenBuilt(file, GMkvBuilder().Add(child).Add(Cluster(0, {SimpleBlock(1, 0, 0, {1})})));
        EXPECT_TRUE(file.cluster);
    };
    const auto openList = [&](std::uint32_t listId, std::uint32_t entryId) {
        open(Element(listId, Repeat(Element(entryId, GEbmlBytes{}), kMany)));
    };
    openList(kTracks, kTrackEntry);
    EXPECT_EQ(file.tracks.size(), kMaxMkvTracks);
    openList(kAttachments, kAttachedFile);
    EXPECT_EQ(file.attachments.size(), kMaxMkvAttachments);
    open(Element(kCues, Repeat(Element(kCuePoint, {Element(kCueTrackPositions, GEbmlBytes{})}), kMany)));
    EXPECT_EQ(file.cues.at(0).points.size(), kMany);
    open(Repeat(Element(kCues, {Element(kCuePoint, GEbmlBytes{})}), kMany / 10));
    EXPECT_EQ(file.cues.size(), kMaxMkvCuesElements);
    open(Element(kCues, {Element(kCuePoint, Repeat(Element(kCueTrackPositions, GEbmlBytes{}), 3 * kMany))}));
    EXPECT_EQ(file.cues.at(0).entries, kMaxMkvCueEntries);
    open(Element(kChapters, {Element(kEditionEntry, Repeat(Element(kChapterAtom, GEbmlBytes{}), kMany))}));
    EXPECT_LT(file.chapters.at(0).atoms.size(), kMaxMkvChapters);
    open(Element(kSeekHead, Repeat(GMkvBuilder::SeekEntry(kVoid, 0), kMany / 10)));
    EXPECT_EQ(file.seekHeads.at(0).entries.size(), kMaxMkvSeekEntries);
    open(Repeat(VoidElement(0), kMany));
    const GEbmlBytes encodings = Element(kContentEncodings, Repeat(Element(kContentEncoding, GEbmlBytes{}), kMany));
    open(Element(kTracks, {Element(kTrackEntry, encodings)}));
    EXPECT_EQ(file.tracks.at(0).contentEncodings.size(), kMaxMkvEncodings);
}

TEST(MkvHostile, AMillionBlocksInAClusterWithoutASizeAreWalkedOnce)
{
    const GEbmlBytes blocks = Repeat(SimpleBlock(kVideoTrack, 0, 0, {}), 1'000'000);
    GMkvReading walk(ThreeTracks().Add(UnknownSizeElement(kCluster, blocks)));
    EXPECT_FALSE(walk.Announced());
    EXPECT_LT(walk.Watch().bytes, 6 * blocks.size()) << "each pass over the Cluster reads it once";
}

}  // namespace
}  // namespace vex::test
