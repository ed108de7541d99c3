#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/com.h"
#include "platform/file.h"
#include "platform/text.h"
#include "support/temp_file.h"

namespace vex::test {
namespace {

using namespace std::string_view_literals;

WString Wide(std::u16string_view text) { return {text.begin(), text.end()}; }

std::u16string Units(const WString& text) { return {text.begin(), text.end()}; }

struct GMalformed {
    const char* fault;
    std::string_view utf8;
    std::u16string_view wide;
};

const GMalformed kMalformed[] = {
    {"a follower without a lead", "a\x80z"sv, u"a\uFFFDz"sv},
    {"an overlong NUL", "\xC0\x80"sv, u"\uFFFD\uFFFD"sv},
    {"the largest overlong of two bytes", "\xC1\xBF"sv, u"\uFFFD\uFFFD"sv},
    {"the largest overlong of three bytes", "\xE0\x9F\xBF"sv, u"\uFFFD\uFFFD\uFFFD"sv},
    {"the largest overlong of four bytes", "\xF0\x8F\xBF\xBF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"a surrogate", "\xED\xA0\x80"sv, u"\uFFFD\uFFFD\uFFFD"sv},
    {"one beyond the last character", "\xF4\x90\x80\x80"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"five and six byte leads", "\xF5\xF8\xFC\xFE\xFF"sv, u"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"sv},
    {"a character cut off by the end", "a\xE2\x82"sv, u"a\uFFFD"sv},
    {"a character cut off by another", "\xE2\x82z"sv, u"\uFFFDz"sv},
    {"two cut off in a row", "\xF0\x9F\x98\xF0\x9F\x98\x80"sv, u"\uFFFD\xD83D\xDE00"sv},
};

TEST(TextMalformed, EachFaultBecomesReplacementCharactersAndTheRestSurvives)
{
    for (const GMalformed& row : kMalformed)
        EXPECT_EQ(Units(WideFromUtf8(row.utf8)), row.wide) << row.fault;
}

TEST(TextMalformed, ALoneSurrogateIsReplacedAndReportedAsLoss)
{
    const std::u16string_view broken[] = {u"a\xD83D"sv, u"\xDE00z"sv, u"\xD83D\xD83D\xDE00"sv, u"\xDE00\xD83D"sv};
    for (const std::u16string_view text : broken) {
        bool lossy = false;
        AnsiFromWide(Wide(text), &lossy);
        EXPECT_TRUE(lossy);
    }
    EXPECT_EQ(Utf8FromWide(Wide(u"a\xD83Dz"sv)), "a\xEF\xBF\xBDz");
    EXPECT_EQ(Utf8FromWide(Wide(u"\xD83D\xD83D\xDE00"sv)), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(TextRoundTrip, EveryCharacterComesBack)
{
    WString all;
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (character < 0x10000) {
            if (character < 0xD800 || character > 0xDFFF)
                all.push_back(static_cast<WCHAR>(character));
            continue;
        }
        all.push_back(static_cast<WCHAR>(0xD7C0 + (character >> 10)));
        all.push_back(static_cast<WCHAR>(0xDC00 | (character & 0x3FF)));
    }
    const std::string utf8 = Utf8FromWide(all);
    EXPECT_EQ(utf8.size(), 0x80u + 2 * 0x780u + 3 * (0xF800u - 0x800u) + 4 * 0x100000u);
    EXPECT_TRUE(WideFromUtf8(utf8) == all);
}

TEST(TextRoundTrip, AnsiSaysExactlyWhetherItLostSomething)
{
    // The middle ones have look-alikes in most code pages, which would be silently taken for them.
    const std::u16string_view texts[] = {u"plain"sv, u"caf\u00E9"sv, u"\u0100lpha"sv, u"\u2215slash"sv,
                                         u"\u65E5\u672C"sv};
    for (const std::u16string_view text : texts) {
        bool lossy = true;
        const std::string ansi = AnsiFromWide(Wide(text), &lossy);
        EXPECT_EQ(Units(WideFromAnsi(ansi)) != text, lossy) << Utf8FromWide(Wide(text));
    }
    bool lossy = true;
    EXPECT_EQ(AnsiFromWide({}, &lossy), "");
    EXPECT_FALSE(lossy);
}

TEST(TextPaths, AFileOfAnyNameIsOpenedAndNoOtherInItsPlace)
{
    const GTempDirectory directory;
    const std::u16string_view names[] = {
        u"plain"sv,        u"caf\u00E9"sv,           u"A"sv, u"\u0100"sv, u"\u65E5\u672C"sv, u"\uFEFFmark"sv, u"mark"sv,
        u"\xD83D\xDE00"sv, u"\u00EF\u00BB\u00BFx"sv, u"x"sv};
    for (const std::u16string_view name : names) {
        const auto path = directory.Path() / std::filesystem::path(name);
        std::ofstream(path) << Utf8FromWide(Wide(name));
    }
    // Relative, so that a name can begin like the mark.
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory.Path());
    for (const std::u16string_view name : names) {
        const std::string narrow = NarrowPathFromWide(Wide(name));
        EXPECT_EQ(Units(WideFromNarrowPath(narrow)), name);
        GOsFile file;
        EXPECT_TRUE(file.OpenForReading(narrow.c_str())) << narrow;
        char content[32] = {};
        file.ReadAt(0, content, sizeof(content) - 1);
        EXPECT_EQ(content, Utf8FromWide(Wide(name)));
    }
    std::filesystem::current_path(before);
}

TEST(TextBstr, AnAbsentTextStaysAbsentAndAnEmptyOneDoesNot)
{
    EXPECT_EQ(ToWide(nullptr), nullptr);
    for (const char* source : {"", "abc"}) {
        const BSTR text = ToWide(source);
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(WString(text, SysStringLen(text)), WideFromAnsi(source));
        SysFreeString(text);
    }
}

}  // namespace
}  // namespace vex::test
