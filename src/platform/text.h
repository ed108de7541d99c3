// Conversions between UTF-16, UTF-8 and the process's ANSI code page (which is UTF-8 on Linux).
// All are total: malformed input becomes U+FFFD (or the code page's default character), never an error.
#pragma once

#include <string>
#include <string_view>

#include "platform/com.h"

namespace vex {

std::string Utf8FromWide(WStringView text);
WString WideFromUtf8(std::string_view text);

// ANSI code page; `lossy`, when given, says whether a character had to be replaced.
std::string AnsiFromWide(WStringView text, bool* lossy = nullptr);
WString WideFromAnsi(std::string_view text);

// A path for GOsFile: the ANSI form, or, when that would name another file, UTF-8 behind kUtf8PathMark.
std::string NarrowPathFromWide(WStringView path);
// Linux file names are bytes: those that are not UTF-8 become U+DC80..U+DCFF here and bytes again there.
WString WideFromNarrowPath(std::string_view path);
inline constexpr std::string_view kUtf8PathMark = "\xEF\xBB\xBF";
// A path out of CommandLineArguments: UTF-8, on Linux any bytes.
inline WString WideFromPathArgument(std::string_view path)
{
    return WideFromNarrowPath(std::string(kUtf8PathMark).append(path));
}

// BSTR copy of an ANSI string: an absent input gives an absent result; throws std::bad_alloc when memory is short.
BSTR ToWide(const char* ansi);

}  // namespace vex
