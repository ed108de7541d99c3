// The body of every read handler's fuzz target: a file that is opened, read, sought about in and read again.
//
// The last byte of an input is not part of the file:
//   bit 0     only a first part of the file is there at first; the rest arrives while it is read
//   bit 1     seek to 1 ms << (byte / 8); otherwise to byte / 32 eighths of the duration
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "support/handler_trial.h"

namespace vex::fuzz {

// `Reading` is the class of the format's tests, made from bytes. What no file may lead to ends the program.
template <class Reading>
int FuzzHandler(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t control = data[--size];
    const std::span<const std::uint8_t> file(data, size);
    const auto first = file.first((control & 1) != 0 ? size / 256 * control + size % 256 : size);

    Reading reading(std::vector(first.begin(), first.end()));
    test::GTrialPlan plan{.later = file.subspan(first.size())};
    if ((control & 2) != 0)
        plan.targets = {test::kMillisecond << (control >> 3)};
    else
        plan.targets = {reading.Handler().Duration() / 8 * (control >> 5),
                        reading.Handler().LongestStreamDuration() / 8 * (control >> 5)};
    test::TryHandler(reading, plan);
    return 0;
}

}  // namespace vex::fuzz
