// Headers of video streams: published bit patterns, values out of range, and every way to be cut off.
#include <gtest/gtest.h>

#include <memory>
#include <string_view>
#include <vector>

#include "media/mpeg_video.h"
#include "media/nal_units.h"
#include "media/picture_sizes.h"
#include "media/vc1_header.h"
#include "media/xiph_headers.h"
#include "support/bit_writer.h"
#include "support/bytes.h"

namespace vex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Fields = std::vector<std::uint32_t>;
using test::BitWriter;
using test::Join;
using test::Text;

Bytes Copy(GBytes bytes) { return {bytes.begin(), bytes.end()}; }

// Calls `read` with every proper beginning of `whole`, each in an allocation of its size, so that a sanitizer sees any
// read past the end.
template <class Read>
void ForEveryCut(const Bytes& whole, Read read)
{
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const auto exact = std::make_unique<std::uint8_t[]>(size);
        std::copy_n(whole.begin(), size, exact.get());
        read(GBytes(exact.get(), size));
    }
}

TEST(NalUnits, StartCodesOfThreeAndFourBytesAndZerosBetweenUnits)
{
    const std::pair<Bytes, std::vector<Bytes>> rows[] = {
        {{0, 0, 1, 0x67, 9, 0, 0, 1, 0x68}, {{0x67, 9}, {0x68}}},
        {{7, 7, 0, 0, 0, 1, 0x67, 0, 9, 0, 0, 0, 0, 1, 0x68, 0, 0}, {{0x67, 0, 9}, {0x68}}},
        {{0, 0, 1, 0, 0, 1, 0x65, 0, 0, 1}, {{0x65}}},  // an empty unit, and a start code with nothing behind it
        {{0, 0, 1, 0x65, 0, 0, 3, 1}, {{0x65, 0, 0, 3, 1}}},
        {{0, 0, 2, 0x65}, {}},
        {{0, 0}, {}},
        {{}, {}},
    };
    for (const auto& [stream, expected] : rows) {
        GNalUnits units(stream);
        std::vector<Bytes> found;
        while (const auto unit = units.Next())
            found.push_back(Copy(*unit));
        EXPECT_EQ(found, expected) << testing::PrintToString(stream);
    }
    EXPECT_EQ(FindStartCode(Bytes{1, 0, 0, 1}), kNotFound) << "its last byte is missing";
    EXPECT_EQ(FindStartCode(Bytes{1, 0, 0, 1, 0}), 1u);
    EXPECT_EQ(FindStartCode(Bytes{0, 0, 1, 9, 0, 0, 1, 9}, 1), 4u);
    EXPECT_EQ(FindStartCode(Bytes{0, 0, 1, 9}, 100), kNotFound);
}

TEST(NalUnits, LengthsThatDoNotFitTheirPrefixLeaveTheUnitOut)
{
    Bytes out;
    EXPECT_FALSE(AppendLengthPrefixed(out, Bytes(256), 1));
    EXPECT_FALSE(AppendLengthPrefixed(out, Bytes(1), 5));
    EXPECT_TRUE(out.empty());
}

// 720 x 480, 16:9, 29.97 frames a second, 9.8 Mbit/s.
const Bytes kDvdSequence{0, 0, 1, 0xB3, 0x2D, 0x01, 0xE0, 0x34, 0x17, 0xED, 0x23, 0x80};
// Main profile at main level, progressive, 4:2:0.
const Bytes kMainExtension{0, 0, 1, 0xB5, 0x14, 0x8A, 0x00, 0x01, 0x00, 0x00};

TEST(MpegSequence, AllBitsOfTheExtensionAndWhatIsCutOff)
{
    EXPECT_FALSE(ReadMpegSequence(Join({{0, 0, 1, 0xB8, 0}, kDvdSequence}))) << "another start code comes first";
    ForEveryCut(kDvdSequence, [](GBytes cut) { EXPECT_FALSE(ReadMpegSequence(cut)) << cut.size(); });
    const Bytes picture{0, 0, 1, 0xB5, 0x8F, 0xFF};
    const Bytes stream = Join({kDvdSequence, kMainExtension, picture, {0, 0, 1, 0}});
    const auto sequence = ReadMpegSequence(stream);
    ASSERT_TRUE(sequence);
    EXPECT_EQ(Copy(sequence->firstExtension), kMainExtension);
    EXPECT_EQ(Copy(sequence->secondExtension), picture);
    const auto most = FindMpegSequenceExtension(Bytes{0, 0, 1, 0xB5, 0x1F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    ASSERT_TRUE(most);
    EXPECT_EQ((Fields{most->profile, most->level, most->widthHighBits, most->heightHighBits, most->bitRateHighBits,
                      most->rateNumerator, most->rateDenominator}),
              (Fields{7, 15, 3, 3, 0xFFF, 3, 31}));
    EXPECT_EQ(VideoInfoProfile(most->profile) + VideoInfoLevel(most->level), 0u);
    ForEveryCut(kMainExtension, [](GBytes cut) {
        const auto extension = FindMpegSequenceExtension(cut);
        ASSERT_EQ(extension.has_value(), cut.size() >= 6) << cut.size();
        EXPECT_TRUE(!extension || extension->level == 8) << cut.size();
    });
}

TEST(MpegSequence, TablesEndWhereTheirCodesEnd)
{
    EXPECT_EQ(std::uint64_t{MpegFramePeriod(4)} * 10 / 27, 333'666u);
    EXPECT_EQ(MpegFramePeriod(0) + MpegFramePeriod(9) + MpegFramePeriod(15), 0u);
    EXPECT_EQ(static_cast<int>(352 / Mpeg1PelAspect(12) + 0.5), 321) << "NTSC";
    EXPECT_EQ(Mpeg1PelAspect(0) + Mpeg1PelAspect(15), 0.0);
    EXPECT_EQ(Mpeg2DisplayAspect(3), (GRatio{16, 9}));
    EXPECT_EQ(Mpeg2DisplayAspect(15), (GRatio{1, 1}));
}

BitWriter Vc1Head(unsigned profile, bool display)
{
    BitWriter bits;
    bits.U(profile, 2).U(3, 3).U(1, 2).U(2, 3).U(21, 5).U(1, 1).U(959, 12).U(539, 12);
    return bits.U(0b010001, 6).U(display ? 1 : 0, 1);
}

TEST(Vc1Sequence, SizesAspectAndBothWaysToGiveTheRate)
{
    const auto display = [](unsigned width, unsigned height) {
        return Vc1Head(3, true).U(width - 1, 14).U(height - 1, 14).U(1, 1);
    };
    // Emulation prevention stands in the zeros of a size of 2 x 2.
    Bytes escaped = BitWriter().U(3, 2).U(0, 3).U(1, 2).U(0, 8).U(0, 1).U(0, 12).U(0, 12).U(0, 7).Filled();
    escaped.insert(escaped.begin() + 4, 3);
    const struct {
        Bytes coded;
        Fields fields;  // coded size, display size, aspect, rate
    } rows[] = {
        {display(1920, 1080).U(1, 4).U(1, 1).U(0, 1).U(1, 8).U(2, 4).Done(),
         {1920, 1080, 1920, 1080, 1, 1, 24000, 1001}},
        {display(64, 2).U(15, 4).U(200, 8).U(7, 8).U(1, 1).U(1, 1).U(799, 16).Done(),
         {1920, 1080, 64, 2, 200, 7, 800, 32}},
        {display(2, 2).U(14, 4).U(1, 1).U(0, 1).U(8, 8).U(1, 4).Done(), {1920, 1080, 2, 2, 0, 0, 0, 0}},  // reserved
        {Vc1Head(3, false).Done(), {1920, 1080, 0, 0, 0, 0, 0, 0}},
        {Vc1Head(0, false).Done(), {0, 0, 0, 0, 0, 0, 0, 0}},  // another profile
        {escaped, {2, 2, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& [coded, fields] : rows) {
        const Bytes stream = Join({{9, 0, 0, 1, 0x0F}, coded, {0, 0, 1, 0x0E, 0x5A, 0, 0, 1, 0x0D, 7}});
        const auto s = ReadVc1Sequence(stream);
        ASSERT_TRUE(s);
        EXPECT_EQ((Fields{s->codedWidth, s->codedHeight, s->displayWidth, s->displayHeight, s->aspect.x, s->aspect.y,
                          s->rateNumerator, s->rateDenominator}),
                  fields);
        EXPECT_EQ(Copy(s->sequenceHeader), Join({{0, 0, 1, 0x0F}, coded}));
        EXPECT_EQ(Copy(s->entryPoint), (Bytes{0, 0, 1, 0x0E, 0x5A}));
        EXPECT_EQ(s->hasDisplay, fields[2] != 0);
    }
    EXPECT_FALSE(ReadVc1Sequence(Bytes{0, 0, 1, 0x0E, 0x5A}));
    const Bytes head = Join({{0, 0, 1, 0x0F}, Vc1Head(3, false).Filled()});
    ForEveryCut(head, [](GBytes cut) { EXPECT_FALSE(ReadVc1Sequence(cut)) << cut.size(); });
}

TEST(XiphHeaders, TheTheoraHeaderIsReadAsFarAsItReaches)
{
    const Bytes packet = Join({{0x80},
                               Text("theora"),
                               {3, 2, 1, 0, 20, 0, 15, 0, 1, 0x3E, 0, 0, 0xEE, 1, 2},
                               {0, 0, 0x75, 0x30, 0, 0, 3, 0xE9, 0, 0, 16, 0, 0, 15, 2, 0, 3, 0xE8, 0xC1, 0x98}});
    const auto header = ReadTheoraIdentification(packet);
    EXPECT_TRUE(header.valid);
    EXPECT_EQ((Fields{header.versionMajor, header.versionMinor, header.versionRevision, header.frameColumns,
                      header.frameRows, header.pictureWidth, header.pictureHeight, header.rateNumerator,
                      header.rateDenominator, header.nominalBitRate, header.granuleShift}),
              (Fields{3, 2, 1, 20, 15, 318, 238, 30000, 1001, 1000, 12}));
    ForEveryCut(packet, [](GBytes cut) {
        const auto part = ReadTheoraIdentification(cut);
        EXPECT_FALSE(part.valid) << cut.size();
        EXPECT_EQ(part.pictureWidth, cut.size() >= 17 ? 318u : 0u) << cut.size();
    });
    Bytes comment = packet;
    comment[0] = 0x81;
    EXPECT_FALSE(ReadTheoraIdentification(comment).valid);
}

TEST(XiphHeaders, TheVorbisHeaderIsWholeOrNothing)
{
    const Bytes packet = Join({{1},
                               Text("vorbis"),
                               {0, 0, 0, 0, 2, 0x44, 0xAC, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF},
                               {0x80, 0xB5, 1, 0, 0, 0, 0, 0, 0xB8, 1}});
    const auto header = ReadVorbisIdentification(packet);
    ASSERT_TRUE(header);
    EXPECT_EQ((Fields{header->shortBlock, header->longBlock}), (Fields{256, 2048}));
    ForEveryCut(packet, [](GBytes cut) { EXPECT_FALSE(ReadVorbisIdentification(cut)) << cut.size(); });
    Bytes comment = packet;
    comment[0] = 3;
    EXPECT_FALSE(ReadVorbisIdentification(comment));
}

TEST(XiphHeaders, LacedPacketsAreSplitOrRefusedAsAWhole)
{
    const Bytes laced = Join({{2, 255, 1, 0}, Bytes(256, 7), {8, 9}});
    const auto packets = SplitXiphPackets(laced);
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0].size(), 256u);
    EXPECT_EQ(packets[1].size(), 0u);
    EXPECT_EQ(Copy(packets[2]), (Bytes{8, 9}));
    for (const Bytes& other : {Bytes{}, Bytes{2, 9, 9, 1}, Bytes{2, 255}, Bytes{1, 255, 255}, Bytes{255, 0, 0}})
        EXPECT_TRUE(SplitXiphPackets(other).empty()) << testing::PrintToString(other);
    EXPECT_EQ(SplitXiphPackets(Bytes{0}).size(), 1u);
}

TEST(PictureSizes, SorensonSizesAreCodedOrExplicit)
{
    const auto header = [](unsigned code) { return BitWriter().U(1, 17).U(1, 5).U(77, 8).U(code, 3); };
    const struct {
        Bytes bytes;
        GPictureSize size;
    } rows[] = {
        {header(0).U(100, 8).U(50, 8).U(0, 2).Filled(), {100, 50}},
        {header(1).U(1000, 16).U(65535, 16).U(0, 2).Filled(), {1000, 65535}},
        {header(2).U(0, 2).Filled(), {352, 288}},
        {header(6).U(0, 2).Filled(), {160, 120}},
        {header(7).U(0, 2).Filled(), {0, 0}},
    };
    for (const auto& row : rows) {
        const auto sorenson = ReadSorensonHeader(row.bytes);
        EXPECT_TRUE(sorenson.startCode && sorenson.whole);
        EXPECT_EQ(sorenson.size, row.size);
        ForEveryCut(row.bytes, [](GBytes cut) { EXPECT_FALSE(ReadSorensonHeader(cut).whole) << cut.size(); });
    }
    EXPECT_FALSE(ReadSorensonHeader(Bytes(8, 0xFF)).startCode);
}

TEST(PictureSizes, Vp6KeyFramesHaveTheirSizeBehindAnOptionalOffset)
{
    const Bytes advanced{0x78, 0x46, 15, 20, 14, 19};
    const Bytes simple{0x78, 0x30, 0, 9, 15, 20, 14, 19};
    const Bytes separated{0x79, 0x46, 0, 9, 15, 20, 14, 19};
    for (const Bytes& bytes : {advanced, simple, separated}) {
        const auto header = ReadVp6Header(bytes);
        ASSERT_TRUE(header);
        EXPECT_TRUE(header->keyFrame);
        EXPECT_EQ(header->CodedSize(), (GPictureSize{320, 240}));
        ForEveryCut(bytes, [](GBytes cut) { EXPECT_FALSE(ReadVp6Header(cut)) << cut.size(); });
    }
    const auto inter = ReadVp6Header(Bytes{0xF8});
    ASSERT_TRUE(inter);
    EXPECT_FALSE(inter->keyFrame);
}

TEST(PictureSizes, Mpeg4SizesLieAtFixedPlacesOfConfigurationsOfOneLength)
{
    Bytes configuration(34);
    configuration[2] = 1;
    configuration[3] = 0xB0;
    configuration[28] = 0xFD;  // of which two bits count
    configuration[29] = 0x68;
    configuration[30] = 0x44;
    configuration[31] = 0x81;
    EXPECT_EQ(Mpeg4ConfigurationSize(configuration), (GPictureSize{720, 576}));
    configuration[30] = 0x84;
    EXPECT_EQ(Mpeg4ConfigurationSize(configuration), (GPictureSize{722, 576})) << "its last bit counts two";
    configuration[3] = 0xB5;
    EXPECT_FALSE(Mpeg4ConfigurationSize(configuration));
    configuration[3] = 0xB0;
    configuration.push_back(0);
    EXPECT_FALSE(Mpeg4ConfigurationSize(configuration));
    configuration.resize(33);
    EXPECT_FALSE(Mpeg4ConfigurationSize(configuration));
}

}  // namespace
}  // namespace vex
