// Format blocks: what is read from little-endian bytes, and what the builders put where.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "io/fourcc.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/codec_tags.h"
#include "media/format_headers.h"
#include "media/id3.h"
#include "media/subtitle_types.h"
#include "media/trailing_tags.h"
#include "media/video_types.h"

namespace vex {
namespace {

using Bytes = std::vector<std::uint8_t>;

std::uint64_t At(const CMediaType& type, std::size_t offset, std::size_t bytes = 4)
{
    std::uint64_t value = 0;
    for (std::size_t i = bytes; i-- > 0;)
        value = value << 8 | type.Format()[offset + i];
    return value;
}

Bytes From(const CMediaType& type, std::size_t offset)
{
    const auto block = type.Format().subspan(offset);
    return {block.begin(), block.end()};
}

Bytes Counting(std::size_t count)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<std::uint8_t>(i + 1);
    return bytes;
}

TEST(FormatHeaders, AWaveFormatIsReadAsFarAsItReaches)
{
    Bytes wave = Counting(21);
    wave[16] = 2;
    wave[17] = 0;
    const GWaveFormat whole = ReadWaveFormat(wave);
    EXPECT_EQ(0, std::memcmp(&whole.header, wave.data(), sizeof whole.header));
    EXPECT_EQ(Bytes(whole.extra.begin(), whole.extra.end()), (Bytes{19, 20})) << "cbSize bytes, not all there are";
    for (std::size_t size = 0; size < 19; ++size) {
        const GWaveFormat cut = ReadWaveFormat(GBytes(wave).first(size));
        EXPECT_EQ(cut.whole, size >= 16) << size;
        EXPECT_EQ(cut.header.nChannels, size >= 4 ? 0x0403 : 0) << size;
        EXPECT_EQ(cut.header.wBitsPerSample, size >= 16 ? 0x100F : 0) << size;
        EXPECT_EQ(cut.extra.size(), 0u) << size;
    }
    EXPECT_EQ(ReadWaveFormat(GBytes(wave).first(19)).extra.size(), 1u) << "cbSize claims more than there is";
}

TEST(VideoTypes, TheBlocksAndTheirSetters)
{
    const BITMAPINFOHEADER bitmap = MakeBitmapHeader(320, -240, 24, FourCC("XVID"));
    VIDEOINFOHEADER info{};
    info.bmiHeader = bitmap;
    MPEG1VIDEOINFO mpeg1{};
    mpeg1.hdr = info;
    MPEG2VIDEOINFO mpeg2{};
    mpeg2.hdr.bmiHeader = bitmap;
    const Bytes behind = Counting(8);
    const GUID subtype = SubtypeFromFourCC("XVID");
    CMediaType types[] = {MakeVideoInfoType(subtype, info, behind), MakeMpeg1VideoType(subtype, mpeg1, behind),
                          MakeMpeg2VideoType(subtype, mpeg2, behind)};
    const std::size_t starts[] = {88, 96, 132};
    for (std::size_t i = 0; i < 3; ++i) {
        CMediaType& type = types[i];
        EXPECT_FALSE(type.bFixedSizeSamples);
        EXPECT_TRUE(type.bTemporalCompression);
        EXPECT_EQ(From(type, starts[i]), behind) << i;
        SetFrameTime(type, 400'000);
        SetAspect(type, 16, 9);
        EXPECT_EQ(At(type, 40, 8), 400'000u) << i;
        // biHeight in the blocks without an aspect ratio.
        EXPECT_EQ(At(type, 56), i == 2 ? 16u : 0xFFFFFF10u) << i;
    }
    EXPECT_FALSE(SequenceHeader(types[0]));
    EXPECT_EQ(Bytes(SequenceHeader(types[1])->begin(), SequenceHeader(types[1])->end()), behind);
    EXPECT_EQ(SequenceHeader(types[2])->size(), 8u);
    types[2].Format()[116] = 9;  // claims a byte more than the block has
    EXPECT_FALSE(SequenceHeader(types[2]));

    EXPECT_EQ(MakeMpeg2VideoType(subtype, mpeg2, {}).cbFormat, sizeof(MPEG2VIDEOINFO));
    EXPECT_EQ(MakeMpeg2VideoType(subtype, mpeg2, behind, 200).cbFormat, 200u);
    EXPECT_FALSE(MakeVideoInfo2Twin(types[1], 4, 3).IsValid()) << "only a VideoInfo has one";
    CMediaType bare = MakeVideoType(subtype);
    SetFrameTime(bare, 1);
    SetAspect(bare, 1, 1);
    EXPECT_EQ(bare.cbFormat, 0u);
}

TEST(AudioTypes, ExtraBytesAndTheTailOfLayersIAndII)
{
    WAVEFORMATEX format{};
    format.wFormatTag = 0x00FF;
    format.cbSize = 77;
    const CMediaType aac = MakeWaveType(format, Bytes{0x12, 0x10});
    EXPECT_EQ(aac.subtype, SubtypeFromWaveTag(0x00FF));
    EXPECT_EQ(From(aac, 16), (Bytes{2, 0, 0x12, 0x10}));
    EXPECT_EQ(WaveExtra(aac).size(), 2u);
    EXPECT_EQ(MakeWaveType(format, Bytes(70'000)).cbFormat, 18u + 65'535u) << "cbSize has 16 bits";
    EXPECT_EQ(From(MakeWaveType(aac.subtype, format, Bytes{9}), 16), (Bytes{77, 0, 9})) << "the caller's cbSize";

    // Layer II, 192 kbit/s, joint stereo with extension 2, protected, original, emphasis 1.
    const auto header = ReadMpegAudioHeader(Bytes{0xFF, 0xFC, 0xA4, 0x65});
    const CMediaType mpeg = MakeMpeg1WaveType(format, *header);
    EXPECT_EQ(mpeg.subtype, SubtypeFromWaveTag(0x0050));
    ASSERT_EQ(mpeg.cbFormat, 40u);
    EXPECT_EQ(At(mpeg, 0, 2), 0x50u);
    EXPECT_EQ(From(mpeg, 16),
              (Bytes{22, 0, 2, 0, 0x00, 0xEE, 0x02, 0, 2, 0, 4, 0, 2, 0, 28, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const auto copy = ReadMpegAudioHeader(Bytes{0xFF, 0xFC, 0xA5, 0x69});
    EXPECT_EQ(At(MakeMpeg1WaveType(format, *copy), 30, 2), 27u) << "private, copyright, not original";
}

TEST(AudioTypes, VorbisHeadersComeBackOnlyWhenTheBlockHoldsThem)
{
    const Bytes one{1}, two{2, 2}, three{3, 3, 3};
    CMediaType type = MakeVorbis2Type(2, 44'100, 16, {one, two, three});
    EXPECT_EQ(From(type, 24), (Bytes{1, 2, 2, 3, 3, 3}));
    EXPECT_EQ(VorbisHeaders(type)[2].size(), 3u);
    type.Format()[20] = 4;
    EXPECT_TRUE(VorbisHeaders(type)[0].empty());
    const CMediaType plain = MakeVorbisType({2, 48'000, 1, 2, 3, 0});
    EXPECT_EQ(From(plain, 0), (Bytes{2, 0, 0, 0, 0x80, 0xBB, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(VorbisHeaders(plain)[0].empty());
}

TEST(TrailingTags, ApeAndId3TagsAtTheEndAreAddedUp)
{
    const auto ape = [](std::uint8_t size, std::uint8_t flags) {
        Bytes footer(32);
        std::memcpy(footer.data(), "APETAGEX\xD0\x07\0\0", 12);
        footer[12] = size;
        footer[23] = flags;
        return footer;
    };
    const auto with = [](Bytes bytes, bool id3) {
        if (id3) {
            bytes.resize(bytes.size() + kId3v1Size);
            std::memcpy(bytes.data() + bytes.size() - kId3v1Size, "TAG", 3);
        }
        return bytes;
    };
    EXPECT_EQ(TrailingTagsSize(with(ape(100, 0), false)), 100u);
    EXPECT_EQ(TrailingTagsSize(with(ape(100, 0x80), true)), 100u + 32u + 128u) << "with a header";
    EXPECT_EQ(TrailingTagsSize(with(ape(100, 0xA0), true)), 128u) << "a header is not at the end";
    EXPECT_EQ(TrailingTagsSize(with(ape(31, 0), true)), 128u) << "shorter than its footer";
    EXPECT_EQ(TrailingTagsSize(with({}, true)), 128u);
    EXPECT_EQ(TrailingTagsSize(Bytes(127, 'T')), 0u);
    EXPECT_EQ(TrailingTagsSize({}), 0u);
}

TEST(Id3, TagsInARowAreSteppedOverAndTheirSizesAreClaims)
{
    const Bytes tag{'I', 'D', '3', 4, 0, 0, 0, 0, 0, 2, 0xAA, 0xAA};
    Bytes bytes = tag;
    bytes.insert(bytes.end(), tag.begin(), tag.end());
    bytes.push_back(0xFF);
    EXPECT_EQ(Id3TagSize(bytes), 12u);
    EXPECT_EQ(BehindId3(bytes).size(), 1u);
    EXPECT_TRUE(BehindId3(tag).empty());
    EXPECT_EQ(Id3TagSize(Bytes{'I', 'D', '3', 4, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F}), 0x0FFFFFFFu + 10u) << "7 bits a byte";
    EXPECT_FALSE(Id3TagSize(GBytes(tag).first(9)));
    EXPECT_EQ(BehindId3(GBytes(tag).first(9)).size(), 9u);
}

}  // namespace
}  // namespace vex
