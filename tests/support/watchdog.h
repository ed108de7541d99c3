// Turns a hang into a failure that says what hung.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "platform/threads.h"

namespace vex::test {

// Far beyond what anything takes, also under a sanitizer on a busy machine: only a hang meets it.
inline constexpr std::chrono::seconds kHangBound{120};

// Ends the program when it lives longer than kHangBound. A hung call cannot be taken back, so there is nothing to go
// on with.
class GWatchdog {
public:
    explicit GWatchdog(std::string what) : watched(std::move(what)), watcher([this] { Watch(); }) {}
    ~GWatchdog()
    {
        {
            const std::lock_guard held(lock);
            done = true;
        }
        changed.notify_all();
        watcher.join();
    }
    GWatchdog(const GWatchdog&) = delete;
    GWatchdog& operator=(const GWatchdog&) = delete;

private:
    void Watch()
    {
        std::unique_lock held(lock);
        if (changed.wait_for(held, kHangBound, [this] { return done; }))
            return;
        std::fprintf(stderr, "hangs: %s\n", watched.c_str());
        // Where every thread stands, when there is a debugger to say so: a rare hang may not come back.
        const std::string command = "gdb -p " + std::to_string(::getpid()) + " -batch -ex 'thread apply all bt' >&2";
        if (std::system(command.c_str()) != 0)
            std::fputs("(no stacks: there is no gdb here, or it may not look)\n", stderr);
        std::abort();
    }

    const std::string watched;
    GNativeMutex lock;
    GCondition changed;
    bool done = false;
    GNativeThread watcher;
};

// The same for a loop that asks for the same thing again and again, without a thread: Check is called in each round.
class GHangCheck {
public:
    // `loop` is static text.
    explicit GHangCheck(const char* loop) : what(loop) {}
    void Check() const
    {
        if (std::chrono::steady_clock::now() < end)
            return;
        std::fprintf(stderr, "hangs: %s\n", what);
        std::abort();
    }

private:
    const char* const what;
    const std::chrono::steady_clock::time_point end = std::chrono::steady_clock::now() + kHangBound;
};

}  // namespace vex::test
