// Whole files through the handler: times, flags, what is passed over, and what survives of a damaged file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "io/limits.h"
#include "media/codec_guids.h"
#include "mkv/mkv_reading.h"

namespace vex::test {
namespace {

using namespace mkv_id;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(MkvHandler, TimesCountFromTheFirstClusterAndMayLieBeforeIt)
{
    const auto blocks = ReadFile(ThreeTracks()
                                     .Add(Cluster(10, {Picture(-2, 1, kKeyFlag), Picture(0x7FFF, 2)}))
                                     .Add(Cluster(9, {Picture(0, 3)}))
                                     .Add(Element(kCluster, Picture(5, 4)))
                                     .Add(Element(kCluster, {Picture(1, 2), UIntElement(kTimecode, 50)})));
    EXPECT_THAT(Starts(blocks), ElementsAre(-2 * kMillisecond, 0x7FFF * kMillisecond, -1 * kMillisecond,
                                            -5 * kMillisecond, 41 * kMillisecond))
        << "a Cluster without a time counts as 0, one that stands behind the Blocks counts";
    EXPECT_TRUE(blocks[0].next.keyFrame);
    EXPECT_FALSE(blocks[1].next.keyFrame);
}

TEST(MkvHandler, BlocksOfBothKindsComeInFileOrderAndEndWhereTheirDurationSays)
{
    const auto blocks =
        ReadFile(ThreeTracks()
                     .Add(Cluster(0, {Picture(0, 1, kKeyFlag), VoidElement(3),
                                      BlockGroup(kAudioTrack, 0, {2}, UIntElement(kBlockDuration, 40)), Picture(40, 3),
                                      DependentGroup(80, {4})}))
                     .AddCues({{0, 1, 0}})
                     .Add(Cluster(100, {BlockGroup(kTextTrack, 0, {5}, UIntElement(kBlockDuration, 7)),
                                        SimpleBlock(kTextTrack, 3, 0, {6}),
                                        BlockGroup(kTextTrack, 5, {7}, UIntElement(kBlockDuration, 0))})));
    ASSERT_THAT(Marks(blocks), ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_TRUE(blocks[1].next.keyFrame);
    EXPECT_FALSE(blocks[3].next.keyFrame);
    EXPECT_EQ(blocks[1].next.stream, kAudioTrack);
    using GLength = std::pair<REFERENCE_TIME, int>;  // and whether the Block has a duration for its pin
    std::vector<GLength> lengths;
    for (const GReadBlock& block : blocks)
        lengths.emplace_back(block.next.stop - block.next.start, block.block.duration.valid);
    EXPECT_THAT(lengths, ElementsAre(GLength(1, 0), GLength(40 * kMillisecond, 1), GLength(1, 0), GLength(1, 0),
                                     GLength(7 * kMillisecond, 1), GLength(0, 1), GLength(0, 1)))
        << "a subtitle without a duration ends where it starts";
}

TEST(MkvHandler, ABlockThatCannotBeReadIsPassedOverWhoeverReadsIt)
{
    std::string reported;
    for (const bool leaves : {false, true}) {
        const GEbmlBytes bytes =
            ThreeTracks()
                .Add(Cluster(0, {Picture(0, 1), SimpleBlock(kVideoTrack, 1, 0, GEbmlBytes(9000, 2)), Picture(2, 3)}))
                .Build();
        GMkvReading reading(bytes);
        if (leaves)
            reading.LeavePayloads();
        reading.Watch().failFrom = static_cast<std::int64_t>(bytes.size()) - 4500;
        reading.Watch().failUntil = reading.Watch().failFrom + 1;
        EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(1, 3));
        EXPECT_EQ(reading.Damage().count, 1u);
        EXPECT_TRUE(reported.empty() || reported == reading.Damage().first) << "whoever reads, it is the same damage";
        reported = reading.Damage().first;
    }
}

TEST(MkvHandler, WhatNobodyDescribedIsPassedOverUnread)
{
    constexpr std::size_t kBig = 500'000;
    GMkvReading reading(ThreeTracks().Add(Cluster(0, {SimpleBlock(kUnknownTrack, 0, kKeyFlag, GEbmlBytes(kBig)),
                                                      SimpleBlock(99, 0, kKeyFlag, GEbmlBytes(kBig)),
                                                      SimpleBlock(kVideoTrack, 0, kKeyFlag, {}), Picture(1, 7)})));
    ASSERT_EQ(reading.Streams().size(), 3u);
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(7)) << "nor is there a packet of a Block without bytes";
    EXPECT_LT(reading.Watch().bytes, kBig / 10);
    EXPECT_EQ(reading.Damage().count, 0u);
}

TEST(MkvHandler, ADamagedLaceLosesItsOwnBlockAndAnUnreadableHeaderTheRestOfItsCluster)
{
    GMkvReading reading(
        ThreeTracks()
            .Add(Cluster(0, {Sound(0, {1, 1, 10, 20}, kXiphLace), Sound(1, {1, 200, 1, 2, 3}, kXiphLace),
                             Sound(2, {1, 0x81, 30, 40, 41}, kEbmlLace), Element(kSimpleBlock, GEbmlBytes(9)),
                             Picture(1, 2)}))
            .Add(Cluster(40, {Picture(0, 50)}))
            .Add({0x00, 0x01, 0x02})
            .Add(Cluster(80, {Picture(0, 60)})));
    EXPECT_THAT(Marks(reading.ReadAll()), ElementsAre(10, 20, 30, 40, 50, 60));
    EXPECT_EQ(reading.Damage().count, 3u);
}

TEST(MkvHandler, ALiveRecordingPlaysToItsEndWhereverItWasCut)
{
    const GEbmlBytes whole = LiveFile();
    for (const GEbmlBytes& bytes : {whole, First(whole, whole.size() - 30), Join({whole, whole})}) {
        const std::size_t missing = bytes.size() < whole.size() ? 30 : 0;
        GMkvReading reading(bytes);
        const auto blocks = reading.ReadAll();
        EXPECT_THAT(Marks(blocks), ElementsAre(1, 2, 3, 4, 5, 6));
        EXPECT_THAT(Starts(blocks), ElementsAre(0, 10'000, 400'000, 410'000, 800'000, 810'000));
        EXPECT_EQ(blocks.back().frames.at(0).size(), 100 - missing);
        EXPECT_EQ(reading.Damage().count, missing == 0 ? 0u : 1u);
    }
    GMkvReading damaged(Join({whole, {0x00}, whole}));
    EXPECT_EQ(damaged.ReadAll().size(), 12u) << "damage is searched past, into the recording appended to this one";
}

TEST(MkvHandler, AClusterThatClaimsTheNextOnesDoesNotSwallowThem)
{
    const GEbmlBytes inside = Join({UIntElement(kTimecode, 0), Picture(0, 1, kKeyFlag)});
    GMkvReading reading(ThreeTracks()
                            .Add(LyingElement(kCluster, 5000, inside))
                            .Add(Cluster(40, {Picture(0, 2)}))
                            .AddCues({{0, 1, 0}})
                            .Add(Cluster(80, {Picture(0, 3)}))
                            .Add(VoidElement(6000)));
    const auto blocks = reading.ReadAll();
    EXPECT_THAT(Marks(blocks), ElementsAre(1, 2, 3));
    EXPECT_THAT(Starts(blocks), ElementsAre(0, 400'000, 800'000));
    EXPECT_GT(reading.Damage().count, 0u);
}

TEST(MkvHandler, EveryFrameOfALaceIsDecompressedOnItsOwnAndABadOneStaysAsItIs)
{
    const GEbmlBytes first = ZlibCompressed(GEbmlBytes(3000, 11));
    const GEbmlBytes last = ZlibCompressed({33, 34});
    const GEbmlBytes lace = {2, static_cast<std::uint8_t>(first.size()), 2};
    GMkvReading reading(ThreeTracks({}, {}, ContentEncodings(GMkvContentEncoding::kZlib))
                            .Add(Cluster(0, {Sound(0, Join({lace, first, {22, 23}, last}), kXiphLace),
                                             Sound(1, ZlibCompressed({44}), 0), Picture(2, 55)})));
    const auto blocks = reading.ReadAll();
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_THAT(blocks[0].frames, ElementsAre(GEbmlBytes(3000, 11), GEbmlBytes{22, 23}, GEbmlBytes{33, 34}));
    EXPECT_THAT(blocks[1].frames, ElementsAre(GEbmlBytes{44}));
    EXPECT_THAT(blocks[2].frames, ElementsAre(GEbmlBytes{55})) << "another track";
    EXPECT_EQ(reading.Damage().count, 1u);
}

TEST(MkvHandler, StrippedHeadersComeBackEvenInFrontOfNothing)
{
    const auto blocks = ReadFile(ThreeTracks({}, ContentEncodings(GMkvContentEncoding::kHeaderStripping, {7, 8}, 2),
                                             ContentEncodings(GMkvContentEncoding::kHeaderStripping, {0x0B, 0x77}))
                                     .Add(Cluster(0, {Sound(0, {1, 1, 2}, kFixedLace), Sound(1, {}, 0), Picture(2, 5),
                                                      SimpleBlock(kVideoTrack, 3, 0, {})})));
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_THAT(blocks[0].frames, ElementsAre(GEbmlBytes{0x0B, 0x77, 1}, GEbmlBytes{0x0B, 0x77, 2}));
    EXPECT_THAT(blocks[1].frames, ElementsAre(GEbmlBytes{0x0B, 0x77}));
    EXPECT_THAT(blocks[2].frames, ElementsAre(GEbmlBytes{5})) << "a scope that leaves the frames out, empty ones too";
}

TEST(MkvHandler, ALaceOfZlibBombsStaysWithinTheLimitOfOneFrame)
{
    const GEbmlBytes bomb = ZlibCompressed(GEbmlBytes(kMaxInflatedSize - 1));
    const GEbmlBytes size = Join({GEbmlBytes(bomb.size() / 255, 255), {static_cast<std::uint8_t>(bomb.size() % 255)}});
    const GEbmlBytes lace = Join({{3}, Repeat(size, 3), Repeat(bomb, 4)});
    GMkvReading reading(
        ThreeTracks({}, {}, ContentEncodings(GMkvContentEncoding::kZlib)).Add(Cluster(0, {Sound(0, lace, kXiphLace)})));
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
    const GEbmlBytes headers = Element(kCodecPrivate, {2, 1, 2, 0x01, 0x03, 0x33, 0x05, 0x55, 0x56});
    GMkvReading reading(GMkvBuilder().AddInfo().AddTracks(
        {TrackEntry(5, GMkvTrack::kAudio, "A_VORBIS", headers), TrackEntry(6, GMkvTrack::kAudio, "A_AC3", headers),
         TrackEntry(7, GMkvTrack::kAudio, "A_VORBIS", Element(kCodecPrivate, {1, 1, 2, 3}))}));
    const auto packets = [&](std::uint32_t stream, const GUID& subtype) {
        return reading.Handler().HeaderPackets(stream, CMediaType(MEDIATYPE_Audio, subtype));
    };
    const auto sent = packets(5, MEDIASUBTYPE_Vorbis);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_THAT(sent[2]->data.Span(), ElementsAre(0x05, 0x55, 0x56));
    EXPECT_TRUE(sent[2]->header);
    EXPECT_FALSE(sent[2]->keyFrame);
    EXPECT_EQ(sent[2]->stream, 5u);
    EXPECT_EQ(sent[2]->start, 0);
    EXPECT_EQ(sent[2]->stop, 1);
    EXPECT_THAT(packets(5, MEDIASUBTYPE_Vorbis2), IsEmpty()) << "its format block has them";
    EXPECT_THAT(packets(6, MEDIASUBTYPE_Vorbis), IsEmpty()) << "not Vorbis";
    EXPECT_THAT(packets(7, MEDIASUBTYPE_Vorbis), IsEmpty()) << "two headers";
    EXPECT_THAT(packets(8, MEDIASUBTYPE_Vorbis), IsEmpty()) << "no such stream";
}

TEST(MkvHandler, FactsAndAttachmentsOfAFileCanBeAsked)
{
    const GEbmlBytes atom =
        Element(kChapterAtom, {UIntElement(kChapterTimeStart, 0), Element(kChapterAtom, GEbmlBytes{})});
    GMkvReading reading(ThreeTracks(Join({TextElement(kTitle, {"T\xC3\xB6n\0junk", 9}),
                                          Element(kDateUtc, BigEndian(86'401'000'000'000, 8))}),
                                    UIntElement(kMinCache, 3))
                            .Add(Element(kChapters, {Element(kEditionEntry, {atom, atom})}))
                            .Add(Element(kAttachments, {Element(kAttachedFile, {TextElement(kFileName, "a.txt"),
                                                                                Element(kFileData, {1, 2, 3, 4, 5})})}))
                            .Add(VoidElement(9)));
    EXPECT_EQ(reading.Property("title"), "T\xC3\xB6n");
    EXPECT_EQ(reading.Property("date_utc"), "2001-01-02T00:00:01Z");
    EXPECT_EQ(reading.Property("chapters"), "4");
    EXPECT_EQ(reading.Property("cues"), "false");
    GMkvReadHandler& handler = reading.Handler();
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

TEST(MkvHandler, AFailedOpenLeavesNothingOfTheFileBefore)
{
    const GTempFile good(LiveFile());
    GMkvReadHandler handler;
    ASSERT_TRUE(handler.Open(good.Path()).Ok());
    GNextPacket next;
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::Packet);
    EXPECT_FALSE(handler.Open("no such file").Ok());
    EXPECT_TRUE(handler.Streams().empty());
    EXPECT_EQ(handler.ReadPacket(next), GReadStatus::End);
}

// No call of ReadPacket may keep its thread from hearing commands.
TEST(MkvHandler, EveryCallTouchesLittleOfAFileWithoutPackets)
{
    constexpr std::size_t kMany = 200'000;
    const GEbmlBytes nothing = Repeat(VoidElement(0), kMany);
    const GEbmlBytes clusters = Repeat(Element(kCluster, GEbmlBytes{}), kMany);
    const GEbmlBytes matches = Join({{0x00}, Repeat({0x1F, 0x43, 0xB6, 0x75, 0x00}, 8 * kMany)});
    for (const GEbmlBytes& middle :
         {Element(kCluster, {UIntElement(kTimecode, 0), nothing}), nothing, clusters, GEbmlBytes(8 << 20), matches}) {
        GMkvReading reading(ThreeTracks()
                                .Add(Cluster(0, {Picture(0, 1, kKeyFlag)}))
                                .Add(middle)
                                .Add(Cluster(40, {Picture(0, 2, kKeyFlag)})));
        ASSERT_TRUE(reading.Announced());
        GNextPacket next;
        std::uint64_t most = 0;
        GReadStatus status = GReadStatus::Again;
        while (status == GReadStatus::Again) {
            const std::uint64_t before = reading.Watch().bytes;
            status = reading.Handler().ReadPacket(next);
            most = std::max(most, reading.Watch().bytes - before);
        }
        EXPECT_EQ(status, GReadStatus::Packet);
        EXPECT_EQ(next.start, 40 * kMillisecond);
        EXPECT_LT(most, middle.size() / 4);
        EXPECT_LT(reading.Watch().bytes, 8 * middle.size());
    }
}

}  // namespace
}  // namespace vex::test
