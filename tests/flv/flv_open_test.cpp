// What a file's header and first tags say: streams, their types, and why a file cannot be played.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "flv/flv_reading.h"
#include "io/fourcc.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/video_types.h"

namespace vex::test {
namespace {

const CMediaType& OnlyType(const GFlvReading& reading) { return reading.Streams()[0].mediaTypes[0]; }

TEST(FlvOpen, AFileThatCannotBePlayedSaysWhy)
{
    const GFlvBytes speex = Payload({0xB2}, 20);
    const GFlvBytes screen = Payload({0x13}, 20);
    const std::pair<GFlvBytes, const char*> cases[] = {
        {{'F', 'L', 'V', 1, 5, 0, 0, 0, 9, 0}, "shorter than an FLV header"},
        {{'F', 'L', 'X', 1, 5, 0, 0, 0, 9, 0, 0}, "does not begin with"},
        {Payload({'F', 'L', 'V', 1, 5, 0, 0, 0, 100}, 50), "data offset"},
        {GFlvBuilder().bytes, "no tag"},
        {GFlvBuilder().Tag(kFlvScript, 0, Payload({2}, 20)).bytes, "neither an audio nor a video"},
        {GFlvBuilder().Audio(0, speex).Video(0, screen).bytes, "has Speex audio and Screen 1 video"},
        {GFlvBuilder().Video(0, Payload({0x90, 'h', 'v', 'c', '1'}, 20)).bytes, "FourCC"},
        {GFlvBuilder(1).Audio(0, Mp3Frame(1)).bytes, "announces video alone"},
    };
    for (const auto& [bytes, text] : cases) {
        const GFlvReading reading(bytes);
        ASSERT_FALSE(reading.IsOpen()) << text;
        EXPECT_THAT(Describe(reading.Opened().Error()), testing::HasSubstr(text));
    }
}

TEST(FlvOpen, PinsFollowTheTagsAndTheHeadersFlagsInAFixedOrder)
{
    const std::pair<GFlvBuilder, const char*> cases[] = {
        {GFlvBuilder(0, 13).Video(0, SorensonPicture(true, 1)).Audio(0, Mp3Frame(1)), "Audio Pin,Video Pin,"},
        {GFlvBuilder(4).Video(0, SorensonPicture(true, 1)).Audio(0, Mp3Frame(1)), "Audio Pin,Video Pin,"},
        {GFlvBuilder(1).Video(0, SorensonPicture(true, 1)).Audio(0, Mp3Frame(1)), "Video Pin,"},
        {GFlvBuilder(4).Audio(0, Mp3Frame(1)), "Audio Pin,"},
        {GFlvBuilder(5).Video(0, SorensonPicture(true, 1)), "Video Pin,"},
    };
    for (const auto& [file, names] : cases) {
        std::string found;
        const GFlvReading reading(file.bytes);
        for (const GStreamInfo& stream : reading.Streams())
            found += Utf8FromWide(stream.pinName) + ",";
        EXPECT_EQ(found, names);
    }
}

TEST(FlvOpen, AFormatIsLookedForInTheFirst200Tags)
{
    for (const unsigned before : {199u, 200u}) {
        GFlvBuilder file;
        file.Audio(0, Mp3Frame(1));
        for (unsigned i = 1; i < before; ++i)
            file.Video(0, AvcPicture(true, 1));  // no configuration yet
        file.Video(0, AvcConfiguration());
        EXPECT_EQ(GFlvReading(file.bytes).Streams().size(), before < 200 ? 2u : 1u) << before;
    }
}

TEST(FlvType, EachSoundFormatHasItsTagSubtypeAndOverrides)
{
    const struct {
        GFlvBytes payload;
        std::uint32_t subtype;
        WAVEFORMATEX wave;
        GFlvBytes extra{};
    } cases[] = {
        {{0x0E}, 1, {1, 1, 44'100, 88'200, 2, 16, 0}},
        {{0x09}, 1, {1, 2, 22'050, 44'100, 2, 8, 0}},
        {{0x13}, FourCC("ASWF"), {2, 2, 5'512, 0, 0, 16, 0}},
        {{0x26}, 0x55, {0x55, 1, 11'025, 0, 0, 16, 0}},
        {{0x4F}, FourCC("NELL"), {0x3200, 1, 16'000, 0, 0, 16, 0}},
        {{0x5D}, FourCC("NELL"), {0xA100, 1, 8'000, 0, 0, 8, 0}},
        {{0x6B}, FourCC("NELL"), {0xA200, 2, 22'050, 0, 0, 16, 0}},
        {{0xA0, 0, 0x12, 0x10, 0x56}, 0xFF, {0xFF, 2, 44'100, 0, 0, 16, 2}, {0x12, 0x10}},
        {{0xAF, 0, 0x14, 0x08}, 0xFF, {0xFF, 2, 16'000, 0, 0, 16, 2}, {0x14, 0x08}},
        {{0xAF, 0, 0x17, 0x88}, 0xFF, {0xFF, 2, 44'100, 0, 0, 16, 2}, {0x17, 0x88}},  // an explicit rate has no index
    };
    for (const auto& one : cases) {
        GFlvBuilder file;
        const GFlvReading reading(file.Audio(0, one.payload).Audio(9, Payload({one.payload[0], 1}, 9)).bytes);
        ASSERT_EQ(reading.Streams().size(), 1u);
        EXPECT_TRUE(OnlyType(reading) == MakeWaveType(SubtypeFromFourCC(one.subtype), one.wave, one.extra))
            << one.wave.wFormatTag << " of " << one.wave.nSamplesPerSec;
    }
}

TEST(FlvType, PictureSizesComeFromTheFirstKeyFrameThatHasOne)
{
    const std::pair<GFlvBytes, std::uint32_t> cases[] = {
        {SorensonPicture(true, 0), FourCC("FLV1")},
        {{0x14, 0x00, 0x78, 0x36, 0x0F, 0x14, 0x0F, 0x14}, FourCC("FLV4")},  // 15 rows, 20 columns
        {{0x15, 0x00, 0, 0, 7, 0x78, 0x36, 0x0F, 0x14, 0x0F, 0x14}, FourCC("FLV4")},
    };
    for (const auto& [payload, fourCC] : cases) {
        const auto inter = static_cast<std::uint8_t>(0x20 | (payload[0] & 0x0F));
        const GFlvBytes cut(payload.begin(), payload.begin() + 4);
        GFlvBuilder file;
        file.Video(0, Payload({inter, 0xFF, 0xFF}, 20)).Video(0, cut).Video(0, payload);
        const GFlvReading reading(file.bytes);
        ASSERT_EQ(reading.Streams().size(), 1u);
        VIDEOINFOHEADER info{};
        info.bmiHeader = {40, 320, 240, 1, 24, fourCC, 0, 0, 0, 0, 0};
        EXPECT_TRUE(OnlyType(reading) == MakeVideoInfoType(SubtypeFromFourCC(fourCC), info, {})) << int{payload[0]};
    }
}

TEST(FlvType, AvcCarriesItsParameterSetsAndTheSizeOfTheSps)
{
    GFlvBuilder file;
    file.Video(0, AvcPicture(true, 1)).Video(0, AvcConfiguration()).Video(0, AvcPicture(true, 1));
    const GFlvReading reading(file.bytes);
    ASSERT_EQ(reading.Streams().size(), 1u);
    MPEG2VIDEOINFO info{};
    info.hdr.rcSource = info.hdr.rcTarget = {0, 0, 64, 48};
    info.hdr.bmiHeader = {40, 64, 48, 1, 24, FourCC("AVC1"), 0, 0, 0, 0, 0};
    info.dwProfile = 0x42;
    info.dwLevel = 10;
    info.dwFlags = 4;
    const GFlvBytes record = AvcConfiguration();
    GFlvBytes sets(record.begin() + 11, record.begin() + 34);    // length and SPS
    sets.insert(sets.end(), record.begin() + 35, record.end());  // past the number of picture sets
    EXPECT_TRUE(OnlyType(reading) == MakeMpeg2VideoType(SubtypeFromFourCC(FourCC("AVC1")), info, sets));
}

}  // namespace
}  // namespace vex::test
