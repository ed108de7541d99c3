#include "media/codec_tags.h"

#include <cstring>
#include <gtest/gtest.h>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "dshow/media_type.h"
#include "io/fourcc.h"
#include "media/aac_config.h"
#include "media/codec_guids.h"
#include "platform/guids.h"

namespace vex {
namespace {

using testing::PrintToString;
using Bytes = std::vector<std::uint8_t>;

std::uint32_t Code(std::string_view text) { return FourCC(text[0], text[1], text[2], text[3]); }

// The first bytes of a payload, followed by enough to be looked at.
Bytes Payload(Bytes first)
{
    first.resize(16, 0xFF);
    return first;
}

TEST(AacConfig, EveryFieldLandsInItsBitsAndNothingBehindTheResult)
{
    const auto config = [](int profile, std::uint32_t rate, std::uint32_t channels) {
        Bytes out(5, 0xAA);
        const std::size_t length = MakeAacConfig(std::span<std::uint8_t, 5>(out), profile, rate, channels);
        EXPECT_TRUE(length == 5 || (length == 2 && out[2] == 0xAA && out[3] == 0xAA && out[4] == 0xAA)) << profile;
        out.resize(length);
        return out;
    };
    EXPECT_EQ(config(1, 44'100, 2), (Bytes{0x12, 0x10}));
    EXPECT_EQ(config(3, 8'000, 6), (Bytes{0x25, 0xB0})) << "LTP, index 11";
    EXPECT_EQ(config(-1, 24'000, 2), (Bytes{0x13, 0x10, 0x56, 0xE5, 0x98}));
    EXPECT_EQ(config(INT32_MIN, 0x80000000u, 0).at(4), 0x80) << "the doubled rate does not wrap to zero";
    EXPECT_EQ(config(INT32_MAX, 0, 0xFFFFFFFF).size(), 2u);
    EXPECT_EQ(config(1, 92'017, 2), (Bytes{0x10, 0x10})) << "rates between the standard ones go to the nearer index";
    EXPECT_EQ(config(1, 92'016, 2), (Bytes{0x10, 0x90}));
}

TEST(KeyFrame, ACodeFollowsTheRuleOfItsFamily)
{
    const struct {
        const char* code;
        Bytes payload;
        bool key;
    } rows[] = {
        {"xvid", {0, 0, 1, 0xB6, 0x40}, false},
        {"xvid", {0, 0, 1, 0xB6, 0x3F}, true},
        {"xvid", {0, 0, 1, 0xB3, 0xFF}, true},
        {"div3", {0x40}, false},
        {"div3", {0x3F}, true},
        {"mp41", {0, 0, 1, 0, 0x02}, false},
        {"mp41", {0, 0, 1, 0, 0x04}, false},
        {"mp41", {0, 0, 1, 0, 0xF9}, true},
        {"mp41", {0, 0, 1, 1, 0xFF}, true},
        {"wmv3", {0x20}, false},
        {"wmv3", {0xDF}, true},
        {"h264", {0, 0, 0, 1, 0x65}, true},         // IDR
        {"h264", {0, 0, 0, 1, 0x41, 0x9A}, false},  // first_mb 0, slice type 5: P
        {"h264", {0, 0, 0, 1, 0x41, 0xB0}, true},   // slice type 2: I
        {"h264", {0, 0, 0, 1, 0x41, 0x88}, true},   // slice type 7: I all over
        {"h264", {0, 0, 0, 1, 0x41, 0x4F}, true},   // first_mb 1, then 2
        {"h264", {0, 0, 0, 1, 0x61, 0x9A}, false},  // the reference priority does not matter
        {"h264", {0x20, 0, 0, 1, 0x65}, false},
        {"h264", {0x1F, 0xFF, 0xFF, 0xFF}, true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(IsKeyFrame(Code(row.code), Payload(row.payload)), row.key) << row.code << PrintToString(row.payload);
    EXPECT_FALSE(IsKeyFrame(Code("XVID"), Payload({0, 0, 1, 0xB6, 0x40})));
    EXPECT_TRUE(IsKeyFrame(Code("Xvid"), Payload({0, 0, 1, 0xB6, 0x40}))) << "letters count as they are";
    EXPECT_TRUE(IsKeyFrame(Code("XVID"), {}));
    EXPECT_TRUE(IsKeyFrame(Code("XVID"), Bytes{0, 0, 1, 0xB6, 0x40, 0, 0})) << "too short to be looked into";
}

BITMAPINFOHEADER Bitmap(DWORD compression, WORD depth, DWORD headerSize = 40)
{
    BITMAPINFOHEADER header{};
    header.biSize = headerSize;
    header.biCompression = compression;
    header.biBitCount = depth;
    return header;
}

TEST(BitmapHeader, IsFoundBehindEachKindOfHeaderAndNowhereElse)
{
    const BITMAPINFOHEADER bitmap = Bitmap(Code("XVID"), 24);
    BITMAPINFOHEADER found{};
    CMediaType type(MEDIATYPE_Video, GUID_NULL);
    const std::pair<const GUID&, std::size_t> offsets[] = {
        {FORMAT_VideoInfo, 48}, {FORMAT_MPEGVideo, 48}, {FORMAT_VideoInfo2, 72}, {FORMAT_MPEG2Video, 72}};
    for (const auto& [format, offset] : offsets) {
        std::memcpy(type.AllocFormat(format, offset + 40).data() + offset, &bitmap, 40);
        ASSERT_TRUE(GetBitmapHeader(&type, &found));
        EXPECT_EQ(std::memcmp(&found, &bitmap, 40), 0);
        found.biWidth = 7;
        type.AllocFormat(format, offset + 39);
        EXPECT_FALSE(GetBitmapHeader(&type, &found));
        EXPECT_EQ(found.biWidth, 7) << "untouched";
    }
    EXPECT_FALSE(GetBitmapHeader(nullptr, &found));
    EXPECT_FALSE(GetBitmapHeader(&type, nullptr));
    type.AllocFormat(FORMAT_WaveFormatEx, 200);
    EXPECT_FALSE(GetBitmapHeader(&type, &found));
    AM_MEDIA_TYPE lying{};
    lying.formattype = FORMAT_VideoInfo;
    lying.cbFormat = 88;  // and no block
    EXPECT_FALSE(GetBitmapHeader(&lying, &found));
}

TEST(BitmapSubtype, UncompressedPicturesGoByDepthAndMasks)
{
    EXPECT_EQ(SubtypeFromBitmap(Bitmap(BI_RGB, 16)), MEDIASUBTYPE_RGB555);
    EXPECT_EQ(SubtypeFromBitmap(Bitmap(BI_RGB, 24)), MEDIASUBTYPE_RGB24);
    EXPECT_EQ(SubtypeFromBitmap(Bitmap(BI_RGB, 17)), GUID_NULL);

    const Bytes masks565{0, 0xF8, 0, 0, 0xE0, 7, 0, 0, 0x1F, 0, 0, 0};
    const Bytes masks555{0, 0x7C, 0, 0, 0xE0, 3, 0, 0, 0x1F, 0, 0, 0};
    const Bytes masks888{0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0xFF};  // and alpha
    const auto masked = [](WORD depth, std::span<const std::uint8_t> masks, DWORD headerSize = 40) {
        return SubtypeFromBitmap(Bitmap(BI_BITFIELDS, depth, headerSize), masks);
    };
    EXPECT_EQ(masked(16, masks565), MEDIASUBTYPE_RGB565);
    EXPECT_EQ(masked(16, masks555), MEDIASUBTYPE_RGB555);
    EXPECT_EQ(masked(16, masks888), GUID_NULL);
    EXPECT_EQ(masked(16, std::span(masks555).first(11)), MEDIASUBTYPE_RGB565) << "without masks";
    EXPECT_EQ(masked(32, masks888), MEDIASUBTYPE_RGB32);
    EXPECT_EQ(masked(32, masks888, 56), MEDIASUBTYPE_ARGB32);
    EXPECT_EQ(masked(32, std::span(masks888).first(12), 56), MEDIASUBTYPE_RGB32);
    EXPECT_EQ(SubtypeFromBitmap(Bitmap(BI_RGB, 16), masks565), MEDIASUBTYPE_RGB555) << "those are colours, not masks";
    EXPECT_EQ(SubtypeFromBitmap(Bitmap(Code("H264"), 16), masks565), SubtypeFromFourCC(Code("H264")));
}

}  // namespace
}  // namespace vex
