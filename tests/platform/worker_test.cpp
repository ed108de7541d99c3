#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/threads.h"

namespace vex::test {
namespace {

constexpr DWORD kStop = 0x1000000;

// A worker whose ThreadProc is given by the test.
class GWorker : public CAMThread {
public:
    explicit GWorker(std::function<void(GWorker&)> work) : body(std::move(work)) {}
    ~GWorker() override { Close(); }

    using CAMThread::CheckRequest;
    using CAMThread::GetRequest;
    using CAMThread::Reply;
    using CAMThread::WaitRequest;

    std::atomic<int> runs{0};

protected:
    DWORD ThreadProc() override
    {
        body(*this);
        ++runs;
        return 0;
    }

private:
    std::function<void(GWorker&)> body;
};

// Answers every request with the request plus one until it is told to stop.
void Echo(GWorker& worker)
{
    for (;;) {
        const DWORD request = worker.GetRequest();
        worker.Reply(request + 1);
        if (request == kStop)
            return;
    }
}

TEST(WorkerRequests, EveryCallerGetsTheReplyToItsOwnRequest)
{
    GWorker worker(Echo);
    ASSERT_TRUE(worker.Create());
    std::vector<GNativeThread> callers;
    std::atomic<int> crossed{0};
    for (DWORD caller = 0; caller < 4; ++caller)
        callers.emplace_back([&worker, &crossed, caller] {
            for (DWORD i = 0; i < 1'000; ++i)
                if (const DWORD request = caller << 16 | i; worker.CallWorker(request) != request + 1)
                    ++crossed;
        });
    for (GNativeThread& caller : callers)
        caller.join();
    EXPECT_EQ(crossed, 0);
    EXPECT_EQ(worker.CallWorker(kStop), kStop + 1);
}

TEST(WorkerRequests, ARequestThatComesBeforeTheWorkerListensIsNotLost)
{
    CAMEvent listen;
    GWorker worker([&](GWorker& self) {
        listen.Wait();
        Echo(self);
    });
    ASSERT_TRUE(worker.Create());
    GNativeThread caller([&] { EXPECT_EQ(worker.CallWorker(kStop), kStop + 1); });
    while (!worker.RequestPending())
        std::this_thread::yield();
    listen.Set();
    caller.join();
}

TEST(WorkerRequests, ARequestStaysVisibleUntilItsReplyAndAStrayReplyAnswersNothing)
{
    CAMEvent quiet;
    GWorker worker([&quiet](GWorker& self) {
        self.Reply(77);
        EXPECT_FALSE(self.WaitRequest(0));
        quiet.Set();
        EXPECT_TRUE(self.WaitRequest(INFINITE));
        DWORD seen = 0;
        EXPECT_TRUE(self.CheckRequest(&seen));
        EXPECT_EQ(seen, 5u);
        EXPECT_TRUE(self.CheckRequest(nullptr));
        EXPECT_EQ(self.GetRequest(), 5u);
        EXPECT_TRUE(self.CheckRequest(&seen)) << "a request taken but not answered is still outstanding";
        self.Reply(6);
        self.Reply(78);
        quiet.Set();
        Echo(self);
    });
    ASSERT_TRUE(worker.Create());
    quiet.Wait();
    EXPECT_EQ(worker.CallWorker(5), 6u);
    quiet.Wait();
    EXPECT_EQ(worker.CallWorker(kStop), kStop + 1);
    worker.Close();
    EXPECT_FALSE(worker.RequestPending());
}

TEST(WorkerDeath, AllCallersOfAWorkerThatReturnsOrThrowsWithoutAReplyAreReleased)
{
    for (const bool throws : {false, true}) {
        GWorker worker([throws](GWorker& self) {
            self.GetRequest();
            if (throws)
                throw std::runtime_error("out of something");
        });
        ASSERT_TRUE(worker.Create());
        std::vector<GNativeThread> callers;
        for (DWORD i = 0; i < 4; ++i)
            callers.emplace_back([&worker, i] { EXPECT_EQ(worker.CallWorker(i), CAMThread::kNoWorker); });
        for (GNativeThread& caller : callers)
            caller.join();
        EXPECT_TRUE(worker.ThreadExists()) << "until somebody closes it";
        EXPECT_FALSE(worker.RequestPending());
    }
}

TEST(WorkerDeath, ANewWorkerDoesNotSeeTheRequestItsPredecessorLeftUnanswered)
{
    std::atomic<int> generation{0};
    GWorker worker([&](GWorker& self) {
        if (++generation == 1) {
            self.GetRequest();
            return;
        }
        EXPECT_EQ(self.GetRequest(), kStop);
        self.Reply(0);
    });
    ASSERT_TRUE(worker.Create());
    GNativeThread caller([&] { EXPECT_EQ(worker.CallWorker(3), CAMThread::kNoWorker); });
    worker.Close();
    ASSERT_TRUE(worker.Create());
    caller.join();
    EXPECT_EQ(worker.CallWorker(kStop), 0u);
}

TEST(WorkerCallOrder, WithoutAWorkerNothingWaitsNorDoesAWorkerForItself)
{
    GWorker worker([](GWorker& self) {
        EXPECT_TRUE(self.IsWorker());
        EXPECT_EQ(self.CallWorker(1), CAMThread::kNoWorker);
        Echo(self);
    });
    EXPECT_EQ(worker.CallWorker(1), CAMThread::kNoWorker);
    worker.Close();
    EXPECT_FALSE(worker.ThreadExists());
    ASSERT_TRUE(worker.Create());
    EXPECT_FALSE(worker.Create()) << "a second thread would share the first one's requests";
    EXPECT_FALSE(worker.IsWorker());
    worker.CallWorker(kStop);
    worker.Close();
    worker.Close();
    EXPECT_EQ(worker.CallWorker(1), CAMThread::kNoWorker);
    ASSERT_TRUE(worker.Create());
    EXPECT_EQ(worker.CallWorker(kStop), kStop + 1);
}

TEST(WorkerClose, SeveralClosersAllReturnOnlyWhenTheThreadIsGone)
{
    GWorker worker(Echo);
    for (int round = 1; round <= 200; ++round) {
        ASSERT_TRUE(worker.Create());
        std::vector<GNativeThread> closers;
        for (int i = 0; i < 3; ++i)
            closers.emplace_back([&worker, round] {
                worker.Close();
                EXPECT_EQ(worker.runs, round);
            });
        // Sent while others close: they must not keep it from the worker.
        worker.CallWorker(kStop);
        for (GNativeThread& closer : closers)
            closer.join();
        EXPECT_FALSE(worker.ThreadExists());
    }
}

TEST(WorkerClose, ACallAndACloseAtTheSameTimeBothReturn)
{
    for (int round = 0; round < 200; ++round) {
        GWorker worker([](GWorker& self) { self.WaitRequest(0); });
        ASSERT_TRUE(worker.Create());
        GNativeThread caller([&worker] { EXPECT_EQ(worker.CallWorker(1), CAMThread::kNoWorker); });
        worker.Close();
        caller.join();
    }
}

}  // namespace
}  // namespace vex::test
