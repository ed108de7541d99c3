// Files that are damaged or built to hurt: every walk ends, memory follows the data.
#include <gtest/gtest.h>

#include "formats/mkv/mkv_file.h"
#include "io/limits.h"
#include "support/ebml_builder.h"
#include "support/watched_source.h"

namespace vex::test {
namespace {

using namespace mkv_id;

// One of everything that is read, in a file short enough to damage every byte of.
GEbmlBytes SmallFile()
{
    const GEbmlBytes encodings =
        Element(kContentEncodings, {Element(kContentEncoding, {UIntElement(kContentEncodingOrder, 0)})});
    const GEbmlBytes atom = Element(
        kChapterAtom, {UIntElement(kChapterTimeStart, 1), Element(kChapterDisplay, {TextElement(kChapString, "a")})});
    return GMkvBuilder()
        .AddSeekHead({kTracks, kCues, kChapters})
        .AddInfo(Join(
            {FloatElement(kDuration, 100), UIntElement(kTimecodeScale, 1'000'000), Element(kDateUtc, BigEndian(9, 8))}))
        .AddTracks({TrackEntry(1, 1, "V_VP8", Join({Element(kVideo, {UIntElement(kPixelWidth, 16)}), encodings})),
                    TrackEntry(2, 2, "A_AC3", Element(kAudio, {FloatElement(kSamplingFrequency, 48'000)}))})
        .Add(Cluster(0, {SimpleBlock(1, 0, kKeyFlag, {1}), BlockGroup(2, 3, {2, 3})}))
        .Add(UnknownSizeElement(kCluster, Join({UIntElement(kTimecode, 9), SimpleBlock(1, 0, 0, {4})})))
        .AddCues({{0, 1, 0}, {9, 1, 1}})
        .Add(Element(kChapters, {Element(kEditionEntry, {atom})}))
        .Add(Element(kAttachments,
                     {Element(kAttachedFile, {TextElement(kFileName, "f"), Element(kFileData, GEbmlBytes(4))})}))
        .Build();
}

struct GWalk {
    std::size_t clusters = 0;
    std::size_t blocks = 0;
};

// All that a reader of the file would touch. Counts are held against the file, so a walk that turns back shows.
GWalk WalkWhole(GMkvFile& file)
{
    GWalk walk;
    const auto size = static_cast<std::size_t>(file.reader->FileSize());
    auto cluster = file.FirstCluster();
    while (cluster && walk.clusters <= size) {
        ++walk.clusters;
        GMkvFile::ClusterTicks(*cluster);
        auto block = GMkvElement::FirstBlock(*cluster);
        while (block && walk.blocks <= size) {
            ++walk.blocks;
            if (!block->NextBlock())
                block.reset();
        }
        if (!cluster->NextCluster())
            cluster.reset();
    }
    for (const GMkvAttachment& attachment : file.attachments)
        EXPECT_LE(attachment.dataSize, size);
    for (const GMkvCues& cues : file.cues)
        for (const GMkvCuePoint& point : cues.points)
            for (const GMkvCueTrackPositions& at : point.positions)
                if (auto cued = file.ClusterAt(at.cueClusterPosition))
                    GMkvElement::FirstBlock(*cued);
    EXPECT_LE(walk.clusters, size);
    EXPECT_LE(walk.blocks, size);
    return walk;
}

TEST(MkvHostile, TheSmallFileIsSound)
{
    GMkvFile file;
    ASSERT_TRUE(file.Open(OpenInMemory(SmallFile())).Ok());
    EXPECT_EQ(file.tracks.size(), 2u);
    EXPECT_EQ(file.cues.at(0).points.size(), 2u);
    EXPECT_EQ(file.chapters.size(), 1u);
    const GWalk walk = WalkWhole(file);
    EXPECT_EQ(walk.clusters, 2u);
    EXPECT_EQ(walk.blocks, 3u);
    EXPECT_EQ(file.reader->Damage().Report().count, 0u);
}

TEST(MkvHostile, EveryPrefixOpensOrIsRefused)
{
    const GEbmlBytes whole = SmallFile();
    std::size_t mostBlocks = 0;
    for (std::size_t size = 0; size < whole.size(); ++size) {
        GMkvFile file;
        const bool opened =
            file.Open(OpenInMemory({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)})).Ok();
        EXPECT_EQ(opened, size >= SegmentDataPos()) << size;
        if (!opened)
            continue;
        const std::size_t blocks = WalkWhole(file).blocks;
        EXPECT_GE(blocks, mostBlocks) << "more of the file, fewer blocks at " << size;
        mostBlocks = blocks;
        EXPECT_GT(file.reader->Damage().Report().count, 0u) << size;
    }
    EXPECT_EQ(mostBlocks, 3u);
}

TEST(MkvHostile, EverySingleByteOfDamageIsSurvived)
{
    const GEbmlBytes whole = SmallFile();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const std::uint8_t value : GEbmlBytes{0x00, 0x01, 0x0F, 0x10, 0x1F, 0x40, 0x7F, 0x80, 0x81, 0xFE, 0xFF}) {
            GEbmlBytes bytes = whole;
            bytes[at] = value;
            GMkvFile file;
            if (file.Open(OpenInMemory(std::move(bytes))).Ok())
                WalkWhole(file);
        }
    }
}

TEST(MkvHostile, ASourceThatFailsAnywhereIsSurvived)
{
    const GEbmlBytes whole = Join({SmallFile(), GEbmlBytes(5000)});
    for (std::int64_t from = 0; from < static_cast<std::int64_t>(whole.size()); from += 97) {
        GSourceWatch watch;
        GMkvFile file;
        const bool opened = file.Open(std::make_unique<GWatchedSource>(OpenInMemory(whole), watch)).Ok();
        watch.failFrom = from;
        if (opened)
            WalkWhole(file);
    }
}

TEST(MkvHostile, SizesThatLieNearTheTopOfTheirRangeAreHeldAgainstTheFile)
{
    for (const std::uint64_t claimed : {(std::uint64_t{1} << 56) - 2, std::uint64_t{1} << 55, std::uint64_t{1} << 32,
                                        std::uint64_t{0xFFFFFFFF}, std::uint64_t{1000}}) {
        const GEbmlBytes entry =
            Element(kTrackEntry, {UIntElement(kTrackNumber, 1), LyingElement(kCodecPrivate, claimed, {1, 2, 3})});
        const GEbmlBytes attached = Element(kAttachedFile, {LyingElement(kFileData, claimed, {1, 2})});
        GMkvFile file;
        ASSERT_TRUE(file.Open(OpenInMemory(GMkvBuilder()
                                               .AddInfo(LyingElement(kTitle, claimed, {'t'}))
                                               .AddTracks({entry, TrackEntry(2, 2, "A_AC3")})
                                               .Add(Element(kAttachments, attached))
                                               .Add(Cluster(1, {LyingElement(kSimpleBlock, claimed, {0x81, 0, 0, 0})}))
                                               .Add(LyingElement(kCluster, claimed, UIntElement(kTimecode, 4)))
                                               .Build()))
                        .Ok());
        EXPECT_EQ(file.info.title, VEX_W("t"));
        ASSERT_EQ(file.tracks.size(), 2u) << "the next track is where the first one's own size says";
        EXPECT_EQ(file.tracks[0].codecPrivate, (GMkvBytes{1, 2, 3}));
        ASSERT_EQ(file.attachments.size(), 1u);
        EXPECT_EQ(file.attachments[0].dataSize, 2u);
        EXPECT_EQ(WalkWhole(file).clusters, 2u);
        EXPECT_GE(file.reader->Damage().Report().count, 4u);
    }
}

TEST(MkvHostile, ManyTracksThatAllClaimTheRestOfTheFileCostNoMoreThanTheFile)
{
    GEbmlBytes entries;
    for (int i = 0; i < 500; ++i)
        entries = Join({entries, Element(kTrackEntry, LyingElement(kCodecPrivate, 1 << 20, {}))});
    GMkvFile file;
    ASSERT_TRUE(
        file.Open(OpenInMemory(GMkvBuilder().Add(Element(kTracks, entries)).Add(VoidElement(1 << 20)).Build())).Ok());
    EXPECT_EQ(file.tracks.size(), 500u);
    for (const GMkvTrack& track : file.tracks)
        EXPECT_TRUE(track.codecPrivate.empty());
}

TEST(MkvHostile, ChaptersNestOnlySoDeep)
{
    GEbmlBytes atom;
    for (int i = 0; i < 10'000; ++i)
        atom = Join({EbmlId(kChapterAtom), EbmlSize(atom.size(), 4), atom});
    GMkvFile file;
    ASSERT_TRUE(
        file.Open(OpenInMemory(GMkvBuilder().Add(Element(kChapters, {Element(kEditionEntry, atom)})).Build())).Ok());
    ASSERT_EQ(file.chapters.size(), 1u);
    int depth = 0;
    for (const auto* atoms = &file.chapters[0].atoms; !atoms->empty(); atoms = &atoms->at(0).atoms)
        ++depth;
    EXPECT_EQ(depth, kMaxNestingDepth);
}

GEbmlBytes Repeat(const GEbmlBytes& element, std::size_t count)
{
    GEbmlBytes all;
    all.reserve(element.size() * count);
    for (std::size_t i = 0; i < count; ++i)
        all.insert(all.end(), element.begin(), element.end());
    return all;
}

// Each list full of the smallest entries there are, one million of them. What is quadratic does not come back.
TEST(MkvHostile, AMillionTinyElementsOfAnyKindAreWalkedOnceAndKeptUpToALimit)
{
    constexpr std::size_t kMany = 1'000'000;
    const auto open = [](GMkvFile& file, const GEbmlBytes& child) {
        ASSERT_TRUE(
            file.Open(OpenInMemory(GMkvBuilder().Add(child).Add(Cluster(0, {SimpleBlock(1, 0, 0, {1})})).Build()))
                .Ok());
        EXPECT_TRUE(file.cluster);
    };
    GMkvFile file;
    open(file, Element(kTracks, Repeat(Element(kTrackEntry, GEbmlBytes{}), kMany)));
    EXPECT_EQ(file.tracks.size(), kMaxMkvTracks);
    open(file, Element(kCues, Repeat(Element(kCuePoint, {Element(kCueTrackPositions, GEbmlBytes{})}), kMany)));
    EXPECT_EQ(file.cues.at(0).points.size(), kMany);
    open(file, Repeat(Element(kCues, {Element(kCuePoint, GEbmlBytes{})}), kMany / 10));
    EXPECT_EQ(file.cues.size(), kMaxMkvCuesElements);
    open(file, Element(kCues, {Element(kCuePoint, Repeat(Element(kCueTrackPositions, GEbmlBytes{}), 3 * kMany))}));
    EXPECT_EQ(file.cues.at(0).entries, kMaxMkvCueEntries);
    open(file, Element(kChapters, {Element(kEditionEntry, Repeat(Element(kChapterAtom, GEbmlBytes{}), kMany))}));
    EXPECT_LT(file.chapters.at(0).atoms.size(), kMaxMkvChapters);
    open(file, Element(kAttachments, Repeat(Element(kAttachedFile, GEbmlBytes{}), kMany)));
    EXPECT_EQ(file.attachments.size(), kMaxMkvAttachments);
    open(file, Element(kSeekHead, Repeat(GMkvBuilder::SeekEntry(kVoid, 0), kMany / 10)));
    EXPECT_EQ(file.seekHeads.at(0).entries.size(), kMaxMkvSeekEntries);
    open(file, Repeat(VoidElement(0), kMany));
    open(file,
         Element(kTracks, {Element(kTrackEntry, {Element(kContentEncodings,
                                                         Repeat(Element(kContentEncoding, GEbmlBytes{}), kMany))})}));
    EXPECT_EQ(file.tracks.at(0).contentEncodings.size(), kMaxMkvEncodings);

    GSourceWatch watch;
    const GEbmlBytes blocks = Repeat(SimpleBlock(1, 0, 0, {}), kMany);
    ASSERT_TRUE(file.Open(std::make_unique<GWatchedSource>(
                              OpenInMemory(GMkvBuilder().Add(UnknownSizeElement(kCluster, blocks)).Build()), watch))
                    .Ok());
    EXPECT_EQ(WalkWhole(file).blocks, kMany);
    EXPECT_LT(watch.bytes, 6 * blocks.size()) << "each pass over the Cluster reads it once";
}

// Every four bytes look like a Cluster whose header cannot be read.
TEST(MkvHostile, ASearchThroughFalseMatchesStaysLinear)
{
    GEbmlBytes matches = {0x00};
    for (int i = 0; i < 200'000; ++i)
        matches.insert(matches.end(), {0x1F, 0x43, 0xB6, 0x75, 0x00});
    GSourceWatch watch;
    GMkvFile file;
    ASSERT_TRUE(file.Open(std::make_unique<GWatchedSource>(
                              OpenInMemory(GMkvBuilder().AddInfo().Add(matches).Add(Cluster(7, {})).Build()), watch))
                    .Ok());
    ASSERT_TRUE(file.cluster);
    EXPECT_EQ(GMkvFile::ClusterTicks(*file.cluster), 7);
    EXPECT_LT(watch.bytes, 6 * matches.size());
}

}  // namespace
}  // namespace vex::test
