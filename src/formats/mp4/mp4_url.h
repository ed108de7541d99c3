// Which paths the MP4 filter takes for URLs, and how they are sent.
#pragma once

#include <string>
#include <string_view>

namespace vex {

// True for what begins with "http://" or "www.", in any case.
bool IsUrl(std::string_view path);

// Spaces and bytes from 0x80 on become "%" and two lower-case hexadecimal digits. All else stays, also what is escaped
// already.
std::string EscapeUrl(std::string_view text);

}  // namespace vex
