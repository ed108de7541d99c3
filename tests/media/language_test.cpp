#include "media/language.h"

#include <gtest/gtest.h>
#include <utility>

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

TEST(LanguageName, IsTheFirstOfTheNamesInTheFirstRowWithTheFirstLetters)
{
    const std::pair<std::string_view, std::string_view> byThree[] = {
        {"ENG", "English"},
        {"english", "English"},
        {"en", ""},
        {{"en\0g", 4}, ""},  // a code ends at its padding
        {"xyz", ""},
        {"", ""},
        {"\xC3\x84x", ""},  // no case outside ASCII
        {"dut", "Dutch"},
        {"nld", ""},
        {"deu", ""},
        {"fre", "French"},
        {"fra", ""},  // its row is written "fra*"
        {"gre", "Greek, Modern (1453-)"},
        {"und", "Undetermined"},
        {"qaa", ""},  // the reserved range is one row
        {"nob", "Bokm\xC3\xA5l, Norwegian"},
        {"abk", "Abkhazian"},
        {"zun", "Zuni"},
    };
    for (const auto& [code, name] : byThree)
        EXPECT_EQ(LanguageNameFrom3(code), name) << code;
    EXPECT_EQ(LanguageNameFrom2("DE-at"), "German");
    EXPECT_EQ(LanguageNameFrom2("nl"), "Dutch") << "the named row comes first";
    EXPECT_EQ(LanguageNameFrom2("zz"), "");
    EXPECT_EQ(LanguageNameFrom2(""), "Achinese") << "the first row without a code";
}

}  // namespace
}  // namespace vex
