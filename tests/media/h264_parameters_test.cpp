#include "media/h264_parameters.h"

#include <gtest/gtest.h>
#include <memory>
#include <vector>

#include "support/bit_writer.h"

namespace vex {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::BitWriter;

Bytes Escaped(const Bytes& bytes)
{
    Bytes result;
    std::size_t zeros = 0;
    for (const std::uint8_t byte : bytes) {
        if (zeros >= 2 && byte <= 3) {
            result.push_back(3);
            zeros = 0;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        result.push_back(byte);
    }
    return result;
}

// An "avcC" of these sets; `between` stands behind the first one.
Bytes Record(const std::vector<Bytes>& sets, const Bytes& between = {})
{
    Bytes record{1, 100, 0, 40, 0xFF, static_cast<std::uint8_t>(0xE0 | sets.size())};
    for (const Bytes& set : sets) {
        record.push_back(static_cast<std::uint8_t>(set.size() >> 8));
        record.push_back(static_cast<std::uint8_t>(set.size()));
        record.insert(record.end(), set.begin(), set.end());
        if (&set == &sets.front())
            record.insert(record.end(), between.begin(), between.end());
    }
    return record;
}

// Reads from an allocation of the exact size, so that a sanitizer sees any read past the end, over a record in use.
GH264Parameters Parameters(const Bytes& record)
{
    const auto exact = std::make_unique<std::uint8_t[]>(record.size());
    std::copy(record.begin(), record.end(), exact.get());
    GH264Parameters out;
    out.width = out.timeScale = 99;
    EXPECT_EQ(ReadAvcConfiguration({exact.get(), record.size()}, out), record.size() >= 6) << record.size();
    return out;
}

struct Timing {
    std::uint32_t numUnitsInTick;
    std::uint32_t timeScale;
    bool fixed;
};

// High profile, 1920x1080 of interlaced coding, scaling lists, everything in the usability information.
Bytes FullSequenceSet(const Timing& timing)
{
    BitWriter w;
    w.U(0x67, 8).U(100, 8).U(0x40, 8).U(41, 8).Ue(2);
    w.Ue(1).Ue(0).Ue(2).U(0, 1);  // 4:2:0, depths 8 and 10
    w.U(1, 1);                    // scaling lists: one cut short, one whole, one not sent
    w.U(1, 1).Se(3).Se(-11).U(1, 1);
    for (int i = 0; i < 16; ++i)
        w.Se(1);
    w.U(0, 6);
    w.Ue(5).Ue(1).U(0, 1).Se(-1).Se(2).Ue(3).Se(1).Se(-1).Se(0);  // frame number, picture order type 1
    w.Ue(4).U(1, 1).Ue(119).Ue(33).U(0, 1).U(1, 1).U(1, 1);
    w.U(1, 1).Ue(1).Ue(2).Ue(0).Ue(2);  // cropping
    w.U(1, 1);                          // usability information
    w.U(1, 1).U(255, 8).U(64, 16).U(45, 16);
    w.U(1, 1).U(0, 1);
    w.U(1, 1).U(5, 3).U(0, 1).U(1, 1).U(0x010101, 24);
    w.U(1, 1).Ue(0).Ue(1);
    w.U(1, 1).U(timing.numUnitsInTick, 32).U(timing.timeScale, 32).U(timing.fixed ? 1 : 0, 1);
    w.U(~0ull, 64);  // what is behind the timing is not read
    return Escaped(w.Done());
}

// Main profile, up to the length of the frame number.
BitWriter MainProfile() { return BitWriter().U(0x67, 8).U(77, 8).U(0, 8).U(30, 8).Ue(0).Ue(0); }

Bytes PlainSequenceSet(std::uint32_t columns, std::uint32_t rows)
{
    return MainProfile().Ue(0).Ue(2).Ue(1).U(0, 1).Ue(columns - 1).Ue(rows - 1).U(3, 2).U(0, 2).Done();
}

TEST(AvcConfiguration, EveryOptionalPartIsSteppedOverOnTheWayToTheTiming)
{
    // Odd numbers without zero bytes, so that nothing has to be escaped.
    const GH264Parameters p = Parameters(Record({FullSequenceSet({0x01020304, 0x55667789, true})}));
    using Numbers = std::vector<std::uint32_t>;
    EXPECT_EQ((Numbers{p.profile, p.level, p.width, p.height, p.aspectX, p.aspectY, p.numUnitsInTick, p.timeScale,
                       p.fixedFrameRate}),
              (Numbers{100, 41, 1914, 1080, 64, 45, 0x01020304, 0x55667789, 1}));
}

TEST(AvcConfiguration, FullChromaHasTwelveScalingListsButInTheFirstProfileForIt)
{
    for (const std::uint32_t profile : {144u, 244u}) {
        BitWriter w;
        w.U(0x67, 8).U(profile, 8).U(0, 8).U(30, 8).Ue(0);
        w.Ue(3).U(1, 1).Ue(2).Ue(2).U(0, 1).U(1, 1).U(0, profile == 144 ? 8 : 12);
        w.Ue(3).Ue(2).Ue(1).U(0, 1).Ue(39).Ue(29).U(3, 2).U(0, 2);
        const GH264Parameters p = Parameters(Record({w.Done()}));
        EXPECT_EQ(p.width, 640u) << profile;
        EXPECT_EQ(p.height, 480u) << profile;
    }
}

// A later set overwrites what it carries and no more. It is found as far behind the first one as bytes were taken out.
TEST(AvcConfiguration, EscapedBytesAreTakenOutButTheLengthsStillCountThem)
{
    const Bytes set = FullSequenceSet({1, 50, false});
    const std::size_t escapes = set.size() - FullSequenceSet({0x01020304, 0x55667789, true}).size();
    ASSERT_GE(escapes, 1u) << "the case tests nothing";
    const GH264Parameters p = Parameters(Record({set, PlainSequenceSet(20, 15)}, Bytes(escapes, 0xEE)));
    EXPECT_EQ(p.width, 320u);
    EXPECT_EQ(p.height, 240u);
    EXPECT_EQ(p.numUnitsInTick, 1u);
    EXPECT_EQ(p.timeScale, 50u);
    EXPECT_FALSE(p.fixedFrameRate);
}

TEST(AvcConfigurationDamage, EveryTruncationReadsAsZerosFollowedBySilence)
{
    Bytes record = Record({FullSequenceSet({0x01020304, 0x55667789, true})});
    const std::size_t whole = record.size();
    std::size_t withTiming = 0;
    while (!record.empty()) {
        record.pop_back();
        const GH264Parameters p = Parameters(record);
        EXPECT_TRUE(p.timeScale == 0 || p.timeScale == 0x55667789) << record.size();
        EXPECT_TRUE(p.width == 0 || p.width == 16 || p.width == 1914 || p.width == 1920) << record.size();
        EXPECT_TRUE(record.size() >= 6 || p.width == 0) << record.size();
        withTiming += p.timeScale != 0;
    }
    EXPECT_GT(withTiming, 5u);
    EXPECT_LT(withTiming, whole / 2);
}

TEST(AvcConfigurationDamage, CodesAndCountsWithoutEndEndWithTheRecord)
{
    // Zeros for ever where a code should end.
    const GH264Parameters endless =
        Parameters(Record({BitWriter().U(0x67, 8).U(77, 8).U(0, 8).U(30, 8).U(0, 60).U(1, 1).U(~0ull, 64).Done()}));
    EXPECT_EQ(endless.width, 16u) << "one macroblock: a code past the end is 0";

    // A cycle of 4294967294 picture order offsets.
    const Bytes cycle = MainProfile().Ue(1).U(0, 1).Se(0).Se(0).Ue(0xFFFFFFFE).U(~0ull, 64).Done();
    EXPECT_EQ(Parameters(Record({cycle})).timeScale, 0u);

    // 31 sets in a record that holds none.
    EXPECT_EQ(Parameters({1, 100, 0, 40, 0xFF, 0xFF}).profile, 0);
}

TEST(AvcConfigurationDamage, SizesBeyondAnyPictureDoNotWrap)
{
    BitWriter cropped = MainProfile().Ue(2).Ue(1).U(0, 1).Ue(19).Ue(14).U(3, 2);  // more is cut off than there is
    cropped.U(1, 1).Ue(100).Ue(0xFFFFFFFE).Ue(0x80000000).Ue(1).U(0, 1);
    for (const Bytes& set : {PlainSequenceSet(0x10000000, 0xFFFFFFFF), cropped.Done()}) {
        const GH264Parameters p = Parameters(Record({set}));
        EXPECT_EQ(p.width, 0u);
        EXPECT_EQ(p.height, 0u);
    }
}

TEST(SequenceParameterSet, ABareSetIsReadWithoutStartCodeAndEscapesUntilItsSizeIsCutOff)
{
    Bytes set = FullSequenceSet({1, 50, false});  // with escapes inside the timing
    GH264Parameters p;
    ASSERT_TRUE(ReadSequenceParameterSet(set, p));
    EXPECT_EQ(p.timeScale, 50u);
    std::size_t cuts = 0;
    for (; ReadSequenceParameterSet(set, p); ++cuts) {
        EXPECT_EQ(p.height, 1080u) << "the size is whole or there is none";
        set.pop_back();
    }
    EXPECT_GT(cuts, 10u) << "usability information may be missing";
    EXPECT_EQ(p.profile, 0);
    EXPECT_FALSE(ReadSequenceParameterSet(Bytes{0x68, 0xCE}, p)) << "a picture parameter set";
    EXPECT_FALSE(ReadSequenceParameterSet({}, p));
}

}  // namespace
}  // namespace vex
