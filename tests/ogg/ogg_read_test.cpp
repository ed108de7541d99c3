// Streams, packets and times.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/media_type_text.h"
#include "ogg/ogg_reading.h"
#include "platform/text.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

GOggBytes Data(std::uint32_t serial, std::uint32_t number, std::int64_t granule, std::vector<GOggBytes> packets)
{
    return Page({.serial = serial, .number = number, .granule = granule, .packets = std::move(packets)});
}

std::string Name(const GStreamInfo& info) { return Utf8FromWide(info.pinName); }

TEST(OggTimes, VorbisCountsHalfBlocksBetweenGranules)
{
    GOggReading reading(
        Join({HeaderPages(1, VorbisHeaders(10'000)), Data(1, 2, 1280, {kShortBlock, kLongBlock, kShortBlock}),
              Data(1, 3, 9000, {kLongBlock, kLongBlock})}));
    const auto packets = reading.ReadAll();
    EXPECT_THAT(Starts(packets), ElementsAre(128'000, 1'152'000, 1'280'000, 2'304'000, 9'000'000));
    for (const auto& packet : packets) {
        EXPECT_EQ(packet.next.stop, packet.next.start + 1);
        EXPECT_EQ(packet.next.mediaStart, 0);
        EXPECT_EQ(packet.next.mediaStop, 0);
        EXPECT_FALSE(packet.next.keyFrame);
    }
    EXPECT_EQ(reading.Handler().Duration(), 9'000'000);
}

TEST(OggTimes, ACaptureThatStartsLateCountsBackFromItsFirstGranule)
{
    GOggReading vorbis(Join({HeaderPages(1, VorbisHeaders(10'000)), Data(1, 9, 50'000, {kLongBlock, kLongBlock})}));
    EXPECT_THAT(Starts(vorbis.ReadAll()), ElementsAre(48'976'000, 50'000'000));
    // The granule may come pages later.
    GOggReading later(
        Join({HeaderPages(1, VorbisHeaders(10'000)), Data(1, 9, -1, {kLongBlock}), Data(1, 10, 50'000, {kLongBlock})}));
    EXPECT_THAT(Starts(later.ReadAll()), ElementsAre(48'976'000, 50'000'000));
    // Or never.
    GOggReading never(Join({HeaderPages(1, VorbisHeaders(10'000)), Data(1, 9, -1, {kLongBlock, kLongBlock})}));
    EXPECT_THAT(Starts(never.ReadAll()), ElementsAre(1'024'000, 2'048'000));
}

TEST(OggTimes, TheoraFramesAreNumberedFromZeroWhateverTheVersion)
{
    const GOggBytes key{0x00, 1};
    const GOggBytes delta{0x40, 2};
    for (const std::uint32_t version : {0x030200u, 0x030201u, 0x040000u}) {
        const std::int64_t first = version >= 0x030201 ? 1 : 0;
        GOggReading reading(
            Join({HeaderPages(1, TheoraHeaders({.version = version})), Data(1, 2, first << 6 | 2, {key, delta, delta}),
                  Data(1, 3, (first + 3) << 6, {key})}));
        const auto packets = reading.ReadAll();
        EXPECT_THAT(Starts(packets), ElementsAre(0, 400'000, 800'000, 1'200'000)) << version;
        EXPECT_THAT(KeyFlags(packets), ElementsAre(true, false, false, true));
    }
}

TEST(OggTimes, VideoBeginsAtAKeyFrame)
{
    GOggReading reading(Join({HeaderPages(1, TheoraHeaders()), Data(1, 2, 1 << 6 | 1, {{0x40}, {0x40}}),
                              Data(1, 3, 3 << 6 | 1, {{0x00, 7}, {0x40, 8}})}));
    EXPECT_THAT(Starts(reading.ReadAll()), ElementsAre(800'000, 1'200'000));
}

TEST(OggTimes, OgmSoundIsRoundedToTheNearestAndAHalfDown)
{
    const GOggBytes header = OgmHeader(
        {.type = "audio", .subtype = "2000", .timeUnit = 10'000'000, .samplesPerUnit = 48'000, .defaultLength = 1536});
    GOggReading reading(
        Join({HeaderPages(1, {header, CommentHeader({})}), Data(1, 2, 0, {{0x08, 1}}), Data(1, 3, 1, {{0x08, 2}}),
              Data(1, 4, -1, {{0x08, 3}}), Data(1, 5, 3, {{0x48, 200, 4}}), Data(1, 6, -1, {{0x48, 200, 5}})}));
    const auto packets = reading.ReadAll();
    EXPECT_THAT(Starts(packets), ElementsAre(0, 208, 320'208, 625, 42'292));
    EXPECT_THAT(Marks({packets.begin(), packets.end()}), ElementsAre(1, 2, 3, 4, 5));
}

TEST(OggTimes, OgmTextLastsAsLongAsItsLengthBytesSay)
{
    const GOggBytes header = OgmHeader({.type = "text", .subtype = "", .timeUnit = 10'000, .defaultLength = 700});
    struct GCase {
        GOggBytes packet;
        LONGLONG length;
    };
    const GCase cases[] = {
        {{0x00, 'a'}, 700},
        {{0x40, 5, 'a'}, 5},
        {{0x80, 0x10, 0x27, 'a'}, 10'000},
        {{0x02, 1, 0, 0, 1, 'a'}, 0x0100'0001},
        {{0x42, 1, 0, 0, 0, 1, 'a'}, 0xFFFF'FFFF},
    };
    for (const GCase& one : cases) {
        GOggReading reading(Join({HeaderPages(1, {header, CommentHeader({})}), Data(1, 2, 40, {one.packet})}));
        const auto packets = reading.ReadAll();
        ASSERT_EQ(packets.size(), 1u);
        EXPECT_EQ(packets[0].payload, GOggBytes{'a'});
        EXPECT_TRUE(packets[0].next.keyFrame);
        EXPECT_EQ(packets[0].next.start, 400'000);
        EXPECT_EQ(packets[0].next.stop, 10'000 * (40 + one.length));
        EXPECT_EQ(packets[0].next.mediaStart, 40);
        EXPECT_EQ(packets[0].next.mediaStop, 40 + one.length);
    }
    GOggReading odd(Join({HeaderPages(1, {header}), Data(1, 1, 40, {{0x00, 'a'}}), Data(1, 2, -1, {{0x01, 'b'}})}));
    EXPECT_THAT(Starts(odd.ReadAll()), ElementsAre(400'000, 410'000)) << "the header bit means nothing in a text";
}

TEST(OggTypes, OgmHeadersGiveFormatsAndTheirExtraDataIsCutToThePacket)
{
    const std::uint64_t picture = std::uint64_t{240} << 32 | 320;
    const std::uint64_t sound = std::uint64_t{16'000} << 32 | 1u << 16 | 2;
    for (const auto& [size, extra] : {std::pair{59u, 3u}, {58u, 2u}, {900u, 3u}, {40u, 0u}}) {
        GOggReading reading(Join({HeaderPages(1, {OgmHeader({.type = "video",
                                                             .subtype = "XVID",
                                                             .size = size,
                                                             .timeUnit = 400'000,
                                                             .bits = 24,
                                                             .tail = picture,
                                                             .extra = {7, 8, 9}})}),
                                  HeaderPages(2, {OgmHeader({.type = "audio",
                                                             .subtype = "55",
                                                             .size = size,
                                                             .samplesPerUnit = 44'100,
                                                             .tail = sound,
                                                             .extra = {7, 8, 9}})})}));
        ASSERT_EQ(reading.Streams().size(), 2u);
        const CMediaType& video = reading.Streams()[0].mediaTypes[0];
        const CMediaType& audio = reading.Streams()[1].mediaTypes[0];
        EXPECT_EQ(SubtypeName(video.subtype), "XVID");
        EXPECT_EQ(video.cbFormat, sizeof(VIDEOINFOHEADER) + extra);
        EXPECT_EQ(audio.subtype, SubtypeFromWaveTag(0x55));
        EXPECT_EQ(WaveExtra(audio).size(), extra);
    }
}

TEST(OggTypes, AHeaderThatDoesNotFitTheFloorMakesItsPinAskForMore)
{
    GOggReading reading(Join({HeaderPages(1, VorbisHeaders(48'000, {"title=" + std::string(60'000, 'x')})),
                              Data(1, 2, 1024, {kLongBlock})}));
    ASSERT_TRUE(reading.IsOpen());
    const GStreamInfo& info = reading.Streams()[0];
    ASSERT_EQ(info.leadSamples.size(), 3u);
    EXPECT_GT(info.leadSamples[1].data.size(), 60'000u);
    EXPECT_GE(info.minimumBuffer, info.leadSamples[1].data.size());
    EXPECT_TRUE(info.dropBeforeSegment);
}

TEST(OggStreams, AreNamedByKindAndLanguage)
{
    const GOggBytes file =
        Join({HeaderPages(5, TheoraHeaders({}, {"CHAPTER01=00:00:01.000", "CHAPTER01NAME=One", "Title=Film"})),
              HeaderPages(6, VorbisHeaders(48'000, {"LANGUAGE=ger"})), HeaderPages(7, VorbisHeaders(48'000)),
              HeaderPages(8, {OgmHeader({.type = "text", .subtype = ""}), CommentHeader({"language=en"})}),
              HeaderPages(9, {GOggBytes{1, 'G', 'S', 't', 'r', 'e', 'a', 'm'}}), TheoraPage(0, 9)});
    const auto namesOf = [&](GOggPinNames names) {
        std::vector<std::string> all;
        GOggReading reading(file, names);
        for (const GStreamInfo& info : reading.Streams())
            all.push_back(Name(info));
        EXPECT_EQ(reading.Property("chapter01"), "00:00:01.000");
        EXPECT_EQ(reading.Property("chapter01name"), "One");
        EXPECT_EQ(reading.Streams()[0].properties.at(0).value, "Film");
        EXPECT_EQ(reading.Streams()[4].target, GStreamTarget::Filter);
        return all;
    };
    EXPECT_THAT(namesOf(GOggPinNames::Second),
                ElementsAre("Video", "Audio / German", "Audio", "Subtitle / English", "GStream"));
    EXPECT_THAT(namesOf(GOggPinNames::First),
                ElementsAre("Video 0", "Audio / German", "Audio 2", "Subtitle / English", "GStream 4"));
}

TEST(OggStreams, OnesThatLackHeadersAreLeftOutAndAFileOfOthersSaysWhatTheyAre)
{
    const auto headers = VorbisHeaders(48'000);
    GOggReading half(
        Join({HeaderPages(1, {headers[0], headers[1]}), HeaderPages(2, TheoraHeaders()), TheoraPage(0, 9)}));
    ASSERT_EQ(half.Streams().size(), 1u);
    EXPECT_EQ(half.Streams()[0].number, 2u);

    EXPECT_FALSE(GOggReading(HeaderPages(1, {headers[0], headers[1]})).IsOpen());
    EXPECT_FALSE(
        GOggReading(HeaderPages(1, {OgmHeader({.type = "audio", .subtype = "55", .samplesPerUnit = 0})})).IsOpen());
    const GOggBytes opus{'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1};
    const GOggBytes skeleton{'f', 'i', 's', 'h', 'e', 'a', 'd', 0};
    GOggReading others(Join({HeaderPages(1, {skeleton}), HeaderPages(2, {opus})}));
    ASSERT_FALSE(others.IsOpen());
    EXPECT_THAT(Describe(others.Opened().Error()), HasSubstr("Skeleton, Opus"));
    GOggReading unknown(HeaderPages(1, {{'n', 'o', 'n', 'e'}}));
    ASSERT_FALSE(unknown.IsOpen());
    EXPECT_THAT(Describe(unknown.Opened().Error()), HasSubstr("an unknown codec"));
}

}  // namespace
}  // namespace vex::test
