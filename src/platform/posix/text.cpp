// The ANSI code page of this target is UTF-8.
#include "platform/text.h"

#include "platform/text_detail.h"

namespace vex {

// A byte of a file name that is not UTF-8 travels as the lone low surrogate U+DC00 + byte.
constexpr WCHAR kEscapedBytes = 0xDC00;

std::string AnsiFromWide(WStringView text, bool* lossy)
{
    bool replaced = false;
    std::string result = detail::Utf8FromWideNoting(text, replaced);
    if (lossy)
        *lossy = replaced;
    return result;
}

WString WideFromAnsi(std::string_view text) { return WideFromUtf8(text); }

std::string NarrowPathFromWide(WStringView path)
{
    std::string result;
    std::size_t start = 0;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const bool afterHigh = i > start && path[i - 1] >= 0xD800 && path[i - 1] <= 0xDBFF;
        if (path[i] < kEscapedBytes + 0x80 || path[i] > kEscapedBytes + 0xFF || afterHigh)
            continue;
        result += Utf8FromWide(path.substr(start, i - start));
        result.push_back(static_cast<char>(static_cast<unsigned char>(path[i] - kEscapedBytes)));
        start = i + 1;
    }
    result += Utf8FromWide(path.substr(start));
    // A name that happens to begin like the mark must not lose it when it is opened.
    if (result.starts_with(kUtf8PathMark))
        result.insert(0, kUtf8PathMark);
    return result;
}

WString WideFromNarrowPath(std::string_view path)
{
    if (path.starts_with(kUtf8PathMark))
        path.remove_prefix(kUtf8PathMark.size());
    WString result;
    std::size_t done = 0;
    std::size_t position = 0;
    while (position < path.size()) {
        const detail::GUtf8Character next = detail::DecodeUtf8(path.substr(position));
        if (!next.valid) {
            result += WideFromUtf8(path.substr(done, position - done));
            for (std::size_t i = 0; i < next.bytes; ++i)
                result.push_back(static_cast<WCHAR>(kEscapedBytes + static_cast<unsigned char>(path[position + i])));
            done = position + next.bytes;
        }
        position += next.bytes;
    }
    return result += WideFromUtf8(path.substr(done));
}

}  // namespace vex
