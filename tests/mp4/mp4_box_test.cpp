// Where the movie header may lie, and what is said when there is none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include "formats/mp4/mp4_box.h"
#include "mp4/mp4_reading.h"
#include "platform/temp_files.h"

namespace vex::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const GMp4TestFile kFilm{.tracks = {NumberedVideo(3)}};
const std::vector<int> kMarks{1, 2, 3};

GMp4Bytes Replace(GMp4Bytes file, std::string_view from, std::string_view to)
{
    std::ranges::copy(to, file.begin() + static_cast<std::ptrdiff_t>(FindBox(file, from)) + 4);
    return file;
}

GMp4Bytes Compressed(const GMp4Bytes& movie, std::uint32_t declared, std::string_view algorithm = "zlib")
{
    uLongf size = compressBound(static_cast<uLong>(movie.size()));
    GMp4Bytes packed(size);
    compress(packed.data(), &size, movie.data(), static_cast<uLong>(movie.size()));
    packed.resize(size);
    return Box("cmov", Join({Box("dcom", GMp4Bytes(algorithm.begin(), algorithm.end())),
                             Box("cmvd", Join({BigEndian(declared), packed}))}));
}

TEST(Mp4Boxes, TheMovieHeaderIsFoundWhereverWritersPutIt)
{
    const auto [data, movie] = kFilm.DataAndMovie();
    GMp4TestFile wide = kFilm;
    wide.start = Box("wide", {});
    GMp4TestFile large = kFilm;  // a 64-bit "mdat" is 8 bytes longer
    large.start = Join({kFilm.start, GMp4Bytes(8)});
    auto [largeData, largeMovie] = large.DataAndMovie();
    const std::size_t mdat = kFilm.start.size();
    const GMp4Bytes header = Join({BigEndian(1), {'m', 'd', 'a', 't'}, BigEndian(largeData.size() - mdat, 8)});
    std::ranges::copy(header, largeData.begin() + static_cast<std::ptrdiff_t>(mdat));
    GMp4TestFile wrapped = kFilm;  // the boxes of "M1.5" start at 188, its chunk offsets are 120 too small
    wrapped.start = Join({{0, 0, 0, 188, 'M', '1', '.', '5'}, GMp4Bytes(180)});
    wrapped.offsetsLess = 120;
    const auto raw = static_cast<std::uint32_t>(movie.size());
    const std::pair<const char*, GMp4Bytes> files[] = {
        {"behind the data", Join({data, movie})},
        {"behind \"wide\"", wide.Build()},
        {"behind a 64-bit size", Join({largeData, largeMovie})},
        {"hidden in \"free\"", Replace(Join({data, movie}), "moov", "free")},
        {"in a wrapper", wrapped.Build()},
        {"compressed", Join({data, Box("moov", Compressed(movie, raw))})},
        {"compressed in \"free\"", Join({data, Box("free", Compressed(movie, raw))})},
    };
    const std::size_t temporary = ListFiles("tav", ".tmp").size();
    for (const auto& [what, file] : files) {
        GMp4Reading reading(file);
        ASSERT_TRUE(reading.IsOpen()) << what << ": " << Describe(reading.Opened().Error());
        EXPECT_EQ(Marks(reading.ReadAll()), kMarks) << what;
        EXPECT_EQ(reading.Damage().count, 0u) << what << ": " << reading.Damage().first;
    }
    EXPECT_EQ(ListFiles("tav", ".tmp").size(), temporary);
}

TEST(Mp4Boxes, AFileWithoutAMovieSaysWhatItIs)
{
    const auto [data, movie] = kFilm.DataAndMovie();
    const auto raw = static_cast<std::uint32_t>(movie.size());
    GMp4TestFile other = kFilm;
    other.tracks[0].entry = "hev1";
    GMp4TestFile text = kFilm;
    text.tracks[0].handler = "text";
    GMp4TestFile unplayed{.tracks = {PcmSound({4})}};
    unplayed.tracks[0].entry = "alaw";
    const std::pair<const char*, GMp4Bytes> files[] = {
        {"does not begin with an MP4 box", {'R', 'I', 'F', 'F', 4, 0, 0, 0, 'A', 'V', 'I', ' '}},
        {"too short", {0, 0, 0, 8}},
        {"cut off before it was finished", data},
        {"cut off before it was finished",
         Join({data, Box("mdat", {}), BigEndian(0), movie})},  // size 0 ends the level
        {"media segment", Box("styp", GMp4Bytes(8))},
        {"only movie fragments", Join({kFilm.start, Box("moof", {})})},
        {"only movie fragments",
         Join({kFilm.start, Box("moov", Join({FullBox("mvhd", GMp4Bytes(96)), Box("mvex", {}), Box("trak", {})}))})},
        {"no 'mvhd'", Replace(Join({data, movie}), "mvhd", "free")},
        {"no track", Replace(Join({data, movie}), "trak", "free")},
        {"no track can be played: 'hev1'", other.Build()},
        {"no track can be played: 'mp4v'", text.Build()},
        {"no track can be played: 'alaw'", unplayed.Build()},
        {"no 'mvhd'", Join({data, Box("moov", Compressed(movie, raw, "lzma"))})},
        {"no 'mvhd'", Join({data, Box("moov", Compressed(movie, raw - 1))})},
        {"no 'mvhd'", Join({data, Box("moov", Compressed(movie, 0xFFFF'FFFF))})},
    };
    for (const auto& [reason, file] : files) {
        GMp4Reading reading(file);
        ASSERT_FALSE(reading.IsOpen()) << reason;
        EXPECT_THAT(Describe(reading.Opened().Error()), HasSubstr(reason));
    }
}

TEST(Mp4Boxes, PathsFollowTypesAndIndices)
{
    GMp4BoxTree tree;
    const auto add = [&](Mp4Box& father, const char(&type)[5]) -> Mp4Box& {
        Mp4Box* const box = tree.NewBox();
        box->type = FourCC(type);
        GMp4BoxTree::Append(father, *box);
        return *box;
    };
    Mp4Box& moov = add(tree.Root(), "moov");
    Mp4Box& first = add(moov, "trak");
    Mp4Box& udta = add(moov, "udta");
    Mp4Box& second = add(moov, "trak");
    Mp4Box& header = add(second, "tkhd");
    const std::pair<const char*, const Mp4Box*> paths[] = {
        {"/moov/trak", &first},
        {"//moov//trak[1]/tkhd", &header},
        {"moov/[1]", &udta},
        {"moov/./trak/..", &moov},
        {"moov/trak[1]/../udta", &udta},
        {"/moov/trak[2]", nullptr},
        {"/mov", nullptr},
        {"moov/trak[1", nullptr},
        {"moov/trak[x]", nullptr},
        {"moov/[9]", nullptr},
        {"..", nullptr},
    };
    for (const auto& [path, box] : paths)
        EXPECT_EQ(tree.GetBox(path), box) << path;
    EXPECT_EQ(GMp4BoxTree::GetBox(header, "/moov/udta"), &udta);
    EXPECT_EQ(tree.CountBox("/moov/trak"), 2u);
    EXPECT_EQ(tree.CountBox("/moov/trak[1]"), 1u);
    EXPECT_EQ(tree.CountBox("/moov/mdia"), 0u);
}

TEST(Mp4Boxes, AClockThatWasLeftEmptyComesFromTheLongestTrack)
{
    for (const std::uint32_t timescale : {0u, 600u}) {
        GMp4TestFile file{.tracks = {NumberedVideo(3), PcmSound({44100})}, .timescale = timescale, .duration = 0};
        GMp4Reading reading(file);
        EXPECT_EQ(reading.Handler().Duration(), kSecond) << timescale;
        EXPECT_EQ(reading.ReadAll().size(), 3u + 44u);
    }
    GMp4TestFile none{.tracks = {NumberedVideo(3), PcmSound({8})}};
    none.tracks[0].timescale = 0;
    EXPECT_EQ(GMp4Reading(none).Streams().size(), 1u);
}

TEST(Mp4Boxes, StreamsCarryTheNamesAndLanguageOfTheirTracks)
{
    GMp4TestFile file{.tracks = {NumberedVideo(3, 1, 7), PcmSound({8}, 9)}};
    file.tracks[1].language = "fra";
    GMp4Reading reading(file);
    ASSERT_EQ(reading.Streams().size(), 2u);
    EXPECT_EQ(reading.Streams()[0].pinName, VEX_W("Video (7)"));
    EXPECT_EQ(reading.Streams()[0].pinId, VEX_W("Output 7"));
    EXPECT_EQ(reading.Streams()[0].language, "English");
    EXPECT_EQ(reading.Streams()[1].pinName, VEX_W("Audio (9)"));
    EXPECT_EQ(reading.Property("brand"), "isom");
}

}  // namespace
}  // namespace vex::test
