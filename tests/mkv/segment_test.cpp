// What is loaded from the top of a Segment, and what that costs.
#include <gtest/gtest.h>

#include <limits>

#include "formats/mkv/mkv_demux.h"
#include "io/limits.h"
#include "mkv/mkv_sources.h"
#include "support/ebml_builder.h"
#include "support/watched_source.h"

namespace vex::test {
namespace {

using namespace mkv_id;

const GEbmlBytes kTwoFrames = Join({SimpleBlock(1, 0, kKeyFlag, {1, 2}), SimpleBlock(1, 40, 0, {3})});

GEbmlBytes Chapters(std::string_view title)
{
    const GEbmlBytes display =
        Element(kChapterDisplay, {TextElement(kChapString, title), TextElement(kChapLanguage, "eng")});
    const GEbmlBytes inner = Element(kChapterAtom, {UIntElement(kChapterUid, 7)});
    return Element(kChapters,
                   {Element(kEditionEntry,
                            {Element(kChapterAtom, {UIntElement(kChapterTimeStart, 5'000'000'000), display, inner})})});
}

const GEbmlBytes kAttached = Element(kAttachments, {Element(kAttachedFile, GEbmlBytes{})});
const GEbmlBytes kOneTrack = Element(kTracks, {TrackEntry(1, 1, "V_VP8")});

void OpenBuilt(GMkvTestFile& file, GMkvBuilder builder)
{
    const GStatus status = file.Open(OpenInMemory(builder.Build()));
    ASSERT_TRUE(status.Ok()) << status.Error().what;
}

TEST(MkvFile, EverythingBehindTheClustersIsFoundThroughTheSeekHead)
{
    GMkvBuilder builder;
    builder.AddSeekHead({kInfo, kTracks, kCues, {kCues, 1}, kChapters, kAttachments})
        .AddInfo(Join({FloatElement(kDuration, 2500.0), TextElement(kTitle, "A title")}))
        .AddTracks({TrackEntry(1, 1, "V_VP8"), TrackEntry(2, 2, "A_AC3")})
        .Add(Cluster(1500, {kTwoFrames}))
        .AddCues({{1500, 1, 0}})
        .AddCues({{1600, 1, 0}, {1700, 1, 0}})
        .Add(Chapters("Opening"))
        .Add(kAttached);
    GMkvTestFile file;
    OpenBuilt(file, builder);
    EXPECT_EQ(file.header.docType, "matroska");
    EXPECT_EQ(file.info.title, VEX_W("A title"));
    EXPECT_EQ(file.duration, 25'000'000);
    EXPECT_EQ(file.firstClusterTime, 15'000'000);
    ASSERT_EQ(file.tracks.size(), 2u);
    ASSERT_EQ(file.cues.size(), 2u) << "the first that is listed, and those that follow it directly";
    ASSERT_EQ(file.cues[1].points.size(), 2u);
    EXPECT_EQ(file.cues[1].points[1].cueTime, 1700u);
    ASSERT_EQ(file.chapters.size(), 1u);
    const GMkvChapterAtom& atom = file.chapters[0].atoms.at(0);
    EXPECT_EQ(atom.displays.at(0).chapString, VEX_W("Opening"));
    EXPECT_EQ(atom.chapterTimeStart.value, 5'000'000'000u);
    EXPECT_EQ(atom.atoms.at(0).chapterUid.value, 7u);
    EXPECT_EQ(file.attachments.size(), 1u);
    EXPECT_TRUE(file.ClusterAt(file.cues[0].points[0].positions.at(0).cueClusterPosition));
    EXPECT_FALSE(file.ClusterAt(1));
    EXPECT_FALSE(file.ClusterAt(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(file.reader->Damage().Report().count, 0u);
}

TEST(MkvFile, ThreeHeadElementsEndTheWalkAndWithFewerAllThatItMeetsIsLoaded)
{
    GMkvTestFile file;
    OpenBuilt(file, GMkvBuilder()
                        .AddInfo()
                        .Add(Chapters("x"))
                        .Add(Chapters("y"))
                        .Add(kOneTrack)
                        .Add(Cluster(0, {kTwoFrames}))
                        .Add(kAttached)
                        .AddCues({{0, 1, 0}}));
    EXPECT_EQ(file.tracks.size(), 1u);
    EXPECT_EQ(file.cues.size(), 1u);
    EXPECT_EQ(file.chapters.size(), 1u) << "of two elements the first counts";
    EXPECT_EQ(file.attachments.size(), 1u);

    OpenBuilt(
        file,
        GMkvBuilder().AddSeekHead({kInfo}).AddInfo().Add(kOneTrack).AddCues({{0, 1, 0}}).Add(Cluster(0, {kTwoFrames})));
    EXPECT_TRUE(file.cues.empty()) << "behind the walk, and no SeekHead lists them";
    EXPECT_TRUE(file.cluster) << "the first Cluster is walked to all the same";

    OpenBuilt(file, GMkvBuilder().AddSeekHead({kTracks}).AddInfo().AddInfo().Add(kOneTrack));
    EXPECT_EQ(file.tracks.size(), 1u) << "two Infos make three, but the SeekHead knows the Tracks";
}

TEST(MkvFile, ASecondSeekHeadIsFollowedOnceForWhatTheFirstDoesNotList)
{
    GMkvTestFile file;
    OpenBuilt(file, GMkvBuilder()
                        .AddInfo()
                        .Add(kOneTrack)
                        .AddSeekHead({{kSeekHead, 1}})
                        .Add(Cluster(0, {kTwoFrames}))
                        .Add(Cluster(50, {kTwoFrames}))
                        .AddCues({{0, 1, 0}})
                        .AddSeekHead({{kCluster, 1}, kSeekHead, kCues}));
    EXPECT_EQ(file.cues.size(), 1u);
    EXPECT_EQ(file.seekHeads.size(), 2u);
    ASSERT_TRUE(file.cluster);
    EXPECT_EQ(GMkvFile::ClusterTicks(*file.cluster), 0) << "a later Cluster in that list is not the first one";
}

TEST(MkvFile, AnIndexThatLiesCostsNothingThatAWalkFinds)
{
    std::vector<GEbmlBytes> indexes = {
        // without a position, with an ID of nine bytes, empty
        Join({Element(kSeek, {Element(kSeekId, EbmlId(kCues))}),
              Element(kSeek, {Element(kSeekId, GEbmlBytes(9, 0xFF)), UIntElement(kSeekPosition, 0)}),
              Element(kSeek, GEbmlBytes{})})};
    for (const std::uint64_t position : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1} << 40, ~std::uint64_t{3}})
        for (GEbmlBytes& entries = indexes.emplace_back(); const std::uint32_t id : kLevel1)
            entries = Join({entries, GMkvBuilder::SeekEntry(id, position)});
    for (const GEbmlBytes& entries : indexes) {
        GMkvTestFile file;
        OpenBuilt(file, GMkvBuilder()
                            .Add(Element(kSeekHead, entries))
                            .AddInfo()
                            .Add(kOneTrack)
                            .Add(Cluster(3, {kTwoFrames}))
                            .AddCues({{0, 1, 0}}));
        EXPECT_EQ(file.tracks.size(), 1u);
        EXPECT_TRUE(file.cluster);
        EXPECT_EQ(file.firstClusterTime, 30'000);
        EXPECT_TRUE(file.cues.empty());
    }
}

TEST(MkvFile, TheFirstSegmentIsTheFile)
{
    const GEbmlBytes appended = GMkvBuilder().AddInfo().AddTracks({TrackEntry(2, 2, "A_AC3")}).Build();
    GMkvTestFile file;
    ASSERT_TRUE(file.Open(OpenInMemory(Join({GMkvBuilder().AddInfo().Add(kOneTrack).Build(), appended}))).Ok());
    EXPECT_EQ(file.tracks.size(), 1u);
    EXPECT_EQ(file.segmentDataPos, static_cast<std::int64_t>(SegmentDataPos()));
}

TEST(MkvFile, WhatIsNoMatroskaFileIsRefusedAndLeavesNothingOpen)
{
    GMkvTestFile file;
    OpenBuilt(file, GMkvBuilder().AddInfo());
    for (const GEbmlBytes& bytes : {GEbmlBytes{0x1A, 0x45, 0xDF}, EbmlHeader(), Join({{0}, GMkvBuilder().Build()})}) {
        EXPECT_EQ(file.Open(OpenInMemory(bytes)).Error().kind, GErrorKind::Malformed);
        EXPECT_FALSE(file.IsOpen());
        EXPECT_FALSE(file.segment);
    }
    GSourceWatch watch;
    watch.failFrom = 0;
    EXPECT_EQ(file.Open(std::make_unique<GWatchedSource>(OpenInMemory(EbmlHeader()), watch)).Error().kind,
              GErrorKind::Io);
}

TEST(MkvFile, TrackRecordsKeepEveryValueAndItsDefault)
{
    const GEbmlBytes video = Element(kVideo, {UIntElement(kPixelWidth, 1920), FloatElement(kFrameRate, 25.0)});
    const GEbmlBytes badAudio =
        Element(kAudio, {Element(kSamplingFrequency, GEbmlBytes(10)), UIntElement(kChannels, 6)});
    const auto encoding = [](std::uint64_t order, std::uint32_t id, std::uint64_t value) {
        return Element(kContentEncoding, {UIntElement(kContentEncodingOrder, order), UIntElement(id, value)});
    };
    const GEbmlBytes encodings =
        Element(kContentEncodings, {encoding(1, kContentEncodingType, 7), encoding(4, kContentEncodingScope, 3),
                                    encoding(0, kContentEncodingType, 1)});
    const GEbmlBytes first = Join({video, UIntElement(kDefaultDurationSwapped, 40'000'000), encodings});
    GMkvTestFile file;
    OpenBuilt(file,
              GMkvBuilder().AddTracks({TrackEntry(1, 1, "V_VP8", first),
                                       TrackEntry(2, 2, {"A_\0C3", 5}, Join({badAudio, TextElement(kName, "Ton")}))}));
    ASSERT_EQ(file.tracks.size(), 2u);
    const GMkvTrack& full = file.tracks[0];
    EXPECT_EQ(full.video.pixelWidth.value, 1920u);
    EXPECT_EQ(full.video.frameRate.value, 25.0);
    EXPECT_EQ(full.defaultDuration.value, 40'000'000u);
    ASSERT_EQ(full.contentEncodings.size(), 3u);
    EXPECT_EQ(full.contentEncodings[0].contentEncodingOrder.value, 4u) << "the last one put on comes off first";
    EXPECT_EQ(full.contentEncodings[0].contentEncodingScope.value, 3u);
    EXPECT_EQ(full.contentEncodings[1].contentEncodingType.value, 7u);
    EXPECT_EQ(full.contentEncodings[2].contentEncodingType.value, GMkvContentEncoding::kEncryption);

    const GMkvTrack& damaged = file.tracks[1];
    EXPECT_EQ(damaged.parseErrors, GMkvTrack::kAudioDamaged);
    EXPECT_EQ(damaged.audio.channels.value, 6u) << "what follows the bad value is read";
    EXPECT_EQ(damaged.audio.samplingFrequency.value, 8000.0);
    EXPECT_EQ(damaged.codecId, (GMkvBytes{'A', '_', 0, 'C', '3'}));
    EXPECT_EQ(damaged.name, VEX_W("Ton"));
    EXPECT_EQ(file.reader->Damage().Report().count, 1u);
}

TEST(MkvFile, TimesStaySaneWhateverTheScaleSays)
{
    const auto load = [](GMkvTestFile& file, const GEbmlBytes& info) {
        OpenBuilt(file, GMkvBuilder().AddInfo(info).Add(kOneTrack).Add(Cluster(10, {})));
    };
    GMkvTestFile file;
    load(file, {});
    EXPECT_EQ(file.firstClusterTime, 100'000) << "no scale: a tick is a millisecond";
    EXPECT_EQ(file.ToTime(-3), -30'000);
    load(file, UIntElement(kTimecodeScale, 0));
    EXPECT_EQ(file.firstClusterTime, 100'000) << "a scale of nothing is none";
    load(file, UIntElement(kTimecodeScale, 333));
    EXPECT_EQ(file.firstClusterTime, 33) << "cut towards zero";
    EXPECT_EQ(file.ToTime(-10), -33);
    load(file, Join({UIntElement(kTimecodeScale, std::numeric_limits<std::uint64_t>::max()),
                     FloatElement(kDuration, 1e300)}));
    EXPECT_EQ(file.duration, kMaxMkvTime);
    EXPECT_EQ(file.firstClusterTime, kMaxMkvTime);
    EXPECT_EQ(file.ToTime(-kMaxMkvTicks), -kMaxMkvTime);
    GMkvBlock block;
    for (const std::int64_t timecode : {-0x8000, 0x7FFF}) {
        block.timecode = timecode;
        EXPECT_EQ(MkvBlockTime(file, kMaxMkvTicks, block), kMaxMkvTime);
    }

    for (const double bad :
         {-1.0, 0.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity(), 5e-324}) {
        load(file, FloatElement(kDuration, bad));
        EXPECT_EQ(file.duration, 0) << bad;
    }
    // 64 bits would overflow on the way, the result does not.
    EXPECT_EQ(MkvTime(90'000'000'000, 1'000'000'000), 900'000'000'000'000'000);
}

}  // namespace
}  // namespace vex::test
