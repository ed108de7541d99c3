// Where reading starts after a seek: by Cues, by key frames behind the target, by a walk over the Clusters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/mkv/mkv_seek.h"
#include "mkv/mkv_reading.h"
#include "mkv/mkv_sources.h"

namespace vex::test {
namespace {

using namespace mkv_id;
using testing::ElementsAre;

constexpr REFERENCE_TIME Ms(std::int64_t milliseconds) { return milliseconds * kMillisecond; }

// The first frame's mark after a seek, -1 at the end of the file.
int MarkAt(GMkvReading& reading, REFERENCE_TIME time, GSeekMode mode = GSeekMode::Independent)
{
    reading.Seek(time, mode);
    const auto block = reading.Next();
    return block ? block->frames.at(0).at(0) : -1;
}

// Three Clusters of a second each from 100 s on; key frames are marked 10, 20 .., and audio stands between.
GMkvBuilder Seconds()
{
    return ThreeTracks(FloatElement(kDuration, 3000))
        .Add(
            Cluster(100'000, {Picture(0, 10, kKeyFlag), Sound(10, {11}), Picture(500, 20, kKeyFlag), Picture(540, 21)}))
        .Add(Cluster(101'000, {Picture(0, 22), Picture(500, 30, kKeyFlag), Sound(510, {31}), Picture(900, 32)}))
        .Add(Cluster(102'000, {Sound(0, {33}), Picture(100, 34), Picture(500, 40, kKeyFlag), Picture(540, 41)}));
}

TEST(MkvSeek, CuesLeadToTheLastKeyFrameUpToTheTarget)
{
    GMkvReading reading(Seconds().AddCues({{100'000, 1, 0}, {101'000, 1, 1}, {102'000, 2, 2}, {102'000, 1, 2}}));
    EXPECT_EQ(MarkAt(reading, Ms(2'600)), 40);
    EXPECT_EQ(MarkAt(reading, Ms(2'500)), 40) << "exactly at it";
    EXPECT_EQ(MarkAt(reading, Ms(2'499)), 30) << "its own Cluster has none so early: the CuePoint before";
    EXPECT_EQ(MarkAt(reading, Ms(1'400)), 20);
    EXPECT_EQ(MarkAt(reading, Ms(499)), 10);
    EXPECT_EQ(MarkAt(reading, Ms(0)), 10);
    EXPECT_EQ(MarkAt(reading, Ms(-5)), 10);
    EXPECT_EQ(MarkAt(reading, Ms(1'000'000)), 40);
    EXPECT_EQ(reading.Seek(Ms(1'700), GSeekMode::Independent), Ms(1'700)) << "the position stays as asked for";
    const auto blocks = reading.ReadAll();
    EXPECT_THAT(Marks(blocks), ElementsAre(30, 31, 32, 33, 34, 40, 41));
    EXPECT_EQ(blocks[0].next.start, Ms(1'500));
    EXPECT_EQ(blocks[3].next.start, Ms(2'000));
    EXPECT_THAT(reading.ReadAll(), testing::IsEmpty()) << "the end stays the end";

    GMkvReading late(Seconds().AddCues({{102'000, 1, 2}}));
    EXPECT_EQ(MarkAt(late, Ms(1'900)), 10) << "before every CuePoint";
}

TEST(MkvSeek, KeyFrameModeMovesToTheFirstKeyFrameBehindTheTarget)
{
    GMkvReading reading(Seconds().AddCues({{100'000, 1, 0}, {101'000, 1, 1}, {102'000, 1, 2}}));
    const auto seek = [&](REFERENCE_TIME time) { return reading.Seek(time, GSeekMode::KeyFrame); };
    EXPECT_EQ(seek(Ms(100)), Ms(500));
    EXPECT_EQ(seek(Ms(500)), Ms(1'500)) << "one at the target is not behind it";
    EXPECT_EQ(reading.Next()->next.start, Ms(1'500)) << "the presentation restarts exactly at that key frame";
    EXPECT_EQ(seek(Ms(1'600)), Ms(2'500)) << "the Clusters behind are looked at too";
    EXPECT_EQ(seek(Ms(2'500)), Ms(2'500)) << "none is left: the position stays ..";
    EXPECT_EQ(reading.Next()->next.start, 0) << ".. and reading starts over";
    EXPECT_EQ(seek(0), 0);
}

// What is in the second to last Cluster before the target is taken, though the last one may have a later key frame.
TEST(MkvSeek, WithoutCuesTheTwoClustersBeforeTheTargetAreLookedAt)
{
    GMkvReading reading(Seconds());
    EXPECT_EQ(MarkAt(reading, Ms(2'600)), 30);
    EXPECT_EQ(MarkAt(reading, Ms(2'000)), 20) << "a Cluster that begins at the target is not before it";
    EXPECT_EQ(MarkAt(reading, Ms(700)), 20);
    EXPECT_EQ(MarkAt(reading, Ms(499)), 10);
    EXPECT_EQ(reading.Seek(Ms(2'600), GSeekMode::KeyFrame), Ms(2'600)) << "whatever the mode";
    EXPECT_EQ(reading.Next()->next.start, Ms(1'500));
}

// Clusters of a second, each of one sound and of one picture that is marked with the Cluster's number from 1 on.
GMkvBuilder LongGroups(std::uint8_t clusters, int keyEvery)
{
    GMkvBuilder builder = ThreeTracks();
    for (std::uint8_t mark = 1; mark <= clusters; ++mark) {
        const std::uint8_t flags = keyEvery != 0 && mark % keyEvery == 1 ? kKeyFlag : 0;
        builder.Add(Cluster((mark - 1u) * 1000, {Sound(0, {200}), Picture(0, mark, flags)}));
    }
    return builder;
}

TEST(MkvSeek, WithoutCuesAKeyFrameClustersAwayIsStillFound)
{
    GMkvReading reading(LongGroups(40, 10));
    EXPECT_EQ(MarkAt(reading, Ms(29'500)), 21);
    EXPECT_EQ(MarkAt(reading, Ms(9'999)), 1);
    EXPECT_EQ(MarkAt(reading, Ms(11'500)), 11) << "in the last Cluster but one";
    EXPECT_EQ(MarkAt(reading, Ms(10'500)), 11) << "in the last one, as the one before has none";
    GMkvReading noKeys(LongGroups(9, 0));
    EXPECT_EQ(MarkAt(noKeys, Ms(5'500)), 200) << "the beginning ..";
    EXPECT_EQ(noKeys.Next()->next.start, Ms(5'000)) << ".. of the last Cluster before the target";
    GMkvReading two(LongGroups(2, 0));
    two.Seek(Ms(1'500), GSeekMode::Independent);
    EXPECT_EQ(two.Next()->next.start, 0);
}

// Thirty seconds of 25 pictures each, of which every 37th is a key frame.
GEbmlBytes LongFile(bool groups, bool live)
{
    GMkvBuilder builder = ThreeTracks();
    for (int second = 0; second < 30; ++second) {
        GEbmlBytes blocks = UIntElement(kTimecode, static_cast<std::uint64_t>(500 + second * 1000));
        for (int i = 0; i < 25; ++i) {
            const bool key = (second * 25 + i) % 37 == 0;
            const GEbmlBytes group = key ? FlaggedGroup(i * 40, {1}, 0) : DependentGroup(i * 40, {1});
            blocks = Join({blocks, groups ? group : Picture(i * 40, 1, key ? kKeyFlag : 0)});
        }
        builder.Add(live ? UnknownSizeElement(kCluster, blocks) : Element(kCluster, blocks));
    }
    return builder.Build(live ? GMkvBuilder::GSegmentSize::Unknown : GMkvBuilder::GSegmentSize::Known);
}

// Both kinds of Blocks, in Clusters with and without a size: wherever one seeks, video starts with a key frame at or
// before.
TEST(MkvSeek, TwoHundredTargetsInEveryKindOfFileStartAtAKeyFrame)
{
    for (int kind = 0; kind < 4; ++kind) {
        GMkvReading reading(LongFile((kind & 1) != 0, (kind & 2) != 0));
        std::uint32_t random = 1;
        for (int i = 0; i < 200; ++i) {
            random = random * 1664525u + 1013904223u;
            const REFERENCE_TIME target = Ms(random % 30'000u);
            reading.Seek(target, GSeekMode::Independent);
            const auto first = reading.Announced();
            ASSERT_TRUE(first);
            EXPECT_TRUE(first->keyFrame) << target;
            EXPECT_LE(first->start, target);
            EXPECT_GT(first->start, target - Ms(4'000)) << "not from the start of the file";
        }
    }
}

// 120 Blocks without references but, if so wished, one; each so many, if any, has the key flag.
GMkvBuilder FlaggedFile(int flaggedEvery, bool oneReference = false)
{
    GEbmlBytes inside = UIntElement(kTimecode, 0);
    for (std::uint8_t i = 0; i < 120; ++i) {
        const auto group = oneReference && i == 50 ? DependentGroup : FlaggedGroup;
        inside = Join({inside, group(i * 40, {i}, flaggedEvery != 0 && i % flaggedEvery == 0 ? kKeyFlag : 0)});
    }
    return ThreeTracks().Add(Element(kCluster, inside)).AddCues({{0, kVideoTrack, 0}});
}

TEST(MkvSeek, FlagsTellKeyFramesWhereNoBlockHasAReference)
{
    GMkvReading reading(FlaggedFile(10));
    EXPECT_EQ(MarkAt(reading, Ms(37 * 40)), 37) << "nothing is known of the file yet";
    reading.Seek(0, GSeekMode::Independent);
    for (int i = 0; i < 98; ++i) {
        const auto next = reading.Announced();
        ASSERT_TRUE(next);
        EXPECT_TRUE(next->keyFrame) << "the flag of packets follows the references whatever the seeks do";
    }
    EXPECT_EQ(MarkAt(reading, Ms(37 * 40)), 37)
        << "one Block short of a hundred, the one after the first seek included";
    EXPECT_EQ(MarkAt(reading, Ms(37 * 40)), 30) << "now a hundred have been seen";
    EXPECT_EQ(MarkAt(reading, Ms(37 * 40)), 30) << "and a seek forgets nothing";

    for (const GMkvBuilder& nothingToTell : {FlaggedFile(1), FlaggedFile(10, true), FlaggedFile(0)}) {
        GMkvReading other(nothingToTell);
        other.ReadAll();
        EXPECT_EQ(MarkAt(other, Ms(37 * 40)), 37) << "all or none are set, or a reference was seen";
    }
}

TEST(MkvSeek, TheFirstVideoTrackLeadsThenTheFirstAudioTrack)
{
    constexpr std::uint64_t kVideo = GMkvTrack::kVideo;
    constexpr std::uint64_t kAudio = GMkvTrack::kAudio;
    constexpr std::uint64_t kText = GMkvTrack::kSubtitle;
    const std::pair<std::vector<std::uint64_t>, std::uint64_t> rows[] = {
        {{}, 1}, {{kText}, 1}, {{kText, kAudio, kAudio}, 8}, {{kText, kAudio, kAudio, kVideo, kVideo}, 6}};
    for (const auto& [types, leader] : rows) {
        GMkvTestFile file;
        for (const std::uint64_t type : types) {
            GMkvTrack& track = file.tracks.emplace_back();
            track.trackNumber.value = 10 - file.tracks.size();
            track.trackType.value = type;
        }
        EXPECT_EQ(MkvSeekTrack(file), leader) << types.size();
    }
}

TEST(MkvSeek, OpeningAndSeekingReadHeadersOfAHandfulOfClusters)
{
    constexpr std::size_t kClusters = 100;
    const GEbmlBytes frame(20'000);
    GMkvBuilder builder = ThreeTracks().AddSeekHead({kCues});
    std::vector<GMkvBuilder::GCue> cues;
    for (std::size_t c = 0; c < kClusters; ++c) {
        builder.Add(
            Cluster(c * 1000, {SimpleBlock(kVideoTrack, 0, kKeyFlag, frame), SimpleBlock(kVideoTrack, 40, 0, frame)}));
        cues.push_back({c * 1000, kVideoTrack, c});
    }
    const auto cost = [](const GMkvBuilder& file) {
        GMkvReading reading(file);
        const std::uint64_t before = reading.Watch().bytes;
        EXPECT_LT(before, 8 * GMkvReader::kDefaultBufferCapacity) << "it was opened without a look at every Cluster";
        reading.Seek(Ms(90'500), GSeekMode::Independent);
        return (reading.Watch().bytes - before) / GMkvReader::kDefaultBufferCapacity;
    };
    EXPECT_LT(cost(builder), kClusters + 16) << "a header of each";
    EXPECT_LT(cost(builder.AddCues(cues)), 8u);
}

// The builder's file with a Cues element that names the positions.
GMkvBuilder WithCues(GMkvBuilder builder, const std::vector<std::uint64_t>& positions)
{
    GEbmlBytes points;
    for (const std::uint64_t position : positions)
        points = Join({points, GMkvBuilder::CuePoint({100'000, kVideoTrack, 0}, position)});
    return builder.Add(Element(kCues, points));
}

TEST(MkvSeek, CuesThatLeadNowhereLeaveTheStartOfTheFile)
{
    GMkvBuilder probe = Seconds();
    probe.AddCues({}).Build();
    const std::uint64_t itself = probe.PositionOf(kCues, 0);
    for (const std::uint64_t position :
         {itself, itself + 5, std::uint64_t{0}, std::uint64_t{1} << 40, ~std::uint64_t{0}, ~std::uint64_t{0} - 40}) {
        GMkvReading reading(WithCues(Seconds(), {position, position, position}));
        EXPECT_EQ(MarkAt(reading, Ms(2'600)), 10) << position;
        EXPECT_EQ(reading.Seek(Ms(2'600), GSeekMode::KeyFrame), Ms(2'600)) << position;
    }
}

// In every Block hides the header of a Cluster that holds all Blocks behind it, no key frame among them, and a CuePoint
// names each of these Clusters.
TEST(MkvSeek, ASearchThroughLyingCuesHasAnEnd)
{
    const GEbmlBytes hidden = LyingElement(kCluster, 1 << 20, {});
    const GEbmlBytes block = SimpleBlock(kVideoTrack, 0, 0, Join({{1}, hidden}));
    const GEbmlBytes inside = Repeat(block, 3'000);
    GMkvBuilder builder = Seconds();
    builder.AddSeekHead({kCues}).Add(Element(kCluster, inside));
    GMkvBuilder probe = builder;
    probe.AddCues({}).Build();
    const std::uint64_t firstBlock = probe.PositionOf(kCues, 0) - inside.size();
    std::vector<std::uint64_t> positions;
    for (std::size_t end = block.size(); end <= inside.size(); end += block.size())
        positions.push_back(firstBlock + end - hidden.size());

    GMkvReading reading(WithCues(builder, positions));
    const std::uint64_t before = reading.Watch().bytes;
    EXPECT_EQ(MarkAt(reading, Ms(2'600)), 10);
    EXPECT_GT(reading.Watch().bytes - before, 8 * inside.size()) << "the hidden Clusters were looked at";
    EXPECT_LT(reading.Watch().bytes - before, 800 * inside.size()) << "but not every one";
}

}  // namespace
}  // namespace vex::test
