// Headers of audio frames and configurations: published bit patterns, values that only some formats accept, cut ones.
#include <gtest/gtest.h>

#include <vector>

#include "media/aac_config.h"
#include "media/ac3_header.h"
#include "media/adts_header.h"
#include "media/dts_header.h"
#include "media/mpeg_audio.h"
#include "support/bit_writer.h"

namespace vex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Fields = std::vector<std::uint32_t>;
using test::BitWriter;

struct GRow {
    Bytes bytes;
    Fields fields;  // none: the header is refused
};

// `read` gives the fields of a header. A header that is cut is none.
template <class Read>
void ExpectRows(const std::vector<GRow>& rows, Read read)
{
    for (const GRow& row : rows) {
        EXPECT_EQ(read(row.bytes), row.fields) << testing::PrintToString(row.bytes);
        for (Bytes cut = row.bytes; !cut.empty();) {
            cut.pop_back();
            EXPECT_EQ(read(cut), Fields()) << cut.size();
        }
    }
}

TEST(MpegAudioHeader, VersionLayerAndRatesGiveTheFrameSize)
{
    constexpr std::uint32_t kMpeg1 = GMpegAudioHeader::kMpeg1;
    constexpr std::uint32_t kMpeg2 = GMpegAudioHeader::kMpeg2;
    const auto read = [](const Bytes& bytes) -> Fields {
        const auto h = ReadMpegAudioHeader(bytes);
        return h ? Fields{h->version, h->layer, h->bitRate, h->sampleRate, h->FrameSize()} : Fields();
    };
    ExpectRows({{{0xFF, 0xFB, 0x90, 0x64}, {kMpeg1, 3, 128, 44100, 417}},
                {{0xFF, 0xFB, 0x92, 0x64}, {kMpeg1, 3, 128, 44100, 418}},
                {{0xFF, 0xFD, 0xA4, 0x00}, {kMpeg1, 2, 192, 48000, 576}},
                {{0xFF, 0xFF, 0x9A, 0xC0}, {kMpeg1, 1, 288, 32000, 436}},  // a slot of layer I has 4 bytes
                {{0xFF, 0xF3, 0x80, 0xC0}, {kMpeg2, 3, 64, 22050, 208}},
                {{0xFF, 0xF5, 0x84, 0xC0}, {kMpeg2, 2, 64, 24000, 384}},
                {{0xFF, 0xF7, 0xE8, 0xC0}, {kMpeg2, 1, 256, 16000, 768}},
                {{0xFF, 0xE3, 0x18, 0xC0}, {GMpegAudioHeader::kMpeg25, 3, 8, 8000, 72}},
                {{0xFF, 0xFB, 0x00, 0x00}, {kMpeg1, 3, 0, 44100, 0}},  // free format
                {{0xFF, 0xFB, 0xF0, 0x00}, {kMpeg1, 3, 0, 44100, 0}},
                {{0xFF, 0xFB, 0x9C, 0x00}, {kMpeg1, 3, 128, 0, 0}},
                {{0xFF, 0xEB, 0x90, 0x00}, {GMpegAudioHeader::kReserved, 3, 80, 0, 0}},
                {{0xFF, 0xF9, 0x90, 0x00}, {kMpeg1, 4, 0, 44100, 0}},
                {{0xFF, 0xDB, 0x90, 0x64}, {}}},
               read);
    EXPECT_EQ(MpegAudioFrameSize(3, false, 64, 22050, false), 417u) << "twice what MPEG-2 has";
}

TEST(AdtsHeader, FieldsAreReadAndNothingIsRefusedThatAFormatMayTake)
{
    const auto read = [](const Bytes& bytes) -> Fields {
        const auto h = ReadAdtsHeader(bytes);
        return h ? Fields{h->id,         h->protectionAbsent,     h->profile,    h->rateIndex,
                          h->sampleRate, h->channelConfiguration, h->frameLength}
                 : Fields();
    };
    ExpectRows({{{0xFF, 0xF1, 0x50, 0x80, 0x01, 0x5F, 0xFC}, {0, 1, 1, 4, 44100, 2, 10}},
                {{0xFF, 0xF8, 0xB2, 0x3F, 0xFF, 0xE0, 0x03}, {1, 0, 2, 12, 7350, 0, 0x1FFF}},
                {{0xFF, 0xF1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, {0, 1, 3, 15, 0, 7, 0x1FFF}},
                {{0xFF, 0xF3, 0x50, 0x80, 0x01, 0x5F, 0xFC}, {}},   // layer II
                {{0xFF, 0xE1, 0x50, 0x80, 0x01, 0x5F, 0xFC}, {}}},  // 11 bits of sync
               read);
}

TEST(AacConfig, TheCoreIsFoundBehindAnOuterTypeAndAnyLengthOfCode)
{
    const Bytes explicitRate = BitWriter().U(2, 5).U(15, 4).U(12345, 24).U(1, 4).Filled();
    const Bytes escaped = BitWriter().U(31, 5).U(10, 6).U(3, 4).U(2, 4).Filled();  // type 42
    const auto read = [](const Bytes& bytes) -> Fields {
        const auto c = ReadAacConfig(bytes);
        return c ? Fields{c->objectType, c->rateIndex, c->channelConfiguration} : Fields();
    };
    ExpectRows({{{0x12, 0x10}, {2, 4, 2}},
                {{0x2B, 0x11, 0x88}, {2, 6, 2}},  // SBR
                {{0xEB, 0x09, 0x88}, {2, 6, 1}},  // PS
                {explicitRate, {2, 15, 1}},
                {escaped, {42, 3, 2}}},
               read);
}

TEST(Ac3Header, ModesRatesAndFrameSizes)
{
    const auto row = [](std::uint8_t codes, std::uint8_t mode, const Fields& fields) {
        return GRow{{0x0B, 0x77, 0x12, 0x34, codes, 0x48, mode}, fields};
    };
    const auto read = [](const Bytes& bytes) -> Fields {
        const auto h = ReadAc3Header(bytes);
        return h ? Fields{h->bsid, h->Channels(), h->SampleRate(), h->BitRate(), h->FrameSize()} : Fields();
    };
    ExpectRows({row(0x1C, 0xE1, {9, 6, 48000, 384, 1536}),  // 3/2 with a low frequency channel
                row(0x5C, 0x40, {9, 2, 44100, 384, 1670}),  // 2/0, an even code
                row(0x5D, 0x44, {9, 3, 44100, 384, 1672}),  // an odd code: one word more; Dolby Surround comes first
                row(0x80, 0x30, {9, 2, 32000, 32, 192}),    // 1/0: no mix level before the low frequency channel
                row(0x25, 0x7C, {9, 4, 48000, 640, 2560}),  // 3/0: two bits of centre mix level
                row(0x26, 0x00, {9, 2, 48000, 0, 0}),
                row(0xC0, 0x00, {9, 2, 0, 32, 0}),
                {{0x77, 0x0B, 0, 0, 0, 0x40, 0}, {}}},
               read);
}

TEST(DtsHeader, ADvdHeaderAndCodesWithoutAMeaning)
{
    const auto read = [](const Bytes& bytes) -> Fields {
        const auto h = ReadDtsHeader(bytes);
        return h ? Fields{h->frameSize, h->amode, h->Channels(), h->SampleRate(), h->BitRate()} : Fields();
    };
    ExpectRows({{{0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x3E, 0xD2, 0x75, 0xE0}, {1006, 9, 5, 48000, 754'500}},
                {{0x7F, 0xFE, 0x80, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, {16384, 63, 0, 0, 0}}},
               read);
}

}  // namespace
}  // namespace vex
