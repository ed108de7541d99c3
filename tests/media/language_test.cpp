#include "media/language.h"

#include <gtest/gtest.h>
#include <utility>

namespace vex {
namespace {

TEST(LanguageName, IsTheFirstOfTheNamesInTheFirstRowWithTheFirstLetters)
{
    const std::pair<std::string_view, std::string_view> byThree[] = {
        {"ENG", "English"},
        {"english", "English"},
        {"en", ""},
        {{"en\0g", 4}, ""},  // a code ends at its padding
        {"", ""},
        {"\xC3\x84x", ""},  // no case outside ASCII
        {"nld", ""},
        {"fra", ""},  // its row is written "fra*"
        {"qaa", ""},  // the reserved range is one row
        {"nob", "Bokm\xC3\xA5l, Norwegian"},
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
