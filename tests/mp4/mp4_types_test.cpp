// What a decoder is told: subtype, format block, codec configuration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "io/fourcc.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/codec_tags.h"
#include "media/video_types.h"
#include "mp4/mp4_reading.h"

namespace vex::test {
namespace {

CMediaType TypeOf(const GMp4TestTrack& track)
{
    GMp4Reading reading(GMp4TestFile{.tracks = {track}});
    return reading.IsOpen() ? reading.Streams()[0].mediaTypes.at(0) : CMediaType();
}

GMp4TestTrack Sound(std::string entry, GMp4Bytes children = {})
{
    GMp4TestTrack track = PcmSound({8});
    track.entry = std::move(entry);
    track.children = std::move(children);
    return track;
}

GMp4TestTrack Pictures(std::string entry, GMp4Bytes children = {})
{
    GMp4TestTrack track = NumberedVideo(100);
    track.entry = std::move(entry);
    track.children = std::move(children);
    return track;
}

WAVEFORMATEX WaveOf(const CMediaType& type)
{
    WAVEFORMATEX wave{};
    if (type.formattype == FORMAT_WaveFormatEx)
        std::memcpy(&wave, type.pbFormat, sizeof(wave));
    return wave;
}

struct GSoundCase {
    const char* what;
    GMp4TestTrack track;
    GUID subtype;
    // tag, channels, average bytes a second, block align, bits, extra bytes
    std::array<std::uint32_t, 6> format;
    ULONG sampleSize = 0;
};

TEST(Mp4Types, SoundIsDescribedAsItsEntryAndConfigurationSay)
{
    const std::string msIma("ms\0\x11", 4);
    const GMp4Bytes config{0x12, 0x10};
    const GMp4Bytes vendor{'V', 'E', 'N', 'D', 3, 7, 9, 9};
    GMp4TestTrack eightBit = Sound("sowt");
    eightBit.sound = {1, 8, 8000};
    GMp4TestTrack amr = Sound("samr", Box("damr", GMp4Bytes(9)));
    amr.sound = {1, 16, 44100};
    const GSoundCase cases[] = {
        {"AAC", Sound("mp4a", Esds(0x40, config)), SubtypeFromWaveTag(0xFF), {0xFF, 2, 176400, 4, 16, 2}},
        {"AAC in QuickTime",
         Sound("mp4a", Box("wave", Join({Box("frma", BigEndian(0)), Esds(0x67, config)}))),
         SubtypeFromWaveTag(0xFF),
         {0xFF, 2, 176400, 4, 16, 2}},
        {"MPEG audio by its object type",
         Sound("mp4a", Esds(0x6B, {})),
         SubtypeFromWaveTag(0x55),
         {0x55, 2, 176400, 4, 16, 0}},
        {"MPEG audio by its entry", Sound(".mp3"), SubtypeFromWaveTag(0x55), {0x55, 2, 176400, 4, 16, 0}},
        {"E-AC-3", Sound("mp4a", Esds(0xA6, {})), MEDIASUBTYPE_DOLBY_DDPLUS, {1, 2, 176400, 4, 16, 0}},
        {"QCELP by its object type", Sound("mp4a", Esds(0xE1, {})), MEDIASUBTYPE_QCELP, {1, 2, 176400, 0, 16, 0}},
        {"QCELP by its box", Sound("mp4a", Box("dqcp", vendor)), MEDIASUBTYPE_QCELP, {1, 2, 176400, 0, 16, 8}},
        {"EVRC", Sound("sevc", Box("devc", vendor)), MEDIASUBTYPE_EVRC, {1, 2, 176400, 4, 16, 8}},
        {"G.723", Sound("s723", Box("d723", vendor)), SubtypeFromWaveTag(0x42), {0x42, 1, 800, 24, 8, 8}},
        {"AC-3 of 384 kbit/s",
         Sound("ac-3", Box("dac3", {0x10, 0x3D, 0xC0})),
         MEDIASUBTYPE_DOLBY_AC3,
         {1, 0, 384000, 4, 0, 0}},
        {"AC-3 of no known rate",
         Sound("ac-3", Box("dac3", {0x10, 0x3F, 0xE0})),
         MEDIASUBTYPE_DOLBY_AC3,
         {1, 0, 0, 4, 0, 0}},
        {"AMR", amr, SubtypeFromWaveTag(0xFE), {1, 1, 88200, 2, 16, 37}},
        {"big-endian PCM", Sound("twos"), MEDIASUBTYPE_PCM, {1, 2, 176400, 4, 16, 0}, 16},
        {"little-endian PCM", Sound("sowt"), MEDIASUBTYPE_PCM, {1, 2, 176400, 1, 16, 0}, 16},
        {"24-bit PCM", Sound("in24"), MEDIASUBTYPE_PCM, {1, 2, 264600, 6, 24, 0}, 24},
        {"mu-law", Sound("ulaw"), SubtypeFromWaveTag(7), {7, 2, 88200, 1, 8, 0}},
        {"IMA ADPCM", Sound("ima4"), SubtypeFromFourCC("ima4"), {0, 2, 176400, 68, 16, 9}},
        {"IMA ADPCM of another name", Sound(msIma), SubtypeFromFourCC("ima4"), {0, 2, 176400, 68, 16, 9}},
        {"QDesign", Sound("QDM2"), SubtypeFromFourCC("QDM2"), {0, 2, 176400, 4, 16, 9 + 20}},
    };
    for (const GSoundCase& one : cases) {
        const CMediaType type = TypeOf(one.track);
        EXPECT_EQ(type.subtype, one.subtype) << one.what;
        const WAVEFORMATEX wave = WaveOf(type);
        const std::array<std::uint32_t, 6> format{wave.wFormatTag,  wave.nChannels,      wave.nAvgBytesPerSec,
                                                  wave.nBlockAlign, wave.wBitsPerSample, wave.cbSize};
        EXPECT_EQ(format, one.format) << one.what;
        EXPECT_EQ(type.cbFormat, sizeof(WAVEFORMATEX) + wave.cbSize) << one.what;
        EXPECT_EQ(type.bFixedSizeSamples != FALSE ? type.lSampleSize : 0, one.sampleSize) << one.what;
    }
    const CMediaType adpcm = TypeOf(Sound("ima4"));
    const GBytes tagged = WaveExtra(adpcm);
    EXPECT_EQ(GMp4Bytes(tagged.begin(), tagged.end()), (GMp4Bytes{0, 0, 0, 0, 'i', 'm', 'a', '4', 0}));
    const CMediaType speech = TypeOf(Sound("mp4a", Box("dqcp", vendor)));
    const GBytes record = WaveExtra(speech);
    EXPECT_EQ(GMp4Bytes(record.begin(), record.end()), (GMp4Bytes{'V', 'E', 'N', 'D', 3, 7, 0, 0}));
}

struct GPictureCase {
    const char* what;
    GMp4TestTrack track;
    GUID subtype;
    GUID formatType;
    std::uint32_t compression;
};

TEST(Mp4Types, PicturesAreDescribedAsTheirEntryAndConfigurationSay)
{
    const GPictureCase cases[] = {
        {"MPEG-4", Pictures("mp4v", Esds(0x20, {1})), SubtypeFromFourCC("mp4v"), FORMAT_VideoInfo, FourCC("mp4v")},
        {"MPEG-2", Pictures("mp4v", Esds(0x61, {1})), MEDIASUBTYPE_MPEG2_VIDEO, FORMAT_MPEG2Video, FourCC("MPG2")},
        {"MPEG-1", Pictures("mp4v", Esds(0x6A, {1})), MEDIASUBTYPE_MPEG1Payload, FORMAT_MPEGVideo, FourCC("MPG1")},
        {"DV", Pictures("dvc "), SubtypeFromFourCC("dvc "), FORMAT_VideoInfo, FourCC("dvc ")},
        {"H.263", Pictures("s263"), SubtypeFromFourCC("h263"), FORMAT_VideoInfo, FourCC("h263")},
        {"H.264 with start codes", Pictures("h264"), SubtypeFromFourCC("H264"), FORMAT_VideoInfo, FourCC("h264")},
        {"JPEG", Pictures("jpeg"), SubtypeFromFourCC("jpeg"), FORMAT_VideoInfo, FourCC("jpeg")},
        {"QuickTime RLE", Pictures("rle "), SubtypeFromFourCC("RLE "), FORMAT_VideoInfo, FourCC("rle ")},
        {"Sorenson 3", Pictures("SVQ3", Box("SMI ", {1, 2})), SubtypeFromFourCC("SVQ3"), FORMAT_VideoInfo,
         FourCC("SVQ3")},
    };
    for (const GPictureCase& one : cases) {
        const CMediaType type = TypeOf(one.track);
        EXPECT_EQ(type.subtype, one.subtype) << one.what;
        EXPECT_EQ(type.formattype, one.formatType) << one.what;
        BITMAPINFOHEADER bitmap{};
        ASSERT_TRUE(GetBitmapHeader(&type, &bitmap)) << one.what;
        EXPECT_EQ(bitmap.biCompression, one.compression) << one.what;
        EXPECT_EQ(bitmap.biWidth * 100 + bitmap.biHeight, 1608) << one.what;
        EXPECT_EQ(bitmap.biBitCount, 24) << one.what;
        REFERENCE_TIME perFrame = 0;
        std::memcpy(&perFrame, type.pbFormat + offsetof(VIDEOINFOHEADER, AvgTimePerFrame), sizeof(perFrame));
        EXPECT_EQ(perFrame, 400'000) << one.what;
    }
    BITMAPINFOHEADER bitmap{};
    const CMediaType sorenson = TypeOf(Pictures("SVQ3", Box("SMI ", {1, 2})));
    ASSERT_TRUE(GetBitmapHeader(&sorenson, &bitmap));
    EXPECT_EQ(bitmap.biSize, 40u + 70u + 10u) << "the entry from its version on";
    EXPECT_EQ(sorenson.cbFormat, sizeof(VIDEOINFOHEADER) + 80u);
    GMp4TestTrack sizeless = Pictures("jpeg");
    sizeless.picture = {0, 0, 24};
    const CMediaType tracks = TypeOf(sizeless);
    ASSERT_TRUE(GetBitmapHeader(&tracks, &bitmap));
    EXPECT_EQ(bitmap.biWidth * 100 + bitmap.biHeight, 3224) << "the track's size";
}

TEST(Mp4Types, AvcCarriesItsParameterSetsBehindTheHeader)
{
    const GMp4Bytes record{1,    77, 0,  30,   0xFF, 0xE1, 0,    3,
                           0x67, 77, 30, 0x21, 0,    2,    0x68, 0xCE};  // 0x21: the low five bits count
    const CMediaType type = TypeOf(Pictures("avc1", Box("avcC", record)));
    EXPECT_EQ(type.subtype, SubtypeFromFourCC("AVC1"));
    ASSERT_EQ(type.formattype, FORMAT_MPEG2Video);
    EXPECT_EQ(type.cbFormat, 96u + 40u + record.size());
    MPEG2VIDEOINFO info{};
    std::memcpy(&info, type.pbFormat, offsetof(MPEG2VIDEOINFO, dwSequenceHeader));
    EXPECT_EQ(info.dwProfile, 77u);
    EXPECT_EQ(info.dwLevel, 30u);
    EXPECT_EQ(info.dwFlags, 4u);
    EXPECT_EQ(info.hdr.bmiHeader.biSize, 40u);
    const GBytes sets = SequenceHeader(type).value_or(GBytes());
    EXPECT_EQ(GMp4Bytes(sets.begin(), sets.end()), (GMp4Bytes{0, 3, 0x67, 77, 30, 0, 2, 0x68, 0xCE}));
}

TEST(Mp4Types, RawPicturesAreNamedByTheBytesOfAPixel)
{
    const std::pair<std::uint32_t, GUID> rows[] = {{1, MEDIASUBTYPE_RGB8},  {2, MEDIASUBTYPE_RGB565},
                                                   {3, MEDIASUBTYPE_RGB24}, {4, MEDIASUBTYPE_RGB32},
                                                   {5, GUID_NULL},          {0, GUID_NULL}};
    for (const auto& [bytes, subtype] : rows) {
        GMp4TestTrack raw{.entry = "raw ", .stts = {{1, 40}}, .constantSize = 128 * bytes + 5, .constantCount = 1};
        raw.chunks = {GMp4Bytes(128 * bytes + 5)};
        const CMediaType type = TypeOf(raw);
        EXPECT_EQ(type.subtype, subtype) << bytes;
        BITMAPINFOHEADER bitmap{};
        EXPECT_EQ(GetBitmapHeader(&type, &bitmap), subtype != GUID_NULL);
        EXPECT_EQ(bitmap.biBitCount, subtype != GUID_NULL ? 8 * bytes : 0);
        EXPECT_EQ(bitmap.biSizeImage, subtype != GUID_NULL ? 128 * bytes : 0);
    }
}

TEST(Mp4Types, TheClockOfRawSoundIsItsRate)
{
    GMp4TestTrack raw = Sound("raw ");
    raw.timescale = 600;
    GMp4Reading reading(GMp4TestFile{.tracks = {raw}, .timescale = 0});
    EXPECT_EQ(reading.Handler().Duration(), 8 * kSecond / 44100);
    raw.sound = {2, 16, 0};
    EXPECT_EQ(WaveOf(TypeOf(raw)).nSamplesPerSec, 600u);
}

}  // namespace
}  // namespace vex::test
