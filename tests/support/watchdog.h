// Turns a hang into a failure that says what hung.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

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
        std::abort();
    }

    const std::string watched;
    std::mutex lock;
    std::condition_variable changed;
    bool done = false;
    std::thread watcher;
};

}  // namespace vex::test
