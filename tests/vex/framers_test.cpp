#include "tools/vex/framers.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "media/codec_guids.h"
#include "platform/guids.h"

namespace vex::test {

namespace {

using GBytes = std::vector<std::uint8_t>;

struct GFramed {
    std::string format;
    GBytes bytes;
    std::uint64_t misshapen;
};

// What the framer for a type makes of samples, each lasting a second from the second of its number.
GFramed Framed(const CMediaType& type, const std::vector<GBytes>& samples, bool raw = false,
               const GJson& properties = GJson::object())
{
    const GFraming framing = ChooseFraming(type, raw);
    framing.framer->Describe(properties);
    GBytes out;
    const GByteSink sink = [&](std::span<const std::uint8_t> bytes) {
        out.insert(out.end(), bytes.begin(), bytes.end());
    };
    framing.framer->Begin(sink);
    REFERENCE_TIME time = 0;
    for (const GBytes& sample : samples) {
        GSampleView view;
        view.data = sample;
        view.start = time;
        view.stop = time += kUnitsPerSecond;
        framing.framer->Sample(view, sink);
    }
    framing.framer->Finish(sink);
    return {framing.format, out, framing.framer->Misshapen()};
}

GBytes Bytes(std::string_view text) { return {text.begin(), text.end()}; }

template <class Header>
CMediaType Type(const CMediaType& type, const GUID& format, const Header& header, std::size_t headerBytes,
                const GBytes& rest)
{
    CMediaType whole = type;
    GBytes block(headerBytes);
    std::memcpy(block.data(), &header, headerBytes);
    block.insert(block.end(), rest.begin(), rest.end());
    whole.SetFormat(format, block);
    return whole;
}

CMediaType AvcType(unsigned lengthBytes, const GBytes& sets, DWORD claimed)
{
    MPEG2VIDEOINFO header{};
    header.dwFlags = lengthBytes;
    header.cbSequenceHeader = claimed;
    return Type({MEDIATYPE_Video, SubtypeFromFourCC("AVC1")}, FORMAT_MPEG2Video, header,
                offsetof(MPEG2VIDEOINFO, dwSequenceHeader), sets);
}

CMediaType AvcType(unsigned lengthBytes, const GBytes& sets)
{
    return AvcType(lengthBytes, sets, static_cast<DWORD>(sets.size()));
}

CMediaType AacType(const GBytes& configuration)
{
    WAVEFORMATEX header{};
    header.wFormatTag = 0x00FF;
    header.cbSize = static_cast<WORD>(configuration.size());
    return Type({MEDIATYPE_Audio, SubtypeFromWaveTag(0x00FF)}, FORMAT_WaveFormatEx, header, sizeof header,
                configuration);
}

}  // namespace

TEST(AnnexBFramer, ParameterSetsComeFirstAndEveryUnitGetsAStartCode)
{
    const CMediaType type = AvcType(4, {0, 2, 0x67, 1, 0, 1, 0x68});
    const GBytes sample{0, 0, 0, 1, 0x65, 0, 0, 0, 2, 0x41, 9};
    const GFramed framed = Framed(type, {sample});
    EXPECT_EQ(framed.format, "annexb");
    EXPECT_EQ(framed.bytes, (GBytes{0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 0, 0, 0, 1, 0x65, 0, 0, 0, 1, 0x41, 9}));
    EXPECT_EQ(framed.misshapen, 0u);
    EXPECT_EQ(Framed(type, {sample}, true).bytes, sample) << "raw means raw for every type";
    const GJson byteStream{{"byte_stream", true}};
    EXPECT_EQ(Framed(type, {sample}, false, byteStream).bytes, sample) << "start codes are there already";
}

TEST(AnnexBFramer, WhatClaimsMoreThanIsThereIsCutAndCounted)
{
    const GFramed framed = Framed(AvcType(2, {}), {{0xFF, 0xFF, 0x41, 9}, {0}, {0, 1, 0x41}});
    EXPECT_EQ(framed.bytes, (GBytes{0, 0, 0, 1, 0x41, 9, 0, 0, 0, 1, 0x41}));
    EXPECT_EQ(framed.misshapen, 2u);
    EXPECT_EQ(Framed(AvcType(4, {0, 2, 0x67, 1}, 0x7FFFFFFF), {}).format, "raw") << "a block that lies about its sets";
    EXPECT_EQ(Framed(AvcType(5, {}), {}).format, "raw");
}

TEST(AdtsFramer, TheHeaderSaysProfileFrequencyChannelsAndLengthOrThereIsNone)
{
    // AAC LC (2), 44100 Hz (4), 2 channels; the header is the one of ISO/IEC 13818-7 with no CRC and a full buffer.
    const CMediaType stereo = AacType({0x12, 0x10});
    EXPECT_EQ(Framed(stereo, {GBytes(3, 0xAA)}).bytes,
              (GBytes{0xFF, 0xF1, 0x50, 0x80, 0x01, 0x5F, 0xFC, 0xAA, 0xAA, 0xAA}));
    // Type 5 at 24000 Hz (6), 2 channels, extended to 48000 Hz (3), core type 2: framed as its core.
    EXPECT_EQ(Framed(AacType({0x2B, 0x11, 0x88}), {{}}).bytes, (GBytes{0xFF, 0xF1, 0x58, 0x80, 0x00, 0xFF, 0xFC}));

    EXPECT_EQ(Framed(AacType({}), {}).format, "raw") << "no configuration";
    EXPECT_EQ(Framed(AacType({0x12}), {}).format, "raw") << "half a configuration";
    EXPECT_EQ(Framed(AacType({0x12, 0x00}), {}).format, "raw") << "channels in an element of their own";
    const GFramed tooLong = Framed(stereo, {GBytes(8200, 1)});
    EXPECT_TRUE(tooLong.bytes.empty()) << "longer than the length field can say";
    EXPECT_EQ(tooLong.misshapen, 1u);

    const GJson source{{"crc", true}, {"channel_configuration", 7}};
    const GFramed checked = Framed(stereo, {{1, 2, 0xAA}, {1}}, false, source);
    EXPECT_EQ(checked.bytes, (GBytes{0xFF, 0xF1, 0x51, 0xC0, 0x01, 0x1F, 0xFC, 0xAA})) << "without the CRC";
    EXPECT_EQ(checked.misshapen, 1u) << "too short to have one";
    const GJson byteStream{{"byte_stream", true}};
    EXPECT_EQ(Framed(stereo, {{0xFF, 0xF1}}, false, byteStream).bytes, (GBytes{0xFF, 0xF1}))
        << "headers are there already";
}

TEST(VorbisFramer, WhatIsNoAudioPacketIsLeftOutAndHeadersThatAreNotThereMeanNoFrame)
{
    GBytes headers = Bytes("\x01vorbis");
    headers.resize(30 + 1);
    headers[28] = 0xB8;                                       // blocks of 256 and 2048 samples
    headers.insert(headers.end(), {0x40, 0, 0, 0, 0, 0x80});  // one mode, a long one
    const auto type = [&](std::uint8_t setupBytes) {
        const std::array<std::uint32_t, 6> fields{2, 44'100, 16, 30, 1, setupBytes};
        return Type({MEDIATYPE_Audio, MEDIASUBTYPE_Vorbis2}, FORMAT_VorbisFormat2, fields, sizeof fields, headers);
    };
    const GFramed framed = Framed(type(6), {{0}, {1}, {}, {0, 7}});
    EXPECT_EQ(framed.format, "ogg");
    EXPECT_EQ(framed.misshapen, 2u);
    EXPECT_EQ(framed.bytes, Framed(type(6), {{0}, {0, 7}}).bytes);
    EXPECT_EQ(Framed(type(7), {}).format, "raw") << "a size beyond the block";
    headers.back() = 0;
    EXPECT_EQ(Framed(type(6), {}).format, "raw") << "no modes";
}

TEST(TextFramer, EntriesAreNumberedOrGetTheirTimesBackBehindTheLayer)
{
    const GFramed plain = Framed({MEDIATYPE_Subtitle, MEDIASUBTYPE_UTF8}, {Bytes("One"), Bytes("Two\nlines\n")});
    EXPECT_EQ(plain.bytes, Bytes("1\r\n00:00:00,000 --> 00:00:01,000\r\nOne\r\n\r\n"
                                 "2\r\n00:00:01,000 --> 00:00:02,000\r\nTwo\nlines\r\n\r\n"));

    const std::string header = "[Script Info]\n[Events]\nFormat: Layer, Start, End, Style, Text\n";
    const std::array<char, 520> info{};  // offset, language and name, none of which matter here
    const CMediaType type =
        Type({MEDIATYPE_Subtitle, MEDIASUBTYPE_ASS}, FORMAT_SubtitleInfo, info, sizeof info, Bytes(header));
    const GFramed styled = Framed(type, {Bytes("0,7,Default,Hello, you"), Bytes("no commas")});
    EXPECT_EQ(styled.bytes, Bytes(header + "Dialogue: 7,0:00:00.00,0:00:01.00,Default,Hello, you\r\n"));
    EXPECT_EQ(styled.misshapen, 1u);
}

}  // namespace vex::test
