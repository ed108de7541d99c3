// The 33-bit clock of presentation times, in ticks of 90 kHz, and what it makes of 100 ns.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "platform/media_records.h"

namespace vex {

inline constexpr std::int64_t kPtsWrap = std::int64_t{1} << 33;
// A fall of more than this is a wrap. Smaller ones are reordered pictures or a joined recording.
inline constexpr std::int64_t kPtsFall = std::int64_t{1} << 32;
// The farthest that the times of reordered pictures go back: no picture waits longer than ten seconds in a decoder's
// buffers (13818-1, 2.4.2).
inline constexpr std::int64_t kPtsReorder = 10 * 90'000;

// Ticks of a time met anywhere in a stream whose first time is `first`. At most one wrap is assumed.
constexpr std::int64_t PtsAfter(std::int64_t first, std::uint64_t pts)
{
    const auto ticks = static_cast<std::int64_t>(pts);
    return ticks < first - kPtsFall ? ticks + kPtsWrap : ticks;
}

// Rounded towards zero; times before the first one are 0.
constexpr REFERENCE_TIME TimeFromTicks(std::int64_t ticks)
{
    constexpr std::int64_t kMostTicks = std::int64_t{1} << 52;  // the product fits 64 bits
    return std::clamp<std::int64_t>(ticks, 0, kMostTicks) * 1000 / 9;
}

// Unwraps the presentation times of a stream in the order of the file. They are negative from before a wrap that the
// first time already had behind it.
class GPtsClock {
public:
    // Starts anew in a stream whose first time is `first`.
    void Restart(std::optional<std::int64_t> first)
    {
        epoch = 0;
        last = first;
    }
    std::int64_t Unwrap(std::uint64_t pts)
    {
        constexpr std::int64_t kMostEpoch = std::int64_t{1} << 60;
        std::int64_t ticks = static_cast<std::int64_t>(pts) + epoch;
        if (last && ticks < *last - kPtsFall && epoch < kMostEpoch) {
            epoch += kPtsWrap;
            ticks += kPtsWrap;
        } else if (last && ticks > *last + kPtsFall && (epoch > 0 || ticks - kPtsWrap >= *last - kPtsReorder)) {
            ticks -= kPtsWrap;  // a reordered picture from before the wrap
        }
        last = ticks;
        return ticks;
    }

private:
    std::int64_t epoch = 0;
    std::optional<std::int64_t> last;
};

}  // namespace vex
