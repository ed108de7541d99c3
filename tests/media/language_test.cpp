#include "framework/media/language.h"

#include <gtest/gtest.h>
#include <set>

#include "framework/media/pin_names.h"

namespace vex {
namespace {

TEST(LanguageTable, HoldsTheWholeListWithTerminologicalRowsBehindTheirLanguage)
{
    const auto table = LanguageTable();
    ASSERT_EQ(table.size(), 505u);
    EXPECT_TRUE(table.back().name.empty() && table.back().letter3.empty() && table.back().letter2.empty());
    int named = 0;
    for (std::size_t i = 0; i + 1 < table.size(); ++i) {
        named += !table[i].name.empty();
        EXPECT_FALSE(table[i].letter3.empty()) << i;
        if (table[i].name.empty()) {
            ASSERT_GT(i, 0u);
            EXPECT_EQ(table[i].letter2, table[i - 1].letter2) << table[i].letter3;
        }
    }
    EXPECT_EQ(named, 481);
}

TEST(LanguageTable, EveryNamedRowIsFoundByTheFirstOfItsNamesUnlessAnEarlierRowHasItsCode)
{
    std::set<std::string_view> seen3;
    std::set<std::string_view> seen2;
    for (const GLanguageRow& row : LanguageTable()) {
        const std::string first(row.name.substr(0, row.name.find(';')));
        if (row.letter3.size() == 3 && seen3.insert(row.letter3).second) {
            EXPECT_EQ(LanguageNameFrom3(row.letter3), first);
        }
        if (row.letter2.size() == 2 && seen2.insert(row.letter2).second) {
            EXPECT_EQ(LanguageNameFrom2(row.letter2), first);
        }
    }
    EXPECT_GT(seen3.size(), 460u);
    EXPECT_GT(seen2.size(), 180u);
}

TEST(LanguageName, OnlyTheFirstLettersCountInEitherCase)
{
    EXPECT_EQ(LanguageNameFrom3("ENG"), "English");
    EXPECT_EQ(LanguageNameFrom3("english"), "English");
    EXPECT_EQ(LanguageNameFrom3("en"), "");
    EXPECT_EQ(LanguageNameFrom3(std::string_view("en\0g", 4)), "") << "a code ends at its padding";
    EXPECT_EQ(LanguageNameFrom3("xyz"), "");
    EXPECT_EQ(LanguageNameFrom2("DE-at"), "German");
    EXPECT_EQ(LanguageNameFrom2("zz"), "");
    EXPECT_EQ(LanguageNameFrom3("\xC3\x84x"), "") << "no case outside ASCII";
}

TEST(LanguageName, OneNameOfSeveralAndNoneForTerminologicalCodes)
{
    EXPECT_EQ(LanguageNameFrom3("dut"), "Dutch");
    EXPECT_EQ(LanguageNameFrom3("nld"), "");
    EXPECT_EQ(LanguageNameFrom3("deu"), "");
    EXPECT_EQ(LanguageNameFrom3("fre"), "French");
    EXPECT_EQ(LanguageNameFrom3("fra"), "") << "its row is written \"fra*\"";
    EXPECT_EQ(LanguageNameFrom2("nl"), "Dutch");
    EXPECT_EQ(LanguageNameFrom3("gre"), "Greek, Modern (1453-)");
    EXPECT_EQ(LanguageNameFrom3("und"), "Undetermined");
    EXPECT_EQ(LanguageNameFrom3("qaa"), "") << "the reserved range is one row";
    EXPECT_EQ(LanguageNameFrom3("nob"), "Bokm\xC3\xA5l, Norwegian");
}

TEST(LanguageName, AnEmptyCodeMeetsTheFirstRowWithoutOne)
{
    EXPECT_EQ(LanguageNameFrom3(""), "");
    EXPECT_EQ(LanguageNameFrom2(""), "Achinese");
}

TEST(AviPinName, NumbersHaveTwoDigitsAndLanguagesFollowASlash)
{
    EXPECT_EQ(AviPinName(GPinKind::Video, 0), VEX_W("Video"));
    EXPECT_EQ(AviPinName(GPinKind::Video, 3, "English"), VEX_W("Video"));
    EXPECT_EQ(AviPinName(GPinKind::Audio, 1), VEX_W("Audio 01"));
    EXPECT_EQ(AviPinName(GPinKind::Subtitle, 10), VEX_W("Subtitle 10"));
    EXPECT_EQ(AviPinName(GPinKind::Other, 123), VEX_W("Stream 123"));
    EXPECT_EQ(AviPinName(GPinKind::Audio, 2, "English"), VEX_W("Audio 02/ English"));
    EXPECT_EQ(AviPinName(GPinKind::Subtitle, 2, "Volap\xC3\xBCk"), VEX_W("Subtitle 02/ Volap\u00FCk"));
}

}  // namespace
}  // namespace vex
