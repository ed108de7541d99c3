// Turns a hang into a failure that says what hung.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include <unistd.h>

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
    std::mutex lock;
    std::condition_variable changed;
    bool done = false;
    std::thread watcher;
};

}  // namespace vex::test
