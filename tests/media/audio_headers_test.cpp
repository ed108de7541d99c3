// Headers of audio frames and configurations: published bit patterns, values that only some formats accept, cut ones.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "media/aac_config.h"
#include "media/ac3_header.h"
#include "media/adts_header.h"
#include "media/dts_header.h"
#include "media/lpcm_header.h"
#include "media/mpeg_audio.h"
#include "support/bit_writer.h"

namespace vex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::BitWriter;

// Whether every proper beginning of `header` is refused.
template <class Read>
void ExpectNothingWhenCut(const Bytes& header, Read read)
{
    ASSERT_TRUE(read(header));
    for (std::size_t size = 0; size < header.size(); ++size)
        EXPECT_FALSE(read(Bytes(header.begin(), header.begin() + static_cast<std::ptrdiff_t>(size)))) << size;
}

TEST(MpegAudioHeader, VersionLayerAndRatesGiveTheFrameSize)
{
    const struct {
        std::array<std::uint8_t, 4> bytes;
        unsigned version, layer, bitRate, rate, size, samples;
    } rows[] = {
        {{0xFF, 0xFB, 0x90, 0x64}, GMpegAudioHeader::kMpeg1, 3, 128, 44100, 417, 1152},
        {{0xFF, 0xFB, 0x92, 0x64}, GMpegAudioHeader::kMpeg1, 3, 128, 44100, 418, 1152},
        {{0xFF, 0xFD, 0xA4, 0x00}, GMpegAudioHeader::kMpeg1, 2, 192, 48000, 576, 1152},
        {{0xFF, 0xFF, 0x9A, 0xC0}, GMpegAudioHeader::kMpeg1, 1, 288, 32000, 436, 384},  // a slot of layer I has 4 bytes
        {{0xFF, 0xF3, 0x80, 0xC0}, GMpegAudioHeader::kMpeg2, 3, 64, 22050, 208, 576},
        {{0xFF, 0xF5, 0x84, 0xC0}, GMpegAudioHeader::kMpeg2, 2, 64, 24000, 384, 1152},
        {{0xFF, 0xF7, 0xE8, 0xC0}, GMpegAudioHeader::kMpeg2, 1, 256, 16000, 768, 384},
        {{0xFF, 0xE3, 0x18, 0xC0}, GMpegAudioHeader::kMpeg25, 3, 8, 8000, 72, 576},
        {{0xFF, 0xFB, 0x00, 0x00}, GMpegAudioHeader::kMpeg1, 3, 0, 44100, 0, 1152},  // free format
        {{0xFF, 0xFB, 0xF0, 0x00}, GMpegAudioHeader::kMpeg1, 3, 0, 44100, 0, 1152},
        {{0xFF, 0xFB, 0x9C, 0x00}, GMpegAudioHeader::kMpeg1, 3, 128, 0, 0, 1152},
        {{0xFF, 0xEB, 0x90, 0x00}, GMpegAudioHeader::kReserved, 3, 80, 0, 0, 576},
        {{0xFF, 0xF9, 0x90, 0x00}, GMpegAudioHeader::kMpeg1, 4, 0, 44100, 0, 0},
    };
    for (const auto& row : rows) {
        const auto header = ReadMpegAudioHeader(row.bytes);
        ASSERT_TRUE(header) << testing::PrintToString(row.bytes);
        EXPECT_EQ(header->version, row.version) << testing::PrintToString(row.bytes);
        EXPECT_EQ(header->layer, row.layer) << testing::PrintToString(row.bytes);
        EXPECT_EQ(header->bitRate, row.bitRate) << testing::PrintToString(row.bytes);
        EXPECT_EQ(header->sampleRate, row.rate) << testing::PrintToString(row.bytes);
        EXPECT_EQ(header->FrameSize(), row.size) << testing::PrintToString(row.bytes);
        EXPECT_EQ(header->SamplesPerFrame(), row.samples) << testing::PrintToString(row.bytes);
    }
    EXPECT_EQ(MpegAudioFrameSize(3, false, 64, 22050, false), 417u) << "twice what MPEG-2 has";
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes{0xFF, 0xDB, 0x90, 0x64}));
    ExpectNothingWhenCut({0xFF, 0xFB, 0x90, 0x64}, [](const Bytes& bytes) { return ReadMpegAudioHeader(bytes); });
}

TEST(MpegAudioHeader, TheFlagsAreThoseOfTheirBits)
{
    const auto header = ReadMpegAudioHeader(Bytes{0xFF, 0xFA, 0x93, 0x79});  // protected, padded, private
    ASSERT_TRUE(header);
    EXPECT_FALSE(header->protectionAbsent);
    EXPECT_TRUE(header->padding);
    EXPECT_TRUE(header->privateBit);
    EXPECT_EQ(header->mode, 1);
    EXPECT_EQ(header->modeExtension, 3);
    EXPECT_TRUE(header->copyright);
    EXPECT_FALSE(header->original);
    EXPECT_EQ(header->emphasis, 1);
    EXPECT_EQ(header->Channels(), 2);
    EXPECT_EQ(ReadMpegAudioHeader(Bytes{0xFF, 0xFA, 0x93, 0xC4})->Channels(), 1);
}

TEST(AdtsHeader, FieldsAreReadAndNothingIsRefusedThatAFormatMayTake)
{
    const Bytes lc{0xFF, 0xF1, 0x50, 0x80, 0x01, 0x5F, 0xFC};
    const auto header = ReadAdtsHeader(lc);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->id, 0);
    EXPECT_TRUE(header->protectionAbsent);
    EXPECT_EQ(header->profile, 1);
    EXPECT_EQ(header->rateIndex, 4);
    EXPECT_EQ(header->sampleRate, 44100u);
    EXPECT_EQ(header->channelConfiguration, 2);
    EXPECT_EQ(header->frameLength, 10);
    EXPECT_EQ(header->bufferFullness, 0x7FF);
    EXPECT_EQ(header->rawBlocks, 0);
    ExpectNothingWhenCut(lc, [](const Bytes& bytes) { return ReadAdtsHeader(bytes); });

    const auto mpeg2 = ReadAdtsHeader(Bytes{0xFF, 0xF8, 0xB2, 0x3F, 0xFF, 0xE0, 0x03});  // CRC, private, the flags
    ASSERT_TRUE(mpeg2);
    EXPECT_EQ(mpeg2->id, 1);
    EXPECT_FALSE(mpeg2->protectionAbsent);
    EXPECT_EQ(mpeg2->sampleRate, 7350u);
    EXPECT_TRUE(mpeg2->privateBit);
    EXPECT_EQ(mpeg2->channelConfiguration, 0);
    EXPECT_TRUE(mpeg2->original && mpeg2->home && mpeg2->copyrightId && mpeg2->copyrightStart);
    EXPECT_EQ(mpeg2->frameLength, 0x1FFF);
    EXPECT_EQ(mpeg2->bufferFullness, 0);
    EXPECT_EQ(mpeg2->rawBlocks, 3);

    EXPECT_EQ(ReadAdtsHeader(Bytes{0xFF, 0xF1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})->sampleRate, 0u) << "index 15";
    EXPECT_FALSE(ReadAdtsHeader(Bytes{0xFF, 0xF3, 0x50, 0x80, 0x01, 0x5F, 0xFC})) << "layer II";
    EXPECT_FALSE(ReadAdtsHeader(Bytes{0xFF, 0xE1, 0x50, 0x80, 0x01, 0x5F, 0xFC})) << "11 bits of sync";
}

TEST(AacConfig, CoreAndExtensionsAreTakenApart)
{
    const Bytes explicitRate = BitWriter().U(2, 5).U(15, 4).U(12345, 24).U(1, 4).Filled();
    const Bytes escaped = BitWriter().U(31, 5).U(10, 6).U(3, 4).U(2, 4).Filled();  // type 42
    const Bytes both =
        BitWriter().U(2, 5).U(6, 4).U(1, 4).U(0, 3).U(0x2B7, 11).U(5, 5).U(1, 1).U(3, 4).U(0x548, 11).U(1, 1).Filled();
    const Bytes absent = BitWriter().U(2, 5).U(4, 4).U(2, 4).U(0, 3).U(0x2B7, 11).U(5, 5).U(0, 1).U(0, 7).Filled();
    const struct {
        Bytes bytes;
        unsigned type, rate, channels, extensionRate;
        bool sbr, ps, outer;
    } rows[] = {
        {{0x12, 0x10}, 2, 44100, 2, 0, false, false, false},
        {{0x14, 0x08}, 2, 16000, 1, 0, false, false, false},
        {{0x13, 0x10, 0x56, 0xE5, 0x98}, 2, 24000, 2, 48000, true, false, false},
        {{0x2B, 0x11, 0x88}, 2, 24000, 2, 48000, true, false, true},
        {{0xEB, 0x09, 0x88}, 2, 24000, 1, 48000, true, true, true},
        {both, 2, 24000, 1, 48000, true, true, false},
        {absent, 2, 44100, 2, 0, false, false, false},
        {explicitRate, 2, 12345, 1, 0, false, false, false},
        {escaped, 42, 48000, 2, 0, false, false, false},
        {{0x12, 0x00, 0x56, 0xE5, 0x98}, 2, 44100, 0, 0, false, false, false},  // an element of its own comes first
    };
    for (const auto& row : rows) {
        const auto config = ReadAacConfig(row.bytes);
        ASSERT_TRUE(config) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->objectType, row.type) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->sampleRate, row.rate) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->channelConfiguration, row.channels) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->extensionRate, row.extensionRate) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->sbr, row.sbr) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->ps, row.ps) << testing::PrintToString(row.bytes);
        EXPECT_EQ(config->explicitSbr, row.outer) << testing::PrintToString(row.bytes);
    }
    for (const Bytes& cut : {Bytes{}, Bytes{0x12}, Bytes{0x2B, 0x11}, Bytes{0x17, 0x80, 0x18, 0x1C}})
        EXPECT_FALSE(ReadAacConfig(cut)) << cut.size();
    EXPECT_FALSE(ReadAacConfig(Bytes{0x13, 0x10, 0x56, 0xE5})->sbr) << "cut before the rate of the extension";
}

TEST(Ac3Header, ModesRatesAndFrameSizes)
{
    const struct {
        std::uint8_t codes, mode;  // bytes 4 and 6
        unsigned channels, rate, bitRate, size;
    } rows[] = {
        {0x1C, 0xE1, 6, 48000, 384, 1536},  // 3/2 with a low frequency channel
        {0x5C, 0x40, 2, 44100, 384, 1670},  // 2/0, an even code
        {0x5D, 0x44, 3, 44100, 384, 1672},  // an odd code: one word more; Dolby Surround bits before the channel
        {0x80, 0x30, 2, 32000, 32, 192},    // 1/0: no mix level before the low frequency channel
        {0x25, 0x7C, 4, 48000, 640, 2560},  // 3/0: two bits of centre mix level
        {0x26, 0x00, 2, 48000, 0, 0},      {0xC0, 0x00, 2, 0, 32, 0},
    };
    for (const auto& row : rows) {
        const Bytes bytes{0x0B, 0x77, 0x12, 0x34, row.codes, 0x48, row.mode};
        const auto header = ReadAc3Header(bytes);
        ASSERT_TRUE(header);
        EXPECT_EQ(header->bsid, 9);
        EXPECT_EQ(header->crc1, 0x1234);
        EXPECT_EQ(header->Channels(), row.channels) << unsigned{row.codes};
        EXPECT_EQ(header->SampleRate(), row.rate) << unsigned{row.codes};
        EXPECT_EQ(header->BitRate(), row.bitRate) << unsigned{row.codes};
        EXPECT_EQ(header->FrameSize(), row.size) << unsigned{row.codes};
        ExpectNothingWhenCut(bytes, [](const Bytes& cut) { return ReadAc3Header(cut); });
    }
    EXPECT_FALSE(ReadAc3Header(Bytes{0x77, 0x0B, 0, 0, 0, 0x40, 0}));
}

TEST(DtsHeader, ADvdHeaderAndCodesWithoutAMeaning)
{
    const Bytes dvd{0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x3E, 0xD2, 0x75, 0xE0};
    const auto header = ReadDtsHeader(dvd);
    ASSERT_TRUE(header);
    EXPECT_TRUE(header->normalFrame);
    EXPECT_EQ(header->deficitSamples, 31);
    EXPECT_FALSE(header->crc);
    EXPECT_EQ(header->blocks, 15);
    EXPECT_EQ(header->frameSize, 1006);
    EXPECT_EQ(header->amode, 9);
    EXPECT_EQ(header->Channels(), 5);
    EXPECT_EQ(header->SampleRate(), 48000u);
    EXPECT_EQ(header->BitRate(), 754'500u);
    ExpectNothingWhenCut(dvd, [](const Bytes& bytes) { return ReadDtsHeader(bytes); });

    Bytes most(10, 0xFF);
    std::copy(kDtsSync.begin(), kDtsSync.end(), most.begin());
    const auto extreme = ReadDtsHeader(most);
    ASSERT_TRUE(extreme);
    EXPECT_EQ(extreme->frameSize, 16384);
    EXPECT_EQ(extreme->Channels(), 0);
    EXPECT_EQ(extreme->SampleRate(), 0u);
    EXPECT_EQ(extreme->BitRate(), 0u);
}

TEST(LpcmHeader, QuantisationRateAndChannels)
{
    const Bytes stereo{0xA0, 0x07, 0x01, 0x04, 0xCC, 0x41, 0x80};
    const auto header = ReadLpcmHeader(stereo);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->subStream, 0xA0);
    EXPECT_EQ(header->frames, 7);
    EXPECT_EQ(header->firstAccessUnit, 0x104);
    EXPECT_TRUE(header->emphasis && header->mute);
    EXPECT_EQ(header->frameNumber, 12);
    EXPECT_EQ(header->BitsPerSample(), 20);
    EXPECT_EQ(header->SampleRate(), 48000u);
    EXPECT_EQ(header->channels, 2);
    EXPECT_EQ(header->dynamicRange, 0x80);
    ExpectNothingWhenCut(stereo, [](const Bytes& bytes) { return ReadLpcmHeader(bytes); });

    const auto most = ReadLpcmHeader(Bytes(7, 0xFF));
    EXPECT_EQ(most->BitsPerSample(), 0);
    EXPECT_EQ(most->SampleRate(), 0u);
    EXPECT_EQ(most->channels, 8);
    EXPECT_EQ(ReadLpcmHeader(Bytes{0xA1, 1, 0, 4, 0, 0x97, 0x80})->SampleRate(), 96000u);
}

}  // namespace
}  // namespace vex
