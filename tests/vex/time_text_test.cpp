#include "tools/vex/time_text.h"

#include <gtest/gtest.h>

namespace vex::test {

TEST(TimeText, EveryNotationGivesTheSameTime)
{
    constexpr REFERENCE_TIME kHourAndABit = 37'235'000'000;
    for (const char* text : {"3723.5", "3723.5s", "1:02:03.5", "62:03.500", "3723500ms", "37235000000hns"})
        EXPECT_EQ(ParseTime(text), kHourAndABit) << text;
    EXPECT_EQ(ParseTime("0"), 0);
    EXPECT_EQ(ParseTime("0.00000019"), 1) << "digits below 100 ns are cut off";
}

TEST(TimeText, WhatIsNoTimeIsRefused)
{
    for (const char* text : {"", "-1", "+1", " 1", "1 ", ".5", "1.", "1.x", "1:60", "1:2:60", "0:60:00", "1:2:3:4",
                             "1:.5", "1::2", "1e3", "ms", "12hnsx", "0x10"})
        EXPECT_EQ(ParseTime(text), std::nullopt) << text;
}

TEST(TimeText, ATimeBeyondTheLargestIsRefusedAndNotWrapped)
{
    EXPECT_EQ(ParseTime("9223372036854775807hns"), 9223372036854775807);
    for (const char* text : {"9223372036854775808hns", "922337203685.4775808", "999999999999999999999",
                             "153722867281:00", "2562047788015:00:00"})
        EXPECT_EQ(ParseTime(text), std::nullopt) << text;
}

TEST(TimeText, TimesAreWrittenInHoursAndRoundedDown)
{
    EXPECT_EQ(TimeText(36'619'999'999), "1:01:01.999");
    EXPECT_EQ(TimeText(-5'000'000), "-0:00:00.500");
    EXPECT_EQ(TimeText(kNoTime), "-");
    EXPECT_EQ(TimeText(kNoTime + 1), "-256204778:48:05.477");
}

}  // namespace vex::test
