// What was found wrong in one file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "platform/threads.h"

namespace vex {

// Damage met while reading: skipped, counted, and said where.
struct GDamageReport {
    std::uint64_t count = 0;  // places
    std::uint64_t bytes = 0;  // bytes passed over, as far as known
    std::string first;        // what and where the first one was; empty when none
};

// Counts the damaged places, each once however often it is read, and keeps the first one in words. Any thread.
class GDamageLog {
public:
    // `what` is static English text that names the thing and its fault; `position` is where it is in the file, `bytes`
    // how many bytes were passed over because of it. Never throws.
    void Add(const char* what, std::int64_t position, std::uint64_t bytes = 0) G_EXCLUDES(lock);
    GDamageReport Report() const G_EXCLUDES(lock);
    void Clear() G_EXCLUDES(lock);

private:
    // Places told apart. A file with more damage than that is counted on without looking for repeats.
    static constexpr std::size_t kMaxPlaces = 4096;

    mutable GMutex lock;
    std::set<std::int64_t> places G_GUARDED_BY(lock);
    GDamageReport report G_GUARDED_BY(lock);
};

}  // namespace vex
