#include "media/language.h"

namespace vex {

namespace {

// The first `length` characters of a code as the table writes them. Containers pad codes with NULs.
std::string CodeKey(std::string_view code, std::size_t length)
{
    std::string key(code.substr(0, length));
    key.resize(std::string_view(key.c_str()).size());
    for (char& letter : key)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return key;
}

std::string FirstName(std::string_view names) { return std::string(names.substr(0, names.find(';'))); }

}  // namespace

std::string LanguageNameFrom3(std::string_view code)
{
    const std::string key = CodeKey(code, 3);
    for (const GLanguageRow& row : LanguageTable())
        if (row.letter3 == key)
            return FirstName(row.name);
    return {};
}

std::string LanguageNameFrom2(std::string_view code)
{
    const std::string key = CodeKey(code, 2);
    for (const GLanguageRow& row : LanguageTable())
        if (row.letter2 == key)
            return FirstName(row.name);
    return {};
}

}  // namespace vex
