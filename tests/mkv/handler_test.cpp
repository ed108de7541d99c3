// Whole files through the handler: times, flags, what is passed over, and what survives of a damaged file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <map>
#include <string>

#include "framework/media/codec_guids.h"
#include "io/limits.h"
#include "mkv/mkv_reading.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

using namespace mkv_id;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<REFERENCE_TIME> Starts(const std::vector<GReadBlock>& blocks)
{
    std::vector<REFERENCE_TIME> starts;
    for (const GReadBlock& block : blocks)
        starts.push_back(block.next.start);
    return starts;
}

TEST(MkvHandler, TimesCountFromTheFirstClusterAndMayLieBeforeIt)
{
    const auto blocks = ReadFile(
        ThreeTracks()
            .Add(Cluster(10, {SimpleBlock(kVideoTrack, -2, kKeyFlag, {1}), SimpleBlock(kVideoTrack, 0x7FFF, 0, {2})}))
            .Add(Cluster(9, {SimpleBlock(kVideoTrack, 0, 0, {3})}))
            .Add(Element(kCluster, SimpleBlock(kVideoTrack, 5, 0, {4})))
            .Build());
    EXPECT_THAT(Starts(blocks),
                ElementsAre(-2 * kMillisecond, 0x7FFF * kMillisecond, -1 * kMillisecond, -5 * kMillisecond))
        << "a Cluster without a time counts as 0";
    EXPECT_TRUE(blocks[0].next.keyFrame);
    EXPECT_FALSE(blocks[1].next.keyFrame);
}

TEST(MkvHandler, ATimecodeBehindTheBlocksOfItsClusterCounts)
{
    const auto blocks =
        ReadFile(ThreeTracks()
                     .Add(Cluster(0, {SimpleBlock(kVideoTrack, 0, kKeyFlag, {1})}))
                     .Add(Element(kCluster, {SimpleBlock(kVideoTrack, 1, 0, {2}), UIntElement(kTimecode, 40)}))
                     .Build());
    EXPECT_THAT(Starts(blocks), ElementsAre(0, 41 * kMillisecond));
}

TEST(MkvHandler, TicksAreRoundedTowardsZeroAndNeverOverflow)
{
    const auto starts = [](std::uint64_t scale, std::uint64_t cluster, int timecode) {
        return Starts(ReadFile(ThreeTracks(UIntElement(kTimecodeScale, scale))
                                   .Add(Cluster(0, {SimpleBlock(kVideoTrack, timecode, 0, {1})}))
                                   .Add(Cluster(cluster, {SimpleBlock(kVideoTrack, 0, 0, {2})}))
                                   .Build()));
    };
    EXPECT_THAT(starts(99, 3, -3), ElementsAre(-2, 2));
    const std::uint64_t huge = 0xFFFFFFFFFFFFFFFF;
    EXPECT_THAT(starts(huge, huge, -1), ElementsAre(testing::Lt(0), testing::Gt(0)));
    EXPECT_THAT(starts(1, huge, 0x7FFF), ElementsAre(327, testing::Gt(0)));
}

TEST(MkvHandler, ABlockEndsWhereItsDurationSaysASubtitleWithoutOneWhereItStarts)
{
    const auto blocks =
        ReadFile(ThreeTracks()
                     .Add(Cluster(0, {BlockGroup(kVideoTrack, 1, {1}, UIntElement(kBlockDuration, 40)),
                                      BlockGroup(kVideoTrack, 2, {2}), SimpleBlock(kTextTrack, 3, 0, {3}),
                                      BlockGroup(kTextTrack, 4, {4}, UIntElement(kBlockDuration, 7)),
                                      BlockGroup(kTextTrack, 5, {5}, UIntElement(kBlockDuration, 0))}))
                     .Build());
    ASSERT_EQ(blocks.size(), 5u);
    std::vector<REFERENCE_TIME> lengths;
    std::vector<int> valid;
    for (const GReadBlock& block : blocks) {
        lengths.push_back(block.next.stop - block.next.start);
        valid.push_back(block.block.duration.valid);
    }
    EXPECT_THAT(lengths, ElementsAre(40 * kMillisecond, 1, 0, 7 * kMillisecond, 0));
    EXPECT_THAT(valid, ElementsAre(1, 0, 1, 1, 1));
}

TEST(MkvHandler, BlocksOfBothKindsComeInFileOrder)
{
    const auto blocks =
        ReadFile(ThreeTracks()
                     .Add(Cluster(0, {SimpleBlock(kVideoTrack, 0, kKeyFlag, {1}), VoidElement(3),
                                      BlockGroup(kAudioTrack, 0, {2}), SimpleBlock(kVideoTrack, 40, 0, {3}),
                                      DependentGroup(kVideoTrack, 80, {4})}))
                     .AddCues({{0, 1, 0}})
                     .Add(Cluster(100, {BlockGroup(kTextTrack, 0, {5}), SimpleBlock(kAudioTrack, 1, 0, {6})}))
                     .Build());
    EXPECT_THAT(Marks(blocks), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_TRUE(blocks[1].next.keyFrame);
    EXPECT_FALSE(blocks[3].next.keyFrame);
    EXPECT_EQ(blocks[1].next.stream, kAudioTrack);
}

TEST(MkvHandler, WhatNobodyDescribedIsPassedOverUnread)
{
    constexpr std::size_t kBig = 500'000;
    GMkvReading reading(
        ThreeTracks()
            .Add(Cluster(0, {SimpleBlock(kUnknownTrack, 0, kKeyFlag, GEbmlBytes(kBig)),
                             SimpleBlock(99, 0, kKeyFlag, GEbmlBytes(kBig)), SimpleBlock(kVideoTrack, 0, kKeyFlag, {}),
                             SimpleBlock(kVideoTrack, 1, 0, {7})}))
            .Build());
    ASSERT_EQ(reading.Handler().Streams().size(), 3u);
    const auto blocks = reading.ReadAll();
    EXPECT_THAT(Marks(blocks), ElementsAre(7)) << "nor is there a packet of a Block without bytes";
    EXPECT_LT(reading.Watch().bytes, kBig / 10);
    EXPECT_EQ(reading.Handler().Damage().count, 0u);
}

TEST(MkvHandler, ADamagedLaceLosesItsOwnBlockOnly)
{
    const GEbmlBytes tooLong = {1, 200, 1, 2, 3};
    GMkvReading reading(ThreeTracks()
                            .Add(Cluster(0, {SimpleBlock(kAudioTrack, 0, kXiphLace, {1, 1, 10, 20}),
                                             SimpleBlock(kAudioTrack, 1, kXiphLace, tooLong),
                                             SimpleBlock(kAudioTrack, 2, kEbmlLace, {1, 0x81, 30, 40, 41})}))
                            .Build());
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(10, 20, 30, 40));
    EXPECT_EQ(reading.Handler().Damage().count, 1u);
}

TEST(MkvHandler, AnUnreadableBlockHeaderEndsItsClusterOnly)
{
    GMkvReading reading(
        ThreeTracks()
            .Add(Cluster(0, {SimpleBlock(kVideoTrack, 0, kKeyFlag, {1}), Element(kSimpleBlock, GEbmlBytes(9)),
                             SimpleBlock(kVideoTrack, 1, 0, {2})}))
            .Add(Cluster(40, {SimpleBlock(kVideoTrack, 0, 0, {3})}))
            .Add({0x00, 0x01, 0x02})
            .Add(Cluster(80, {SimpleBlock(kVideoTrack, 0, 0, {4})}))
            .Build());
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 3, 4));
    EXPECT_EQ(reading.Handler().Damage().count, 2u);
}

GEbmlBytes LiveFile()
{
    const auto cluster = [](std::uint64_t time, std::uint8_t mark) {
        return UnknownSizeElement(kCluster,
                                  Join({UIntElement(kTimecode, time), SimpleBlock(kVideoTrack, 0, kKeyFlag, {mark}),
                                        SimpleBlock(kVideoTrack, 1, 0, GEbmlBytes(100, ++mark))}));
    };
    return ThreeTracks()
        .Add(cluster(0, 1))
        .Add(cluster(40, 3))
        .Add(Element(kTags, GEbmlBytes(5)))
        .Add(cluster(80, 5))
        .Build(GMkvBuilder::GSegmentSize::Unknown);
}

TEST(MkvHandler, ALiveRecordingPlaysToItsEndWhereverItWasCut)
{
    GMkvReading whole(LiveFile());
    const auto blocks = whole.ReadAll();
    EXPECT_THAT(Marks(blocks), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(Starts(blocks), ElementsAre(0, 10'000, 400'000, 410'000, 800'000, 810'000));
    EXPECT_EQ(whole.Handler().Damage().count, 0u);

    GEbmlBytes cut = LiveFile();
    cut.erase(cut.end() - 30, cut.end());
    GMkvReading reading(cut);
    const auto rest = reading.ReadAll();
    EXPECT_THAT(Marks(rest), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(rest.back().frames[0].size(), 70u);
    EXPECT_EQ(reading.Handler().Damage().count, 1u);
}

TEST(MkvHandler, AClusterThatClaimsTheNextOnesDoesNotSwallowThem)
{
    const GEbmlBytes inside = Join({UIntElement(kTimecode, 0), SimpleBlock(kVideoTrack, 0, kKeyFlag, {1})});
    GMkvReading reading(ThreeTracks()
                            .Add(LyingElement(kCluster, 5000, inside))
                            .Add(Cluster(40, {SimpleBlock(kVideoTrack, 0, 0, {2})}))
                            .AddCues({{0, 1, 0}})
                            .Add(Cluster(80, {SimpleBlock(kVideoTrack, 0, 0, {3})}))
                            .Add(VoidElement(6000))
                            .Build());
    const auto blocks = reading.ReadAll();
    EXPECT_THAT(Marks(blocks), ElementsAre(1, 2, 3));
    EXPECT_THAT(Starts(blocks), ElementsAre(0, 400'000, 800'000));
    EXPECT_GT(reading.Handler().Damage().count, 0u);
}

GEbmlBytes ZlibFrame(const GEbmlBytes& plain)
{
    uLongf size = compressBound(static_cast<uLong>(plain.size()));
    GEbmlBytes out(size);
    EXPECT_EQ(compress2(out.data(), &size, plain.data(), static_cast<uLong>(plain.size()), 1), Z_OK);
    out.resize(size);
    return out;
}

GEbmlBytes Encodings(std::uint64_t algorithm, const GEbmlBytes& settings = {}, std::uint64_t scope = 1)
{
    return Element(
        kContentEncodings,
        {Element(kContentEncoding, {UIntElement(kContentEncodingScope, scope),
                                    Element(kContentCompression, {UIntElement(kContentCompAlgo, algorithm),
                                                                  Element(kContentCompSettings, settings)})})});
}

TEST(MkvHandler, EveryFrameOfALaceIsDecompressedOnItsOwnAndABadOneStaysAsItIs)
{
    const GEbmlBytes first = ZlibFrame(GEbmlBytes(3000, 11));
    const GEbmlBytes last = ZlibFrame({33, 34});
    const GEbmlBytes lace = {2, static_cast<std::uint8_t>(first.size()), 2};
    GMkvReading reading(
        ThreeTracks({}, {}, Encodings(GMkvContentEncoding::kZlib))
            .Add(Cluster(0, {SimpleBlock(kAudioTrack, 0, kXiphLace, Join({lace, first, {22, 23}, last})),
                             SimpleBlock(kAudioTrack, 1, 0, ZlibFrame({44})), SimpleBlock(kVideoTrack, 2, 0, {55})}))
            .Build());
    const auto blocks = reading.ReadAll();
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_THAT(blocks[0].frames, ElementsAre(GEbmlBytes(3000, 11), GEbmlBytes{22, 23}, GEbmlBytes{33, 34}));
    EXPECT_THAT(blocks[1].frames, ElementsAre(GEbmlBytes{44}));
    EXPECT_THAT(blocks[2].frames, ElementsAre(GEbmlBytes{55})) << "another track";
    EXPECT_EQ(reading.Handler().Damage().count, 1u);
}

TEST(MkvHandler, StrippedHeadersComeBackEvenInFrontOfNothing)
{
    const auto blocks =
        ReadFile(ThreeTracks({}, Encodings(GMkvContentEncoding::kHeaderStripping, {7, 8}, 2),
                             Encodings(GMkvContentEncoding::kHeaderStripping, {0x0B, 0x77}))
                     .Add(Cluster(0, {SimpleBlock(kAudioTrack, 0, kFixedLace, {1, 1, 2}),
                                      SimpleBlock(kAudioTrack, 1, 0, {}), SimpleBlock(kVideoTrack, 2, 0, {5})}))
                     .Build());
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_THAT(blocks[0].frames, ElementsAre(GEbmlBytes{0x0B, 0x77, 1}, GEbmlBytes{0x0B, 0x77, 2}));
    EXPECT_THAT(blocks[1].frames, ElementsAre(GEbmlBytes{0x0B, 0x77}));
    EXPECT_THAT(blocks[2].frames, ElementsAre(GEbmlBytes{5})) << "a scope that leaves the frames out";
}

TEST(MkvHandler, ALaceOfZlibBombsStaysWithinTheLimitOfOneFrame)
{
    const GEbmlBytes bomb = ZlibFrame(GEbmlBytes(kMaxInflatedSize - 1));
    GEbmlBytes lace = {3};
    for (int i = 0; i < 3; ++i) {
        lace.insert(lace.end(), bomb.size() / 255, 255);
        lace.push_back(static_cast<std::uint8_t>(bomb.size() % 255));
    }
    for (int i = 0; i < 4; ++i)
        lace.insert(lace.end(), bomb.begin(), bomb.end());
    GMkvReading reading(ThreeTracks({}, {}, Encodings(GMkvContentEncoding::kZlib))
                            .Add(Cluster(0, {SimpleBlock(kAudioTrack, 0, kXiphLace, lace)}))
                            .Build());
    const auto blocks = reading.ReadAll();
    ASSERT_EQ(blocks.size(), 1u);
    std::size_t total = 0;
    for (const GEbmlBytes& frame : blocks[0].frames)
        total += frame.size();
    EXPECT_EQ(blocks[0].frames.size(), 4u);
    EXPECT_LT(total, 2 * kMaxInflatedSize + 4 * bomb.size());
}

TEST(MkvHandler, AVorbisDecoderThatWantsItsHeadersInBandGetsThem)
{
    const GEbmlBytes headers = {2, 1, 2, 0x01, 0x03, 0x33, 0x05, 0x55, 0x56};
    const auto packets = [](const GEbmlBytes& codecPrivate, const GUID& subtype) {
        GMkvReading reading(
            GMkvBuilder()
                .AddInfo()
                .AddTracks({TrackEntry(5, GMkvTrack::kAudio, "A_VORBIS", Element(kCodecPrivate, codecPrivate)),
                            TrackEntry(6, GMkvTrack::kAudio, "A_AC3", Element(kCodecPrivate, codecPrivate))})
                .Build());
        const CMediaType connected(MEDIATYPE_Audio, subtype);
        EXPECT_THAT(reading.Handler().HeaderPackets(6, connected), IsEmpty()) << "not Vorbis";
        EXPECT_THAT(reading.Handler().HeaderPackets(7, connected), IsEmpty()) << "no such stream";
        return reading.Handler().HeaderPackets(5, connected);
    };
    const auto sent = packets(headers, MEDIASUBTYPE_Vorbis);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_THAT(sent[1]->data.Span(), ElementsAre(0x03, 0x33));
    EXPECT_THAT(sent[2]->data.Span(), ElementsAre(0x05, 0x55, 0x56));
    for (const GPacketPtr& packet : sent) {
        EXPECT_TRUE(packet->header);
        EXPECT_FALSE(packet->keyFrame);
        EXPECT_EQ(packet->stream, 5u);
        EXPECT_EQ(packet->start, 0);
        EXPECT_EQ(packet->stop, 1);
    }
    EXPECT_THAT(packets(headers, MEDIASUBTYPE_Vorbis2), IsEmpty()) << "its format block has them";
    EXPECT_THAT(packets({1, 1, 2, 3}, MEDIASUBTYPE_Vorbis), IsEmpty());
    EXPECT_THAT(packets({}, MEDIASUBTYPE_Vorbis), IsEmpty());
}

TEST(MkvHandler, FactsAndAttachmentsOfAFileCanBeAsked)
{
    const GEbmlBytes atom =
        Element(kChapterAtom, {UIntElement(kChapterTimeStart, 0), Element(kChapterAtom, GEbmlBytes{})});
    const GEbmlBytes data = {1, 2, 3, 4, 5};
    GEbmlBytes bytes =
        ThreeTracks(Join({TextElement(kTitle, "T\xC3\xB6n"), Element(kDateUtc, BigEndian(86'401'000'000'000, 8)),
                          FloatElement(kDuration, 1500)}),
                    UIntElement(kMinCache, 3))
            .Add(Element(kChapters, {Element(kEditionEntry, {atom, atom})}))
            .Add(Element(kAttachments, {Element(kAttachedFile,
                                                {TextElement(kFileName, "a.txt"),
                                                 TextElement(kFileMimeType, "text/plain"), Element(kFileData, data)})}))
            .Build();
    const GTempFile disk(bytes);
    GMkvReadHandler handler;
    ASSERT_TRUE(handler.Open(disk.Path()).Ok());
    std::map<std::string, std::string> facts;
    for (const GProperty& fact : handler.Properties())
        facts[fact.name] = fact.value;
    EXPECT_EQ(facts["title"], "T\xC3\xB6n");
    EXPECT_EQ(facts["muxing_app"], "builder");
    EXPECT_EQ(facts["date_utc"], "2001-01-02T00:00:01Z");
    EXPECT_EQ(facts["doc_type"], "matroska");
    EXPECT_EQ(facts["timecode_scale"], "1000000");
    EXPECT_EQ(facts["chapters"], "4");
    EXPECT_EQ(facts.count("writing_app"), 0u);
    EXPECT_EQ(handler.Duration(), 1500 * kMillisecond);
    EXPECT_EQ(handler.MinCache(kVideoTrack), 3u);
    EXPECT_EQ(handler.MinCache(77), 0u);

    ASSERT_EQ(handler.Attachments().size(), 1u);
    EXPECT_EQ(handler.Attachments()[0].name, "a.txt");
    EXPECT_EQ(handler.Attachments()[0].size, 5u);
    GEbmlBytes out(3);
    ASSERT_TRUE(handler.ReadAttachment(0, 2, out));
    EXPECT_THAT(out, ElementsAre(3, 4, 5));
    EXPECT_FALSE(handler.ReadAttachment(0, 3, out));
    EXPECT_FALSE(handler.ReadAttachment(0, 0xFFFFFFFFFFFFFFFF, out));
    EXPECT_FALSE(handler.ReadAttachment(1, 0, out));
}

TEST(MkvHandler, AReopenedHandlerKnowsNothingOfTheFileBefore)
{
    GMkvReadHandler handler;
    ASSERT_TRUE(handler.Open(OpenInMemory(LiveFile())).Ok());
    GNextPacket next;
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::Packet);
    EXPECT_FALSE(handler.Open(OpenInMemory({1, 2, 3, 4, 5})).Ok());
    EXPECT_TRUE(handler.Streams().empty());
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::End);
    GMkvBlockPacket packet;
    EXPECT_FALSE(handler.ReadPayload(packet));
    EXPECT_EQ(handler.Seek(5, GSeekMode::Independent), 5);
    ASSERT_TRUE(handler.Open(OpenInMemory(LiveFile())).Ok());
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::Packet);
    EXPECT_EQ(next.start, 0);
}

// No call of ReadPacket may keep its thread from hearing commands.
TEST(MkvHandler, EveryCallTouchesLittleOfAFileWithoutPackets)
{
    constexpr std::size_t kMany = 200'000;
    GEbmlBytes nothing;
    for (std::size_t i = 0; i < kMany; ++i)
        nothing.insert(nothing.end(), {0xEC, 0x80});
    GEbmlBytes clusters;
    for (std::size_t i = 0; i < kMany; ++i)
        clusters.insert(clusters.end(), {0x1F, 0x43, 0xB6, 0x75, 0x80});
    for (const GEbmlBytes& middle :
         {Element(kCluster, {UIntElement(kTimecode, 0), nothing}), nothing, clusters, GEbmlBytes(8 << 20)}) {
        GMkvReading reading(ThreeTracks()
                                .Add(Cluster(0, {SimpleBlock(kVideoTrack, 0, kKeyFlag, {1})}))
                                .Add(middle)
                                .Add(Cluster(40, {SimpleBlock(kVideoTrack, 0, kKeyFlag, {2})}))
                                .Build());
        ASSERT_TRUE(reading.Announced());
        GNextPacket next;
        std::uint64_t most = 0;
        GReadStatus status = GReadStatus::NotYet;
        while (status == GReadStatus::NotYet) {
            const std::uint64_t before = reading.Watch().bytes;
            status = reading.Handler().ReadPacket(next);
            most = std::max(most, reading.Watch().bytes - before);
        }
        EXPECT_EQ(status, GReadStatus::Packet);
        EXPECT_EQ(next.start, 40 * kMillisecond);
        EXPECT_LT(most, 3u << 20);
        EXPECT_LT(reading.Watch().bytes, 8 * middle.size());
    }
}

GEbmlBytes SmallFile()
{
    const GEbmlBytes stripped = Encodings(GMkvContentEncoding::kHeaderStripping, {7});
    return ThreeTracks(FloatElement(kDuration, 100), Encodings(GMkvContentEncoding::kZlib), stripped)
        .Add(Cluster(0, {SimpleBlock(kVideoTrack, 0, kKeyFlag, ZlibFrame({1, 2, 3})),
                         SimpleBlock(kAudioTrack, 0, kXiphLace, {2, 1, 2, 1, 2, 2, 3, 3}),
                         BlockGroup(kTextTrack, 1, {'h', 'i'}, UIntElement(kBlockDuration, 9))}))
        .Add(UnknownSizeElement(kCluster,
                                Join({UIntElement(kTimecode, 40), DependentGroup(kVideoTrack, 0, ZlibFrame({4})),
                                      SimpleBlock(kAudioTrack, 1, kEbmlLace, {2, 0x81, 0xC0, 1, 2, 2, 3})})))
        .Add(Cluster(80, {SimpleBlock(kAudioTrack, 1, kFixedLace, {1, 1, 2}),
                          FlaggedGroup(kVideoTrack, 0, ZlibFrame({5}), kKeyFlag)}))
        .AddCues({{0, kVideoTrack, 0}, {80, kVideoTrack, 2}})
        .Build();
}

// Reads and seeks as a host would; what comes out must be held by the file.
std::size_t UseWhole(GEbmlBytes bytes)
{
    const std::size_t size = bytes.size();
    GMkvReading reading(std::move(bytes));
    if (!reading.Opened())
        return 0;
    const std::size_t count = reading.ReadAll().size();
    EXPECT_LE(count, size);
    for (const GSeekMode mode : {GSeekMode::Independent, GSeekMode::KeyFrame}) {
        for (const REFERENCE_TIME time : {REFERENCE_TIME{0}, 50 * kMillisecond, REFERENCE_TIME{1} << 62}) {
            reading.Handler().Seek(time, mode);
            EXPECT_LE(reading.ReadAll().size(), size);
        }
    }
    EXPECT_LE(reading.Calls(), 8 * size + 64);
    return count;
}

TEST(MkvHandler, EveryPrefixGivesWhatIsWhole)
{
    const GEbmlBytes whole = SmallFile();
    std::size_t most = 0;
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const std::size_t count = UseWhole({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
        EXPECT_GE(count, most) << "more of the file, fewer packets at " << size;
        most = count;
    }
    EXPECT_EQ(most, 7u);
}

TEST(MkvHandler, EverySingleByteOfDamageIsSurvived)
{
    const GEbmlBytes whole = SmallFile();
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const std::uint8_t value : GEbmlBytes{0x00, 0x01, 0x0F, 0x10, 0x1F, 0x40, 0x7F, 0x80, 0x81, 0xFE, 0xFF}) {
            GEbmlBytes bytes = whole;
            bytes[at] = value;
            UseWhole(std::move(bytes));
        }
    }
}

TEST(MkvHandler, ASourceThatFailsAnywhereEndsTheStream)
{
    const GEbmlBytes whole = Join({SmallFile(), GEbmlBytes(5000)});
    for (std::int64_t from = 0; from < static_cast<std::int64_t>(whole.size()); from += 23) {
        GMkvReading reading(whole);
        ASSERT_TRUE(reading.Opened());
        reading.Watch().failFrom = from;
        EXPECT_LE(reading.ReadAll().size(), 7u);
        reading.Handler().Seek(50 * kMillisecond, GSeekMode::Independent);
        EXPECT_LE(reading.ReadAll().size(), 7u);
    }
}

}  // namespace
}  // namespace vex::test
