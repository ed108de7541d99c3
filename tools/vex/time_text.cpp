#include "tools/vex/time_text.h"

#include <charconv>
#include <cstdio>
#include <limits>

namespace vex {

namespace {

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

// Digits only, no sign.
std::optional<std::int64_t> Whole(std::string_view digits)
{
    std::int64_t value = 0;
    if (digits.empty() || digits.front() < '0' || digits.front() > '9')
        return {};
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc{} || end != digits.data() + digits.size())
        return {};
    return value;
}

std::optional<std::int64_t> Scaled(std::int64_t value, std::int64_t factor)
{
    if (value > kLargest / factor)
        return {};
    return value * factor;
}

std::optional<std::int64_t> Sum(std::optional<std::int64_t> a, std::optional<std::int64_t> b)
{
    if (!a || !b || *a > kLargest - *b)
        return {};
    return *a + *b;
}

// "12" or "12.345" in units of which a whole one has `unit` smaller ones (a power of ten).
std::optional<std::int64_t> Decimal(std::string_view text, std::int64_t unit)
{
    const std::size_t point = text.find('.');
    const auto whole = Whole(text.substr(0, point));
    if (!whole)
        return {};
    std::int64_t fraction = 0;
    if (point != std::string_view::npos) {
        const std::string_view digits = text.substr(point + 1);
        if (digits.empty())
            return {};
        std::int64_t worth = unit;
        for (const char digit : digits) {
            if (digit < '0' || digit > '9')
                return {};
            worth /= 10;
            fraction += (digit - '0') * worth;
        }
    }
    return Sum(Scaled(*whole, unit), fraction);
}

bool TakeSuffix(std::string_view& text, std::string_view suffix)
{
    if (!text.ends_with(suffix))
        return false;
    text.remove_suffix(suffix.size());
    return true;
}

}  // namespace

std::optional<REFERENCE_TIME> ParseTime(std::string_view text)
{
    if (TakeSuffix(text, "hns"))
        return Whole(text);
    if (TakeSuffix(text, "ms"))
        return Decimal(text, kUnitsPerSecond / 1000);
    TakeSuffix(text, "s");

    // Hours and minutes stand before colons; every part but the first is below 60.
    std::int64_t larger = 0;
    for (int colons = 0;; ++colons) {
        const std::size_t colon = text.find(':');
        const auto part =
            colon == std::string_view::npos ? Decimal(text, kUnitsPerSecond) : Whole(text.substr(0, colon));
        const std::int64_t sixty = colon == std::string_view::npos ? 60 * kUnitsPerSecond : 60;
        if (!part || (colons > 0 && *part >= sixty))
            return {};
        if (colon == std::string_view::npos) {
            const auto seconds = Scaled(larger, sixty);
            return Sum(seconds, part);
        }
        if (colons == 2)
            return {};
        const auto sum = Sum(Scaled(larger, 60), part);
        if (!sum)
            return {};
        larger = *sum;
        text.remove_prefix(colon + 1);
    }
}

std::string TimeText(REFERENCE_TIME time)
{
    if (time == kNoTime)
        return "-";
    const std::uint64_t absolute = time < 0 ? 0 - static_cast<std::uint64_t>(time) : static_cast<std::uint64_t>(time);
    const std::uint64_t ms = absolute / (kUnitsPerSecond / 1000);
    char text[48];
    std::snprintf(text, sizeof text, "%s%llu:%02u:%02u.%03u", time < 0 ? "-" : "",
                  static_cast<unsigned long long>(ms / 3'600'000), static_cast<unsigned>(ms / 60'000 % 60),
                  static_cast<unsigned>(ms / 1000 % 60), static_cast<unsigned>(ms % 1000));
    return text;
}

}  // namespace vex
