// What the objects of one host graph share: a way to wait until one of them has news.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/threads.h"

namespace vex {

using GDeadline = GSteadyClock::time_point;

// Any thread may call any method.
class GProgress {
public:
    // Something that somebody may wait for has changed. May be called with other locks held: Until holds none while it
    // asks.
    void Changed()
    {
        {
            GMutexLock held(lock);
            ++changes;
        }
        changed.notify_all();
    }

    // Ends every wait, now and from now on.
    void Cancel()
    {
        cancelled = true;
        Changed();
    }
    bool Cancelled() const { return cancelled; }

    // Waits until `done()` holds, asking again after each change; false when the deadline passed first, or after a
    // Cancel.
    template <class Predicate>
    bool Until(GDeadline deadline, Predicate&& done)
    {
        for (;;) {
            const std::uint64_t seen = Count();
            if (done())
                return true;
            if (cancelled || !WaitForChange(seen, deadline))
                return done();
        }
    }

private:
    std::uint64_t Count()
    {
        GMutexLock held(lock);
        return changes;
    }

    bool WaitForChange(std::uint64_t seen, GDeadline deadline)
    {
        GMutexLock held(lock);
        while (changes == seen) {
            const auto left = deadline - GSteadyClock::now();
            if (left <= GDeadline::duration::zero())
                return false;
            held.WaitFor(changed, std::chrono::ceil<std::chrono::milliseconds>(left));
        }
        return true;
    }

    std::atomic<bool> cancelled{false};
    GMutex lock;
    GCondition changed;
    std::uint64_t changes G_GUARDED_BY(lock) = 0;
};

}  // namespace vex
