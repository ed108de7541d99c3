// Progress of a download on a terminal.
#pragma once

#include <cstdint>

#include "platform/threads.h"

namespace vex {

// One line of standard error, written over and over: a bar, percent, bytes and speed.
class GDownloadBar {
public:
    // Bytes; a `total` of 0 is not known.
    void Show(std::uint64_t done, std::uint64_t total);
    // Takes the line away.
    void Clear();

private:
    // The speed is that of the last few seconds: it counts from `mark`, which `nextMark` becomes when it is old enough.
    struct GMark {
        GSteadyClock::time_point time = GSteadyClock::now();
        std::uint64_t bytes = 0;
    };
    double Speed(std::uint64_t done);

    GMark mark;
    GMark nextMark;
    bool shown = false;
};

}  // namespace vex
