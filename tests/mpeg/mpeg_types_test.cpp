// Media types, to the byte, out of the first payload of a stream.
#include <gtest/gtest.h>

#include "io/fourcc.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/video_types.h"
#include "mpeg/mpeg_reading.h"
#include "platform/guids.h"

namespace vex::test {
namespace {

std::vector<CMediaType> TypesOf(std::uint8_t streamId, const GMpegBytes& payload)
{
    GPsBuilder film;
    const GMpegReading reading(film.Pack().Add(streamId, 0, payload).Pack().Add(0xBE, {}, GMpegBytes(400)).bytes);
    return reading.Streams().size() == 1 ? reading.Streams()[0].mediaTypes : std::vector<CMediaType>();
}

MPEG2VIDEOINFO Info(LONG width, LONG height, std::uint32_t compression, DWORD aspectX, DWORD aspectY,
                    REFERENCE_TIME time)
{
    MPEG2VIDEOINFO info{};
    info.hdr.bmiHeader = {40, width, height, 1, 0, compression, 0, 0, 0, 0, 0};
    info.hdr.dwPictAspectRatioX = aspectX;
    info.hdr.dwPictAspectRatioY = aspectY;
    info.hdr.AvgTimePerFrame = time;
    return info;
}

// `first` to behind `last`, counted in `bytes`.
GBytes Part(const GMpegBytes& bytes, std::size_t first, std::size_t last)
{
    return GBytes(bytes).subspan(first, last - first);
}

TEST(MpegType, Mpeg2VideoAddsTheBitsOfItsExtension)
{
    MPEG2VIDEOINFO info = Info(320, 240, 0, 4, 3, 400'000);
    info.hdr.dwBitRate = 400'000;
    info.dwProfile = 2;
    info.dwLevel = 2;
    const GMpegBytes plain = MpegVideo();
    ASSERT_EQ(TypesOf(0xE0, plain).size(), 1u);
    EXPECT_TRUE(TypesOf(0xE0, plain)[0] == MakeMpeg2VideoType(MEDIASUBTYPE_MPEG2_VIDEO, info, Part(plain, 0, 22)));

    GMpegBytes large = MpegVideo();
    large[7] = 0x44;  // 16:9 became 2.21:1, 29.97 fps
    const std::uint8_t more[] = {0xB5, 0x14, 0x8A, 0x80, 0x03, 0x00, 0x22};
    std::copy(std::begin(more), std::end(more), large.begin() + 15);
    info = Info(320 + 4096, 240, 0, 221, 100, 333'666 * 2 / 3 + 0);
    info.hdr.AvgTimePerFrame = 900'900LL * 2 / 3 * 10 / 27;  // n 1, d 2
    info.hdr.dwBitRate = (1000 + (1 << 18)) * 400;
    info.dwProfile = info.dwLevel = 2;
    EXPECT_TRUE(TypesOf(0xE0, large)[0] == MakeMpeg2VideoType(MEDIASUBTYPE_MPEG2_VIDEO, info, Part(large, 0, 22)));
}

TEST(MpegType, Mpeg1VideoHasTheAspectOfItsSamplesAndTruncatedFrameTimes)
{
    GMpegBytes start = Mpeg1Video();
    start[7] = 0x84;  // samples of 1.0 : 0.9157, 29.97 fps
    MPEG2VIDEOINFO info = Info(320, 240, 0, 349, 240, 333'666);
    info.hdr.dwBitRate = 400'000;
    EXPECT_TRUE(TypesOf(0xE0, start)[0] == MakeMpeg2VideoType(MEDIASUBTYPE_MPEG2_VIDEO, info, Part(start, 0, 12)));
}

TEST(MpegType, AvcIsShownWith1080RowsAndCarriesItsSets)
{
    const GMpegBytes start = AvcVideo1088();
    const GBytes bytes = start;
    const std::size_t picture = FindBytes(bytes, GMpegBytes{0, 0, 1, 0x68});
    GMpegBytes sets{0, static_cast<std::uint8_t>(picture - 3)};
    sets.insert(sets.end(), start.begin() + 3, start.begin() + static_cast<std::ptrdiff_t>(picture));
    sets = Join({sets, {0, 4, 0x68, 0xCE, 0x0F, 0xC8}});
    MPEG2VIDEOINFO info = Info(1920, 1080, FourCC("AVC1"), 64, 27, 333'666);
    info.dwProfile = 77;
    info.dwLevel = 40;
    info.dwFlags = 4;
    ASSERT_EQ(TypesOf(0xE0, start).size(), 1u);
    EXPECT_TRUE(TypesOf(0xE0, start)[0] == MakeMpeg2VideoType(SubtypeFromFourCC("AVC1"), info, sets));
}

TEST(MpegType, Vc1IsOfferedWithAnAspectAndWithout)
{
    const GMpegBytes start = Vc1Video();
    const auto types = TypesOf(0xFD, start);
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = 417'083;  // 1001 / 24000 s
    info.bmiHeader = {40, 1920, 1080, 1, 0, FourCC("WVC1"), 0, 0, 0, 0, 0};
    const std::size_t end = FindBytes(start, GMpegBytes{0, 0, 1, 0x0D});
    const CMediaType plain = MakeVideoInfoType(SubtypeFromFourCC("WVC1"), info, Part(start, 0, end));
    ASSERT_EQ(types.size(), 2u);
    EXPECT_TRUE(types[0] == MakeVideoInfo2Twin(plain, 16, 9));
    EXPECT_TRUE(types[1] == plain);
}

TEST(MpegType, SoundComesFromItsFirstHeader)
{
    const std::array<std::uint8_t, 5> config{0x11, 0x90, 0, 0, 0};
    GAdtsTestFrame aac{.rateIndex = 3, .channels = 0, .payload = 993};
    const struct {
        std::uint8_t id;
        GMpegBytes payload;
        CMediaType type;
    } cases[] = {
        {0xBD, SubStream(0x80, Ac3Frame()), MakeWaveType(MEDIASUBTYPE_DOLBY_AC3, {0x2000, 6, 48'000, 56'000, 0, 0, 0})},
        {0xBD, SubStream(0x88, DtsFrame()), MakeWaveType(MEDIASUBTYPE_DTS, {0x2001, 5, 48'000, 188'718'750, 0, 0, 0})},
        {0xBD, Lpcm(0xA0, 1, 2), MakeWaveType(MEDIASUBTYPE_DVD_LPCM_AUDIO, {1, 2, 48'000, 240'000, 5, 20, 0})},
        {0xC0, Repeat(AdtsFrame(aac), 2), MakeWaveType({0xFF, 2, 48'000, 48'000u * 1000 / 2048, 0, 0, 0}, config)},
        {0xC0, MpegFrame(1, 0xFFFBA400, 480), MakeWaveType({0x55, 2, 48'000, 20'000, 480, 0, 0})},
        {0xC0, MpegFrame(1, 0xFFF38400, 192), MakeWaveType({0x55, 2, 24'000, 8'000, 384, 0, 0})},  // MPEG-2: not halved
        {0xC0, MpegFrame(1, 0xFFFDA4D4, 576),
         MakeMpeg1WaveType({0, 1, 48'000, 24'000, 576, 0, 0}, *ReadMpegAudioHeader(MpegFrame(1, 0xFFFDA4D4, 576)))},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto types = TypesOf(cases[i].id, cases[i].payload);
        ASSERT_EQ(types.size(), 1u) << i;
        EXPECT_TRUE(types[0] == cases[i].type) << i;
    }
}

TEST(MpegType, HeadersWithReservedValuesAreRefused)
{
    const std::pair<std::uint8_t, GMpegBytes> cases[] = {
        {0xBD, SubStream(0x80, Ac3Frame(1, 38))},
        {0xBD, SubStream(0x80, Ac3Frame(1, 0xC0))},
        {0xBD, Lpcm(0xA0, 3, 2)},
        {0xBD, Lpcm(0xA9, 0, 2)},
        {0xBD, First(Lpcm(0xA0, 0, 2), 6)},
        {0xC0, MpegFrame(0, 0xFFFDF400, 576)},
        {0xC0, MpegFrame(0, 0xFFFDAC00, 576)},
        {0xC0, MpegFrame(0, 0xFFFDA402, 576)},
        {0xC0, MpegFrame(0, 0xFFEDA400, 576)},
        {0xC0, AdtsFrame({.rateIndex = 13, .mark = 0})},
        {0xE0, AvcVideo(1, false)},
        {0xE0, MpegVideo(1, false)},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_TRUE(TypesOf(cases[i].first, cases[i].second).empty()) << i;
}

}  // namespace
}  // namespace vex::test
