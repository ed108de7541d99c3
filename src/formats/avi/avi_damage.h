// What was found wrong in one AVI file.
#pragma once

#include <cstdint>
#include <string>

#include "framework/media/read_handler.h"
#include "platform/threads.h"

namespace vex {

// Counts the places and keeps the first one in words. Any thread.
class GAviDamage {
public:
    // `what` is English and names the thing and its fault; `position` is where it is in the file, `bytes` how many
    // bytes were passed over because of it.
    void Add(const char* what, std::int64_t position, std::uint64_t bytes = 0) G_EXCLUDES(lock);
    GDamageReport Report() const G_EXCLUDES(lock);
    void Clear() G_EXCLUDES(lock);

private:
    mutable GMutex lock;
    GDamageReport report G_GUARDED_BY(lock);
};

}  // namespace vex
