#include "io/result.h"

#include <algorithm>

#include "platform/file.h"

namespace vex {

void AddCode(std::string& list, std::uint32_t fourCC)
{
    constexpr std::size_t kLongest = 48;
    std::string code;
    for (int shift = 0; shift < 32; shift += 8) {
        const auto c = static_cast<char>(fourCC >> shift & 0xFFu);
        code += c >= ' ' && c <= '~' ? c : '?';
    }
    code = "'" + code + "'";
    if (list.size() < kLongest && list.find(code) == std::string::npos)
        list += (list.empty() ? "" : ", ") + code;
}

std::string Describe(const GError& error)
{
    std::string text = error.what;
    if (!error.detail.empty())
        text += " " + error.detail;
    if (error.osError != 0)
        text += ": " + DescribeOsError(error.osError);
    if (error.filePos != 0)
        text += " (at byte " + std::to_string(error.filePos) + ")";
    return text;
}

}  // namespace vex
