// Steps of the conversions in text.h that the targets' own files build on.
#pragma once

#include "platform/text.h"

namespace vex::detail {

struct GUtf8Character {
    char32_t character;  // U+FFFD when `valid` is false
    std::size_t bytes;   // to go on by; at least 1
    bool valid;
};

// The first character of a text that is not empty. Of malformed input the longest start of a character counts as one.
GUtf8Character DecodeUtf8(std::string_view text);

// Utf8FromWide; `replaced` says whether a surrogate without its partner was met.
std::string Utf8FromWideNoting(WStringView text, bool& replaced);

// A narrow path behind its mark, if it has one: on Linux the name by which the system knows the file.
inline const char* WithoutMark(const char* path)
{
    return std::string_view(path).starts_with(kUtf8PathMark) ? path + kUtf8PathMark.size() : path;
}

}  // namespace vex::detail
