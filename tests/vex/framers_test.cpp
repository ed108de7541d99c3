#include "tools/vex/framers.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "framework/media/codec_guids.h"
#include "platform/guids.h"

namespace vex::test {

namespace {

using GBytes = std::vector<std::uint8_t>;

// What a framer makes of samples, each lasting a second from the second of its number.
GBytes Framed(GFramer& framer, const std::vector<GBytes>& samples)
{
    GBytes out;
    const GByteSink sink = [&](std::span<const std::uint8_t> bytes) {
        out.insert(out.end(), bytes.begin(), bytes.end());
    };
    framer.Begin(sink);
    REFERENCE_TIME time = 0;
    for (const GBytes& sample : samples) {
        GSampleView view;
        view.data = sample;
        view.start = time;
        view.stop = time += kUnitsPerSecond;
        framer.Sample(view, sink);
    }
    framer.Finish(sink);
    return out;
}

GBytes Bytes(std::string_view text) { return {text.begin(), text.end()}; }

CMediaType AvcType(unsigned lengthBytes, const GBytes& sets)
{
    CMediaType type(MEDIATYPE_Video, SubtypeFromFourCC(MAKEFOURCC('A', 'V', 'C', '1')));
    MPEG2VIDEOINFO header{};
    header.dwFlags = lengthBytes;
    header.cbSequenceHeader = static_cast<DWORD>(sets.size());
    GBytes block(offsetof(MPEG2VIDEOINFO, dwSequenceHeader));
    std::memcpy(block.data(), &header, block.size());
    block.insert(block.end(), sets.begin(), sets.end());
    type.SetFormat(FORMAT_MPEG2Video, block);
    return type;
}

CMediaType AacType(const GBytes& configuration)
{
    CMediaType type(MEDIATYPE_Audio, SubtypeFromWaveTag(0x00FF));
    WAVEFORMATEX header{};
    header.wFormatTag = 0x00FF;
    header.cbSize = static_cast<WORD>(configuration.size());
    GBytes block(sizeof header);
    std::memcpy(block.data(), &header, block.size());
    block.insert(block.end(), configuration.begin(), configuration.end());
    type.SetFormat(FORMAT_WaveFormatEx, block);
    return type;
}

}  // namespace

TEST(AnnexBFramer, ParameterSetsComeFirstAndEveryUnitGetsAStartCode)
{
    const GFraming framing = ChooseFraming(AvcType(4, {0, 2, 0x67, 1, 0, 1, 0x68}), false);
    EXPECT_EQ(framing.format, "annexb");
    EXPECT_EQ(Framed(*framing.framer, {{0, 0, 0, 1, 0x65, 0, 0, 0, 2, 0x41, 9}}),
              (GBytes{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 0, 0, 0, 1, 0x65, 0, 0, 0, 1, 0x41, 9}));
    EXPECT_EQ(framing.framer->Misshapen(), 0u);
}

TEST(AnnexBFramer, AUnitThatClaimsMoreThanIsThereIsCutAndCounted)
{
    const GFraming framing = ChooseFraming(AvcType(2, {}), false);
    EXPECT_EQ(Framed(*framing.framer, {{0xFF, 0xFF, 0x41, 9}, {0}, {0, 1, 0x41}}),
              (GBytes{0, 0, 0, 1, 0x41, 9, 0, 0, 0, 1, 0x41}));
    EXPECT_EQ(framing.framer->Misshapen(), 2u);
}

TEST(AnnexBFramer, ABlockThatLiesAboutItsSetsIsExtractedAsItIs)
{
    CMediaType lying = AvcType(4, {0, 2, 0x67, 1});
    const DWORD tooMuch = 0x7FFFFFFF;
    std::memcpy(lying.pbFormat + offsetof(MPEG2VIDEOINFO, cbSequenceHeader), &tooMuch, sizeof tooMuch);
    EXPECT_EQ(ChooseFraming(lying, false).format, "raw");
    EXPECT_EQ(ChooseFraming(AvcType(5, {}), false).format, "raw");
}

TEST(AdtsFramer, TheHeaderSaysProfileFrequencyChannelsAndLength)
{
    // AAC LC (2), 44100 Hz (4), 2 channels; the header is the one of ISO/IEC 13818-7 with no CRC and a full buffer.
    const GFraming framing = ChooseFraming(AacType({0x12, 0x10}), false);
    EXPECT_EQ(framing.format, "adts");
    EXPECT_EQ(Framed(*framing.framer, {GBytes(3, 0xAA)}),
              (GBytes{0xFF, 0xF1, 0x50, 0x80, 0x01, 0x5F, 0xFC, 0xAA, 0xAA, 0xAA}));
}

TEST(AdtsFramer, BandReplicationIsFramedAsItsCore)
{
    // Type 5 at 24000 Hz (6), 2 channels, extended to 48000 Hz (3), core type 2.
    const GFraming framing = ChooseFraming(AacType({0x2B, 0x11, 0x88}), false);
    EXPECT_EQ(Framed(*framing.framer, {{}}), (GBytes{0xFF, 0xF1, 0x58, 0x80, 0x00, 0xFF, 0xFC}));
}

TEST(AdtsFramer, WhatAHeaderCannotSayStaysRaw)
{
    EXPECT_EQ(ChooseFraming(AacType({}), false).format, "raw") << "no configuration";
    EXPECT_EQ(ChooseFraming(AacType({0x12}), false).format, "raw") << "half a configuration";
    EXPECT_EQ(ChooseFraming(AacType({0x12, 0x00}), false).format, "raw") << "channels in an element of their own";
    const GFraming framing = ChooseFraming(AacType({0x12, 0x10}), false);
    EXPECT_TRUE(Framed(*framing.framer, {GBytes(8200, 1)}).empty()) << "longer than the length field can say";
    EXPECT_EQ(framing.framer->Misshapen(), 1u);
}

TEST(TextFramer, SubRipEntriesAreNumberedAndTimed)
{
    const GFraming framing = ChooseFraming(CMediaType(MEDIATYPE_Subtitle, MEDIASUBTYPE_UTF8), false);
    EXPECT_EQ(framing.extension, "srt");
    EXPECT_EQ(Framed(*framing.framer, {Bytes("One"), Bytes("Two\nlines\n")}),
              Bytes("1\r\n00:00:00,000 --> 00:00:01,000\r\nOne\r\n\r\n2\r\n00:00:01,000 --> "
                    "00:00:02,000\r\nTwo\nlines\r\n\r\n"));
}

TEST(TextFramer, SubStationEventsGetTheirTimesBackBehindTheLayer)
{
    CMediaType type(MEDIATYPE_Subtitle, MEDIASUBTYPE_ASS);
    GBytes block(520);
    const GBytes header = Bytes("[Script Info]\n[Events]\nFormat: Layer, Start, End, Style, Text\n");
    block.insert(block.end(), header.begin(), header.end());
    type.SetFormat(FORMAT_SubtitleInfo, block);
    const GFraming framing = ChooseFraming(type, false);
    GBytes expected = header;
    const GBytes event = Bytes("Dialogue: 7,0:00:00.00,0:00:01.00,Default,Hello, you\r\n");
    expected.insert(expected.end(), event.begin(), event.end());
    EXPECT_EQ(Framed(*framing.framer, {Bytes("0,7,Default,Hello, you"), Bytes("no commas")}), expected);
    EXPECT_EQ(framing.framer->Misshapen(), 1u);
}

TEST(RawFramer, RawMeansRawForEveryType)
{
    const GFraming framing = ChooseFraming(AvcType(4, {0, 1, 0x67}), true);
    EXPECT_EQ(framing.format, "raw");
    EXPECT_EQ(Framed(*framing.framer, {{0, 0, 0, 1, 0x65}}), (GBytes{0, 0, 0, 1, 0x65}));
}

}  // namespace vex::test
