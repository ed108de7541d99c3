// What kind of file it is, which streams it has, and why it cannot be played.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mpeg/mpeg_reading.h"
#include "platform/text.h"

namespace vex::test {
namespace {

using testing::ElementsAre;

std::vector<std::string> Names(const GMpegReading& reading)
{
    std::vector<std::string> names;
    for (const GStreamInfo& stream : reading.Streams())
        names.push_back(Utf8FromWide(stream.pinName));
    return names;
}

GMpegBytes Behind(std::size_t garbage, const GMpegBytes& file) { return Join({GMpegBytes(garbage, 0x13), file}); }

TEST(MpegKind, IsFoundBySyncsAndPacksAndBehindGarbage)
{
    const GMpegBytes transport = TransportFilm(4).bytes;
    const GMpegBytes stamped = TransportFilm(4, 90'000, 192).bytes;
    const GMpegBytes program = ProgramFilm(4).bytes;
    const auto cut = [](const GMpegBytes& file, std::size_t count) {
        return GMpegBytes(file.begin() + static_cast<std::ptrdiff_t>(count), file.end());
    };
    const std::pair<GMpegBytes, std::string> cases[] = {
        {transport, "transport stream"},
        {Behind(100, transport), "transport stream"},
        {Behind(195, transport), "transport stream"},
        {cut(transport, 50), "transport stream"},
        {stamped, "transport stream, packets of 192 bytes"},
        {Behind(77, stamped), "transport stream, packets of 192 bytes"},
        {cut(stamped, 3), "transport stream, packets of 192 bytes"},
        {program, "MPEG-2 program stream"},
        {Behind(65'000, program), "MPEG-2 program stream"},
        {ProgramFilm(4, true).bytes, "MPEG-1 program stream"},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        GMpegReading reading(cases[i].first);
        ASSERT_TRUE(reading.IsOpen()) << i;
        EXPECT_EQ(reading.Property("kind"), cases[i].second) << i;
        EXPECT_EQ(reading.Streams().size(), 2u) << i;
        // Of four pictures with their sound; a cut may cost the tables and nothing else.
        EXPECT_EQ(reading.ReadAll().size(), 8u) << i;
        EXPECT_EQ(reading.Damage().count, 0u) << i << reading.Damage().first;
    }
}

TEST(MpegKind, AFileThatCannotBePlayedSaysWhy)
{
    GMpegBytes small = TransportFilm(4).bytes;
    small.erase(small.begin() + 383, small.end());
    GTsBuilder others;
    others.Association({{1, 0x1000}}).Map(0x1000, {{0x24, 0x100}, {0x06, 0x101, "", 0x56}, {0x99, 0x102}});
    others.Payload(0x100, Pes(0xE0, 0, MpegVideo(), {.unbounded = true})).Payload(0x101, Pes(0xBD, 0, Ac3Frame()));
    const std::pair<GMpegBytes, const char*> cases[] = {
        {small, "neither a transport stream nor a program stream"},
        {GMpegBytes(5000, 0x13), "neither a transport stream nor a program stream"},
        {Behind(65'540, ProgramFilm(4).bytes), "neither a transport stream nor a program stream"},
        {others.bytes, "H.265, private data, type 0x99"},
        {GPsBuilder().Pack().Add(0xE0, 0, GMpegBytes(500, 1)).bytes, "stream 0xE0"},
        {GPsBuilder().Pack().Add(0xBD, 0, SubStream(0x20, Ac3Frame())).bytes, "none"},  // sub-pictures
    };
    for (const auto& [bytes, text] : cases) {
        const GMpegReading reading(bytes);
        ASSERT_FALSE(reading.IsOpen()) << text;
        EXPECT_THAT(Describe(reading.Opened().Error()), testing::HasSubstr(text));
    }
}

TEST(MpegStreams, HaveNumbersAndLanguagesInTheirNames)
{
    GTsBuilder film;
    film.Association({{1, 0x1000}, {2, 0x1001}});
    film.Map(0x1000, {{0x02, 0x50}, {0x03, 0x51, "ger"}}).Map(0x1001, {{0x81, 0x52, "deu"}, {0x04, 0x53}});
    film.Payload(0x50, Pes(0xE0, 0, MpegVideo())).Payload(0x51, Pes(0xC0, 0, MpegFrame(1, 0xFFFD8400, 384)));
    film.Payload(0x52, Pes(0xBD, 0, Ac3Frame())).Payload(0x53, Pes(0xC0, 0, MpegFrame(1, 0xFFFD8400, 384)));
    const GMpegReading reading(film.bytes);
    EXPECT_THAT(Names(reading), ElementsAre("Video (80)", "Audio /German (81)", "Audio (82)", "Audio (83)"));
    EXPECT_EQ(reading.Streams()[1].language, "German");
    const GMpegReading older(film.bytes, GMpegPinNames::First);
    EXPECT_THAT(Names(older), ElementsAre("Video", "Audio", "Audio", "Audio"));
}

TEST(MpegStreams, OfPrivateStream1AreToldApartFromOthersOfTheirNumber)
{
    GPsBuilder film;
    film.Pack().Add(0xE0, 0, MpegVideo()).Add(0xC0, 0, MpegFrame(1, 0xFFFD8400, 384));
    film.Add(0xBD, 0, SubStream(0xC0, Ac3Frame(2))).Add(0xBD, 0, SubStream(0x89, DtsFrame(3)));
    film.Add(0xBD, 0, Lpcm(0xA1, 0, 2)).Add(0xFD, 0, Vc1Video(), {.extension = 0x55});
    GMpegReading reading(film.bytes);
    EXPECT_THAT(Names(reading),
                ElementsAre("Video (224)", "Audio (192)", "Audio (192)", "Audio (137)", "Audio (161)", "Video (253)"));
    const auto packets = reading.ReadAll();
    EXPECT_EQ(OfStream(packets, 0xBDC0).at(0).payload, Ac3Frame(2));
    EXPECT_EQ(OfStream(packets, 0xBD89).at(0).payload, DtsFrame(3));
    EXPECT_EQ(OfStream(packets, 0xBDA1).at(0).payload, GMpegBytes(40, 7));
    EXPECT_EQ(OfStream(packets, 0xFD55).at(0).payload, Vc1Video());
}

TEST(MpegStreams, HeadersMaySpanTransportPackets)
{
    const std::pair<std::uint8_t, GMpegBytes> starts[] = {
        {0xE0, Mpeg1Video()}, {0xE0, MpegVideo()}, {0xE0, AvcVideo()},  {0xFD, Vc1Video()},
        {0xBD, Ac3Frame()},   {0xBD, DtsFrame()},  {0xC0, AdtsFrame()}, {0xC0, MpegFrame(1, 0xFFFD8400, 384)},
    };
    for (const auto& [id, payload] : starts) {
        std::vector<CMediaType> whole;
        for (const std::size_t piece : {184u, 21u, 17u, 9u, 1u}) {
            GTsBuilder film;
            film.Packet(0x1FFF, false, {}).Packet(0x1FFF, false, {});
            film.Payload(0x100, Pes(id, 0, payload, {.unbounded = true}), piece).Payload(0x100, Pes(id, 3600, payload));
            GMpegReading reading(film.bytes);
            ASSERT_EQ(reading.Streams().size(), 1u) << int{id} << " in pieces of " << piece;
            if (whole.empty())
                whole = reading.Streams()[0].mediaTypes;
            EXPECT_TRUE(whole == reading.Streams()[0].mediaTypes) << int{id} << " in pieces of " << piece;
            const auto packets = reading.ReadAll();
            ASSERT_EQ(packets.size(), 2u);
            EXPECT_EQ(packets[0].payload, payload) << int{id} << " in pieces of " << piece;
        }
    }
}

TEST(MpegTables, SectionsSpanPacketsShareThemAndLie)
{
    std::vector<GMapEntry> many;
    for (std::uint16_t pid = 0; pid < 31; ++pid)
        many.push_back({0x04, static_cast<std::uint16_t>(0x200 + pid), "fre"});
    many.push_back({0x04, 0x51, "ita"});
    many.push_back({0x04, 0x52, "spa"});  // beyond 32 entries
    GTsBuilder film;
    film.Association({{0, 0x10}, {1, 0x1000}}).Map(0x1000, many);
    for (const auto pid : std::initializer_list<std::uint16_t>{0x51, 0x52})
        film.Payload(pid, Pes(0xC0, 0, MpegFrame(1, 0xFFFD8400, 384)));
    EXPECT_THAT(Names(GMpegReading(film.bytes)), ElementsAre("Audio /Italian (81)", "Audio (82)"));

    // Lengths that lie leave what is read before them, and no stream is lost.
    for (const unsigned length : {0u, 3u, 12u, 13u, 17u, 0xFFFu}) {
        GTsBuilder lying;
        lying.Association({{1, 0x1000}});
        lying.Section(0x1000, 2, {0, 1, 0xC1, 0, 0, 0xE1, 0, 0xF0, 0, 0x03, 0xE0, 0x51, 0xFF, 0xFF, 0x0A, 4, 'g', 'e'},
                      length);
        lying.Payload(0x51, Pes(0xC0, 0, MpegFrame(1, 0xFFFD8400, 384)));
        EXPECT_THAT(Names(GMpegReading(lying.bytes)), ElementsAre("Audio (81)")) << length;
    }
}

TEST(MpegTables, AacIsTakenByItsTypeAndWithoutIt)
{
    for (const auto type : std::initializer_list<std::uint8_t>{0x0F, 0x04, 0x00}) {
        for (const auto id : std::initializer_list<std::uint8_t>{0xC0, 0xBD}) {
            GTsBuilder film;
            film.Packet(0x1FFF, false, {});
            if (type != 0)
                film.Association({{1, 0x1000}}).Map(0x1000, {{type, 0x51}});
            film.Payload(0x51, Pes(id, 0, Repeat(AdtsFrame(), 3)));
            const GMpegReading reading(film.bytes);
            const bool found = id == 0xC0 || type == 0x0F;
            EXPECT_EQ(reading.IsOpen(), found) << int{type} << " " << int{id};
        }
    }
}

// A sync word of two bytes turns up in any data: 0B 77 and a header that could be one, in private data without a frame.
TEST(MpegStreams, AreNotMadeOfChance)
{
    const GMpegBytes chance = Join({GMpegBytes(100, 3), {0x0B, 0x77, 0, 0, 28, 0x40, 0xE1}, GMpegBytes(60, 3)});
    GTsBuilder film = TransportFilm(5);
    for (int i = 0; i < 50; ++i) {
        film.Payload(0x200, Pes(0xBD, 0, Join({GMpegBytes(30, 3), chance, chance})));
        film.Payload(0x201, Pes(0xE1, 0, Join({AvcVideo(1, false), chance})));
        film.Packet(0x202, false, chance);
    }
    EXPECT_EQ(GMpegReading(film.bytes).Streams().size(), 2u);
}

TEST(MpegOpen, ReadsABoundedPartOfTheFile)
{
    std::uint64_t before = 0;
    for (const unsigned pictures : {20'000u, 40'000u}) {
        GMpegReading reading(TransportFilm(pictures).bytes);
        if (before > 0) {
            EXPECT_EQ(reading.Watch().bytes, before);
        }
        before = reading.Watch().bytes;
    }
    GMpegReading program(ProgramFilm(2000).bytes);  // pictures and sound by unit 100
    EXPECT_LT(program.Watch().bytes, 300'000u);
}

}  // namespace
}  // namespace vex::test
