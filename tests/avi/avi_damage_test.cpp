// Every way in which a file can be broken: it opens or it does not, it ends, and nothing in it makes more of it than it is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"

namespace vex::test {
namespace {

GAviTestFile SmallFile(GAviTestIndex index, std::size_t parts)
{
    GAviTestFile file{.streams = {VideoStream(), PcmStream()}, .parts = {}, .index = index, .recLists = true};
    for (std::size_t part = 0; part < parts; ++part)
        file.parts.push_back({Mpeg4Chunk("00dc", 12, true), Chunk("01wb", 9), Mpeg4Chunk("00dc", 11, false)});
    return file;
}

// Reads and seeks as a player might. No packet may be larger than the file, and there can be no more of them than chunk
// headers or index entries.
void Survive(const std::vector<std::uint8_t>& bytes)
{
    GAviReading reading(bytes);
    if (!reading.Open())
        return;
    std::size_t count = 0;
    for (GReadPacket packet; reading.Read(packet); ++count) {
        ASSERT_LE(packet.payload.size(), bytes.size());
        ASSERT_GE(packet.next.stop, packet.next.start);
        ASSERT_GE(packet.next.start, 0);
    }
    ASSERT_LE(count, bytes.size() / 8);
    ASSERT_GE(reading.Handler().LongestStreamDuration(), 0);
    for (const auto mode : {GSeekMode::Independent, GSeekMode::KeyFrame}) {
        for (const REFERENCE_TIME time : {reading.Handler().Duration(), kSecond, REFERENCE_TIME{1}}) {
            reading.Handler().Seek(time, mode);
            GReadPacket packet;
            reading.Read(packet);
        }
    }
}

class AviBroken : public testing::TestWithParam<std::tuple<GAviTestIndex, std::size_t>> {
protected:
    const std::vector<std::uint8_t> bytes = SmallFile(std::get<0>(GetParam()), std::get<1>(GetParam())).Build();
};
INSTANTIATE_TEST_SUITE_P(Files, AviBroken,
                         testing::Values(std::tuple{GAviTestIndex::None, 1u},
                                         std::tuple{GAviTestIndex::Idx1Absolute, 1u},
                                         std::tuple{GAviTestIndex::OpenDml, 2u},
                                         std::tuple{GAviTestIndex::OpenDmlFields, 2u}));

TEST_P(AviBroken, EveryPrefixEndsAndGivesNoFewerPacketsThanAShorterOne)
{
    std::size_t most = 0;
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        const std::vector<std::uint8_t> prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
        Survive(prefix);
        GAviReading reading(prefix);
        if (!reading.Open())
            continue;
        const std::size_t count = reading.ReadAll().size();
        ASSERT_GE(count, most) << "cut at " << size;
        most = count;
    }
    EXPECT_EQ(most, 3 * std::get<1>(GetParam()));
}

TEST_P(AviBroken, EveryByteOfTheHeadersMayBeAnything)
{
    auto broken = bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (const int value : {0x00, 0x01, 0x7F, 0xFF}) {
            broken[i] = static_cast<std::uint8_t>(value);
            Survive(broken);
        }
        broken[i] = bytes[i];
    }
}

TEST_P(AviBroken, EverySizeFieldMayLie)
{
    auto broken = bytes;
    for (std::size_t i = 4; i + 4 <= bytes.size(); i += 2) {
        for (const std::uint32_t value : {0u, 1u, 3u, 7u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            for (std::size_t b = 0; b < 4; ++b)
                broken[i + b] = static_cast<std::uint8_t>(value >> 8 * b);
            Survive(broken);
        }
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(i), 4, broken.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

TEST(AviNesting, ListsInListsToAnyDepthAreLeftAloneBeyondTheLimit)
{
    GRiffBuilder riff;
    riff.Text("RIFF");
    riff.U32LE(0x7FFFFFFF);
    riff.Text("AVI ");
    for (int i = 0; i < 100'000; ++i) {
        riff.Text("LIST");
        riff.U32LE(0x7FFFFF00);
        riff.Text(i % 2 != 0 ? "strl" : "hdrl");
    }
    GAviReading reading(riff.Bytes());
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(reading.Handler().Streams().size(), 16u);
}

TEST(AviNesting, ListsThatOutgrowTheirParentsAreNotReadOverAndOver)
{
    // Every list ends behind the header of the next one, whose own size reaches far beyond: each level would walk all
    // that follows again.
    GRiffBuilder riff;
    riff.Text("RIFF");
    riff.U32LE(0x7FFFFFFF);
    riff.Text("AVI ");
    for (int i = 0; i < 20'000; ++i) {
        riff.Text("LIST");
        riff.U32LE(i % 2 != 0 ? 0x00100000 : 16);
        riff.Text("hdrl");
    }
    Survive(riff.Bytes());
}

TEST(AviNesting, ContinuationsOfUnknownSizeDoNotNestOnTheStack)
{
    auto bytes = NumberedVideo(2, GAviTestIndex::None).Build();
    const std::string unfilled("RIFF\0\0\0\0AVIX", 12);
    for (int i = 0; i < 300'000; ++i)
        bytes.insert(bytes.end(), unfilled.begin(), unfilled.end());
    EXPECT_EQ(Marks(ReadFile(bytes)), Numbers(2));
}

TEST(AviOpen, WhatIsNoAviFileIsRefused)
{
    const auto good = NumberedVideo(1, GAviTestIndex::Idx1Relative).Build();
    const auto refused = [](std::vector<std::uint8_t> bytes) { return !GAviReading(std::move(bytes)).Open(); };
    EXPECT_FALSE(refused(good));
    auto wave = good;
    std::ranges::copy(std::string("WAVE"), wave.begin() + 8);
    EXPECT_TRUE(refused(wave));
    auto bigEndian = good;
    bigEndian[3] = 'X';
    EXPECT_TRUE(refused(bigEndian));
    auto noStream = good;
    noStream[PositionOf(good, "strl")] = 'x';
    EXPECT_TRUE(refused(noStream));
    EXPECT_TRUE(refused({}));
    GRiffBuilder oversizeHeader;  // of which a broken file is told
    {
        const auto first = oversizeHeader.Riff("AVI ");
        const auto odml = oversizeHeader.List("odml");
        const auto dmlh = oversizeHeader.Chunk("dmlh");
        oversizeHeader.Zeros(252);
    }
    auto withOdml = good;
    withOdml.insert(withOdml.begin() + 12, oversizeHeader.Bytes().begin() + 12, oversizeHeader.Bytes().end());
    EXPECT_TRUE(refused(withOdml));
    GAvi2ReadHandler handler;
    EXPECT_FALSE(handler.Open("no such file").Ok());
    EXPECT_EQ(handler.Open("no such file").Error().kind, GErrorKind::Io);
}

TEST(AviOpen, ABrokenContinuationEndsTheSearchAndWhatWasReadStays)
{
    GAviTestFile file = NumberedVideo(2, GAviTestIndex::Idx1Relative);
    file.parts.push_back({Chunk("00dc", 10, 3)});
    auto bytes = file.Build();
    bytes[PositionOf(bytes, "AVIX") - 4] += 8;  // for a list that ends before its type
    for (const char c : {'L', 'I', 'S', 'T', '\x04', '\0', '\0', '\0'})
        bytes.push_back(static_cast<std::uint8_t>(c));
    GAviReading reading(bytes);
    ASSERT_TRUE(reading.Open());
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(2));
    EXPECT_EQ(reading.Handler().Damage().first,
              "a list ends before its type at byte " + std::to_string(bytes.size() - 8));
}

}  // namespace
}  // namespace vex::test
