// English language names for the codes that containers carry.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace vex {

struct GLanguageRow {
    std::string_view name;     // English, UTF-8, several separated by "; "; empty in the rows of terminological codes
    std::string_view letter3;  // ISO 639-2
    std::string_view letter2;  // ISO 639-1, or empty
};

// The ISO 639-2 list by English name, ended by an all-empty row that belongs to it.
std::span<const GLanguageRow> LanguageTable();

// The first of the names that go with a code, or an empty string. Only the first three (two) characters of `code`
// count, in either case. A terminological code ("deu") has no name. The first row that fits wins, which for an
// empty two-letter code is the first language without one: do not ask for it.
std::string LanguageNameFrom3(std::string_view code);
std::string LanguageNameFrom2(std::string_view code);

}  // namespace vex
