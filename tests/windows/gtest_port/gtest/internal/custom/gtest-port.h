// GoogleTest's own place for what a platform lacks: its Notification is made of std::mutex and std::condition_variable,
// which the toolchain's `win32` threading variant does not have.
#pragma once

#include <atomic>
#include <thread>

#define GTEST_HAS_NOTIFICATION_ 1

namespace testing::internal {

// Lets threads start together. GoogleTest uses it in tests of its own only.
class Notification {
public:
    void Notify() { notified = true; }
    void WaitForNotification()
    {
        while (!notified)
            std::this_thread::yield();
    }

private:
    std::atomic<bool> notified = false;
};

}  // namespace testing::internal
