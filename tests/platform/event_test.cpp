#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "platform/threads.h"

namespace vex::test {
namespace {

TEST(EventLostWakeUps, ASetThatMeetsATimeOutIsNotSwallowed)
{
    constexpr int kSets = 5'000;
    CAMEvent event;
    CAMEvent taken;
    GNativeThread setter([&] {
        for (int i = 0; i < kSets; ++i) {
            event.Set();
            taken.Wait();
        }
    });
    // A wait that reports a time-out although it took the signal leaves the setter waiting for ever.
    for (int passed = 0; passed < kSets;) {
        if (event.Wait(static_cast<DWORD>(passed % 2))) {
            ++passed;
            taken.Set();
        }
    }
    setter.join();
    EXPECT_FALSE(event.Check());
}

TEST(EventReset, AnAutoResetEventPassesOneWaiterPerSetHoweverOftenItIsSet)
{
    CAMEvent event;
    CAMEvent passed;
    std::vector<GNativeThread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] {
            event.Wait();
            passed.Set();
        });
    for (int i = 0; i < 4; ++i) {
        event.Set();
        passed.Wait();
    }
    for (GNativeThread& waiter : waiters)
        waiter.join();
    EXPECT_FALSE(event.Check()) << "a Set that passed two waiters leaves a later one unused";

    event.Set();
    event.Set();
    EXPECT_TRUE(event.Wait(0));
    EXPECT_FALSE(event.Wait(0)) << "sets without a waiter do not add up";
    event.Set();
    event.Reset();
    EXPECT_FALSE(event.Check());
}

TEST(EventReset, AManualResetEventPassesEverybodyUntilReset)
{
    CAMEvent event(true);
    std::vector<GNativeThread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back([&] { event.Wait(); });
    event.Set();
    for (GNativeThread& waiter : waiters)
        waiter.join();
    EXPECT_TRUE(event.Check());
    event.Reset();
    EXPECT_FALSE(event.Wait(1));
}

TEST(EventLifetime, TheWaiterMayDestroyTheEventAtOnce)
{
    for (int i = 0; i < 2'000; ++i) {
        auto event = std::make_unique<CAMEvent>();
        GNativeThread setter([raw = event.get()] { raw->Set(); });
        event->Wait();
        event.reset();  // under a sanitizer a late touch by Set shows
        setter.join();
    }
}

}  // namespace
}  // namespace vex::test
