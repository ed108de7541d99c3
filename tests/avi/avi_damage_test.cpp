// Every way in which a file can be broken: it opens or it does not, it ends, and nothing in it makes more of it than it
// is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "avi/avi_reading.h"
#include "support/handler_trial.h"

namespace vex::test {
namespace {

// The number of packets. There can be no more of them than chunk headers or index entries.
std::size_t Survive(const std::vector<std::uint8_t>& bytes)
{
    GAviReading reading(bytes);
    const auto use = TryHandler(reading, {.targets = {reading.Handler().Duration(), kSecond, 1}});
    EXPECT_LE(use.packets, bytes.size() / 8);
    return use.packets;
}

class AviBroken : public testing::TestWithParam<std::tuple<GAviTestIndex, std::size_t>> {
protected:
    AviBroken()
    {
        GAviTestFile file = SmallFile(std::get<0>(GetParam()), std::get<1>(GetParam()));
        file.recLists = true;
        bytes = file.Build();
    }
    std::vector<std::uint8_t> bytes;
};
INSTANTIATE_TEST_SUITE_P(Files, AviBroken,
                         testing::Values(std::tuple{GAviTestIndex::None, 1u},
                                         std::tuple{GAviTestIndex::Idx1Absolute, 1u},
                                         std::tuple{GAviTestIndex::OpenDml, 2u},
                                         std::tuple{GAviTestIndex::OpenDmlFields, 2u}));

TEST_P(AviBroken, EveryPrefixEndsAndGivesNoFewerPacketsThanAShorterOne)
{
    EXPECT_EQ(TryPrefixes(bytes, Survive), 5 * std::get<1>(GetParam()));
}

TEST_P(AviBroken, EveryByteAndEverySizeFieldMayLie)
{
    TryBytes(bytes, {0x00, 0x01, 0x7F, 0xFF}, Survive);
    for (std::size_t i = 4; i + 4 <= bytes.size(); i += 2) {
        for (const std::uint32_t value : {0u, 1u, 3u, 7u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            auto broken = bytes;
            Put(broken, i, value);
            Survive(broken);
        }
    }
}

// `count` lists, each begun and none ended, whose types and claimed sizes alternate.
std::vector<std::uint8_t> UnendedLists(int count, std::uint32_t size, std::string_view otherType,
                                       std::uint32_t otherSize)
{
    GRiffBuilder riff;
    riff.U32LE(FourCC("RIFF"), 0x7FFFFFFF, FourCC("AVI "));
    for (int i = 0; i < count; ++i) {
        riff.U32LE(FourCC("LIST"), i % 2 != 0 ? otherSize : size);
        riff.Text(i % 2 != 0 ? otherType : "hdrl");
    }
    return riff.Bytes();
}

TEST(AviNesting, ListsInListsToAnyDepthAreLeftAloneBeyondTheLimit)
{
    GAviReading reading(UnendedLists(100'000, 0x7FFFFF00, "strl", 0x7FFFFF00));
    EXPECT_EQ(reading.Streams().size(), 16u);
}

// Every list ends behind the header of the next one, whose own size reaches far beyond: each level would walk all that
// follows again.
TEST(AviNesting, ListsThatOutgrowTheirParentsAreNotReadOverAndOver)
{
    GAviReading reading(UnendedLists(20'000, 16, "hdrl", 0x00100000));
    EXPECT_LT(reading.Watch().reads, 100'000u);
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
    const auto opensWith = [&](std::size_t position, std::uint32_t code) {
        auto bytes = good;
        Put(bytes, position, code);
        return GAviReading(bytes).IsOpen();
    };
    EXPECT_TRUE(opensWith(0, FourCC("RIFF")));
    EXPECT_FALSE(opensWith(0, FourCC("RIFX")));
    EXPECT_FALSE(opensWith(8, FourCC("WAVE")));
    EXPECT_FALSE(opensWith(PositionOf(good, "strl"), FourCC("xtrl"))) << "no stream";
    EXPECT_FALSE(GAviReading(std::vector<std::uint8_t>()).IsOpen());
    for (const std::size_t size : {std::size_t{248}, std::size_t{252}}) {  // too large a "dmlh" tells of a broken file
        GRiffBuilder odml;
        odml.List("odml", [&] { odml.Chunk("dmlh", [&] { odml.Zeros(size); }); });
        auto bytes = good;
        bytes.insert(bytes.begin() + 12, odml.Bytes().begin(), odml.Bytes().end());
        Put(bytes, 4, bytes.size() - 8);
        EXPECT_EQ(GAviReading(bytes).IsOpen(), size == 248);
    }
    GAvi2ReadHandler handler;
    EXPECT_EQ(handler.Open("no such file").Error().kind, GErrorKind::Io);
}

TEST(AviOpen, ABrokenContinuationEndsTheSearchAndWhatWasReadStays)
{
    GAviTestFile file = NumberedVideo(2, GAviTestIndex::Idx1Relative);
    file.parts.push_back({Chunk("00dc", 10, 3)});
    auto bytes = file.Build();
    bytes[PositionOf(bytes, "AVIX") - 4] += 8;  // for a list that ends before its type
    const std::string cutList("LIST\4\0\0\0", 8);
    bytes.insert(bytes.end(), cutList.begin(), cutList.end());
    GAviReading reading(bytes);
    EXPECT_EQ(Marks(reading.ReadAll()), Numbers(2));
    EXPECT_EQ(reading.Damage().first, "a list ends before its type at byte " + std::to_string(bytes.size() - 8));
}

}  // namespace
}  // namespace vex::test
