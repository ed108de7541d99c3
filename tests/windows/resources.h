// What a process holds of the system, to see whether a round of work gives everything back.
#pragma once

#include <string>

namespace vex::wintest {

struct GResources {
    unsigned long handles = 0;
    unsigned long threads = 0;

    bool Within(const GResources& other) const { return handles <= other.handles && threads <= other.threads; }
    std::string Text() const;
};

GResources CountResources();

// Counts until the numbers are no larger than `limit`, or no longer change: a thread that has signalled its end is
// still counted for a moment.
GResources SettledResources(const GResources& limit);

// Throws unless the counters see handles and threads that are made on purpose.
void ProveTheCounters();

}  // namespace vex::wintest
