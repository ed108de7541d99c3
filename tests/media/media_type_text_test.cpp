#include "media/media_type_text.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dshow/media_type.h"
#include "io/fourcc.h"
#include "media/codec_guids.h"
#include "media/video_types.h"

namespace vex {
namespace {

using testing::ElementsAre;
using testing::IsSupersetOf;

std::vector<std::string> Lines(const AM_MEDIA_TYPE& type)
{
    std::vector<std::string> lines;
    for (const GProperty& field : FormatFields(type))
        lines.push_back(field.name + "=" + field.value);
    return lines;
}

TEST(MediaTypeText, IdentifiersHaveShortNamesWhereTheyAreKnown)
{
    EXPECT_EQ(GuidText(MEDIATYPE_Video), "{73646976-0000-0010-8000-00aa00389b71}");
    EXPECT_EQ(MajorTypeName(FORMAT_VideoInfo), GuidText(FORMAT_VideoInfo));
    EXPECT_EQ(SubtypeName(MEDIASUBTYPE_RGB24), "RGB24");
    EXPECT_EQ(SubtypeName(SubtypeFromFourCC(FourCC("RLE "))), "RLE ");
    EXPECT_EQ(SubtypeName(SubtypeFromFourCC(0x10000001)), "{10000001-0000-0010-8000-00aa00389b71}");
    EXPECT_EQ(SubtypeName(SubtypeFromWaveTag(0x0055)), "MP3");
    EXPECT_EQ(SubtypeName(SubtypeFromWaveTag(0x1234)), "0x1234");
    EXPECT_EQ(FormatTypeName(GUID_NULL), "none");
}

TEST(FormatFields, VideoBlocksShowTheirHeaderAndWhatFollowsIt)
{
    MPEG2VIDEOINFO mpeg{};
    mpeg.hdr.AvgTimePerFrame = 400'000;
    mpeg.hdr.dwPictAspectRatioX = 16;
    mpeg.hdr.dwPictAspectRatioY = 9;
    mpeg.hdr.bmiHeader = MakeBitmapHeader(640, -480, 24, 0x01000000);
    mpeg.cbSequenceHeader = 0xFFFFFFFF;
    mpeg.dwProfile = 100;
    mpeg.dwLevel = 41;
    mpeg.dwFlags = 4;
    CMediaType type;
    std::memcpy(type.AllocFormat(FORMAT_MPEG2Video, sizeof(mpeg)).data(), &mpeg, sizeof(mpeg));
    EXPECT_THAT(Lines(type),
                ElementsAre("bit_rate=0", "avg_time_per_frame=400000", "interlace_flags=0", "aspect_x=16", "aspect_y=9",
                            "control_flags=0", "header_size=40", "width=640", "height=-480", "planes=1", "bit_count=24",
                            "compression=0x01000000", "image_size=0", "start_time_code=0",
                            "sequence_header_size=4294967295", "profile=100", "level=41", "flags=4"));

    VIDEOINFOHEADER info{};
    info.bmiHeader.biCompression = FourCC("XVID");
    std::memcpy(type.AllocFormat(FORMAT_VideoInfo, 91).data(), &info, sizeof(info));
    EXPECT_THAT(Lines(type), IsSupersetOf({"compression=XVID", "extra_size=3"}));
}

TEST(FormatFields, AudioAndSubtitleBlocks)
{
    CMediaType type;
    MPEG1WAVEFORMAT layered{};
    layered.wfx.wFormatTag = 0x50;
    layered.wfx.cbSize = 22;
    layered.dwHeadBitrate = 192'000;
    layered.fwHeadFlags = 28;
    std::memcpy(type.AllocFormat(FORMAT_WaveFormatEx, 40).data(), &layered, 40);
    EXPECT_THAT(Lines(type), IsSupersetOf({"extra_size=22", "head_layer=0", "head_bit_rate=192000", "head_mode=0",
                                           "head_flags=28", "pts_high=0"}));
    type.Format()[0] = 0x51;  // the same bytes mean something else behind another tag
    EXPECT_THAT(Lines(type), ElementsAre("format_tag=81", "channels=0", "sample_rate=0", "avg_bytes_per_sec=0",
                                         "block_align=0", "bits_per_sample=0", "extra_size=22"));

    auto block = type.AllocFormat(FORMAT_VorbisFormat, 24);
    block[0] = 2;
    std::memset(block.data() + 8, 0xFF, 12);
    EXPECT_THAT(Lines(type), ElementsAre("channels=2", "sample_rate=0", "min_bit_rate=-1", "avg_bit_rate=-1",
                                         "max_bit_rate=-1", "quality=0"));

    block = type.AllocFormat(FORMAT_VorbisFormat2, 30);
    block[20] = 5;
    EXPECT_THAT(Lines(type), ElementsAre("channels=0", "sample_rate=0", "bit_depth=0", "header_1_size=0",
                                         "header_2_size=0", "header_3_size=5"));

    block = type.AllocFormat(FORMAT_SubtitleInfo, 522);
    std::memcpy(block.data(), "\x08\x02\0\0eng\0U\0n\0", 12);
    EXPECT_THAT(Lines(type), ElementsAre("offset=520", "language=eng", "track_name=Un", "extra_size=2"));
    std::memset(block.data() + 4, 0xFF, 516);  // neither text ends, neither is sound
    EXPECT_EQ(FormatFields(type).size(), 4u);
}

TEST(FormatFields, EveryTruncationListsOnlyFieldsThatAreWhole)
{
    for (const GUID& format : {FORMAT_VideoInfo, FORMAT_VideoInfo2, FORMAT_MPEGVideo, FORMAT_MPEG2Video,
                               FORMAT_WaveFormatEx, FORMAT_VorbisFormat, FORMAT_VorbisFormat2, FORMAT_SubtitleInfo}) {
        CMediaType type;
        std::size_t last = 0;
        for (std::size_t size = 0; size < 600; ++size) {
            type.AllocFormat(format, size);
            const std::size_t fields = FormatFields(type).size();
            EXPECT_GE(fields, last) << FormatTypeName(format) << " " << size;
            EXPECT_LE(fields - last, 2u) << FormatTypeName(format) << " " << size;  // the last one brings the rest
            last = fields;
        }
        EXPECT_GE(last, 4u) << FormatTypeName(format);
    }
    CMediaType unknown;
    unknown.AllocFormat(FORMAT_None, 100);
    EXPECT_TRUE(FormatFields(unknown).empty());
    AM_MEDIA_TYPE lying{};
    lying.formattype = FORMAT_WaveFormatEx;
    lying.cbFormat = 18;
    EXPECT_TRUE(FormatFields(lying).empty());
}

}  // namespace
}  // namespace vex
