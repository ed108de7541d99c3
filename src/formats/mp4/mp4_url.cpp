#include "formats/mp4/mp4_url.h"

namespace vex {
namespace {

// `prefix` is in lower case.
bool BeginsWithoutCase(std::string_view text, std::string_view prefix)
{
    if (text.size() < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        const char c = text[i];
        if ((c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c) != prefix[i])
            return false;
    }
    return true;
}

}  // namespace

bool IsUrl(std::string_view path) { return BeginsWithoutCase(path, "http://") || BeginsWithoutCase(path, "www."); }

std::string EscapeUrl(std::string_view text)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == ' ' || byte >= 0x80) {
            escaped += '%';
            escaped += kDigits[byte >> 4];
            escaped += kDigits[byte & 0xF];
        } else {
            escaped += c;
        }
    }
    return escaped;
}

}  // namespace vex
