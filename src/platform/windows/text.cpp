#include "platform/text.h"

#include <limits>

#include "platform/text_detail.h"

namespace vex {
namespace {

// The system's conversions count in int; nothing of that length is a name or a title.
constexpr std::size_t kMaxUnits = std::numeric_limits<int>::max() / 4;

}  // namespace

std::string AnsiFromWide(WStringView text, bool* lossy)
{
    bool replaced = false;
    if (lossy)
        *lossy = false;
    // The system refuses the flags and the default character for this code page.
    if (GetACP() == CP_UTF8) {
        std::string result = detail::Utf8FromWideNoting(text, replaced);
        if (lossy)
            *lossy = replaced;
        return result;
    }
    const WStringView taken = text.substr(0, kMaxUnits);
    if (taken.empty())
        return {};
    // A best-fit character would name another file.
    const int units = static_cast<int>(taken.size());
    const int bytes =
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, taken.data(), units, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    BOOL usedDefault = FALSE;
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, taken.data(), units, result.data(), bytes, nullptr, &usedDefault);
    if (lossy)
        *lossy = usedDefault || bytes == 0 || taken.size() != text.size();
    return result;
}

WString WideFromAnsi(std::string_view text)
{
    if (GetACP() == CP_UTF8)
        return WideFromUtf8(text);
    text = text.substr(0, kMaxUnits);
    if (text.empty())
        return {};
    const int bytes = static_cast<int>(text.size());
    const int units = MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, nullptr, 0);
    WString result(static_cast<std::size_t>(units), L'\0');
    MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, result.data(), units);
    return result;
}

std::string NarrowPathFromWide(WStringView path)
{
    bool lossy = false;
    std::string ansi = AnsiFromWide(path, &lossy);
    // The system's functions for ANSI names take no longer ones, whatever the process and the form of the path allow.
    const bool tooLong = path.size() >= MAX_PATH;
    if (!lossy && !tooLong && !ansi.starts_with(kUtf8PathMark))
        return ansi;
    return std::string(kUtf8PathMark) + Utf8FromWide(path);
}

WString WideFromNarrowPath(std::string_view path)
{
    if (path.starts_with(kUtf8PathMark))
        return WideFromUtf8(path.substr(kUtf8PathMark.size()));
    return WideFromAnsi(path);
}

}  // namespace vex
