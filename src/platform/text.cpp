// UTF-8 and UTF-16, the same on every target. What the ANSI code page is lies in the targets' own files.
#include "platform/text.h"

#include <new>

#include "platform/com.h"
#include "platform/text_detail.h"

namespace vex {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }

bool IsLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void AppendUtf8(std::string& text, char32_t character)
{
    const auto append = [&text](char32_t byte) { text.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | character >> 6);
        append(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        append(0xE0 | character >> 12);
        append(0x80 | (character >> 6 & 0x3F));
        append(0x80 | (character & 0x3F));
    } else {
        append(0xF0 | character >> 18);
        append(0x80 | (character >> 12 & 0x3F));
        append(0x80 | (character >> 6 & 0x3F));
        append(0x80 | (character & 0x3F));
    }
}

void AppendUtf16(WString& text, char32_t character)
{
    if (character < 0x10000) {
        text.push_back(static_cast<WCHAR>(character));
    } else {
        text.push_back(static_cast<WCHAR>(0xD800 + ((character - 0x10000) >> 10)));
        text.push_back(static_cast<WCHAR>(0xDC00 + (character & 0x3FF)));
    }
}

// What may follow a lead byte (Unicode, table 3-7): the ranges of the second byte keep out overlong forms, surrogates
// and values beyond U+10FFFF.
struct GUtf8Lead {
    int followers;  // -1: no lead byte
    unsigned char secondLow = 0x80;
    unsigned char secondHigh = 0xBF;
};

GUtf8Lead LeadOf(unsigned char byte)
{
    if (byte < 0x80)
        return {0};
    if (byte < 0xC2 || byte > 0xF4)
        return {-1};
    if (byte < 0xE0)
        return {1};
    if (byte < 0xF0)
        return {2, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    return {3, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
            static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
}

}  // namespace

namespace detail {

GUtf8Character DecodeUtf8(std::string_view text)
{
    const auto byteAt = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char first = byteAt(0);
    const GUtf8Lead lead = LeadOf(first);
    if (lead.followers < 0)
        return {kReplacement, 1, false};
    if (lead.followers == 0)
        return {first, 1, true};
    char32_t character = first & (0x3Fu >> lead.followers);
    std::size_t used = 1;
    for (int i = 0; i < lead.followers; ++i, ++used) {
        const unsigned char low = i == 0 ? lead.secondLow : 0x80;
        const unsigned char high = i == 0 ? lead.secondHigh : 0xBF;
        if (used == text.size() || byteAt(used) < low || byteAt(used) > high)
            return {kReplacement, used, false};
        character = character << 6 | (byteAt(used) & 0x3Fu);
    }
    return {character, used, true};
}

std::string Utf8FromWideNoting(WStringView text, bool& replaced)
{
    replaced = false;
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t character = text[i];
        if (IsHighSurrogate(character) && i + 1 < text.size() && IsLowSurrogate(text[i + 1])) {
            character = 0x10000 + ((character - 0xD800) << 10) + (static_cast<char32_t>(text[++i]) - 0xDC00);
        } else if (IsHighSurrogate(character) || IsLowSurrogate(character)) {
            character = kReplacement;
            replaced = true;
        }
        AppendUtf8(result, character);
    }
    return result;
}

}  // namespace detail

std::string Utf8FromWide(WStringView text)
{
    bool replaced = false;
    return detail::Utf8FromWideNoting(text, replaced);
}

WString WideFromUtf8(std::string_view text)
{
    WString result;
    result.reserve(text.size());
    while (!text.empty()) {
        const detail::GUtf8Character next = detail::DecodeUtf8(text);
        AppendUtf16(result, next.character);
        text.remove_prefix(next.bytes);
    }
    return result;
}

BSTR ToWide(const char* ansi)
{
    if (!ansi)
        return nullptr;
    const WString wide = WideFromAnsi(ansi);
    const BSTR copy = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    if (!copy)
        throw std::bad_alloc();
    return copy;
}

}  // namespace vex
