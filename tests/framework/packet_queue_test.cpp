#include "framework/packet_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/watchdog.h"

namespace vex::test {

namespace {

constexpr GQueueLimits kLimits{300, 1000, 2000};  // packets, bytes

GPacketPtr Packet(std::size_t bytes, REFERENCE_TIME start = 0, bool continuation = false)
{
    auto packet = std::make_unique<GPacket2>();
    packet->data.Resize(bytes);
    packet->start = start;
    packet->continuation = continuation;
    return packet;
}

GPacketPtr Continuation(std::size_t bytes) { return Packet(bytes, kNoTime, true); }

const std::function<bool()> kAtOnce = [] { return true; };
constexpr auto kDone = GPacketQueue::PushResult::Done;
constexpr auto kRefused = GPacketQueue::PushResult::Refused;
using Ready = GPacketQueue::Ready;

}  // namespace

TEST(PacketQueue, TheLastPacketIsHeldBackUntilSomethingFollows)
{
    GPacketQueue queue(kLimits, 0);
    EXPECT_EQ(queue.WaitReady(true), Ready::No);
    ASSERT_EQ(queue.Push(Packet(10), kAtOnce), kDone);
    EXPECT_EQ(queue.WaitReady(true), Ready::No);
    EXPECT_EQ(queue.WaitReady(false), Ready::Packet);
    queue.PushEnd();
    EXPECT_EQ(queue.WaitReady(true), Ready::Packet);
    EXPECT_EQ(queue.Pop()->GetSize(), 10u);
    EXPECT_EQ(queue.WaitReady(true), Ready::End);
    EXPECT_EQ(queue.WaitReady(true), Ready::End) << "the marker has to stay for a restart";
}

TEST(PacketQueue, AContinuationGrowsTheLastPacketOnlyWhenItMay)
{
    GPacketQueue queue(kLimits, 0);
    ASSERT_EQ(queue.Push(Packet(10), kAtOnce), kDone);
    ASSERT_EQ(queue.Push(Continuation(5), kAtOnce), kDone);
    ASSERT_EQ(queue.Push(Continuation(7), kAtOnce), kDone);

    ASSERT_EQ(queue.Push(Packet(3, 400, true), kAtOnce), kDone);
    GPacketPtr broken = Continuation(4);
    broken->discontinuity = true;
    ASSERT_EQ(queue.Push(std::move(broken), kAtOnce), kDone);
    ASSERT_EQ(queue.Push(Continuation(2), kAtOnce), kDone);  // the packet before it has no time either
    queue.PushEnd();
    ASSERT_EQ(queue.Push(Continuation(1), kAtOnce), kDone);  // never into the marker

    std::vector<std::size_t> sizes;
    while (queue.WaitReady(false) == Ready::Packet)
        sizes.push_back(queue.Pop()->GetSize());
    EXPECT_EQ(sizes, (std::vector<std::size_t>{22, 3, 4, 2}));
}

TEST(PacketQueue, IsFullAtThreeHundredPacketsOrAtTheByteLimit)
{
    GPacketQueue many(kLimits, 0);
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(many.Push(Packet(1), kAtOnce), kDone) << i;
    EXPECT_EQ(many.Push(Packet(1), kAtOnce), kRefused);
    many.Pop();
    EXPECT_EQ(many.Push(Packet(1), kAtOnce), kDone);

    GPacketQueue heavy(kLimits, 0);
    EXPECT_EQ(heavy.Push(Packet(500), kAtOnce), kDone);
    EXPECT_EQ(heavy.Push(Packet(400), kAtOnce), kDone);
    EXPECT_EQ(heavy.Push(Continuation(99), kAtOnce), kDone);
    EXPECT_EQ(heavy.Push(Packet(700), kAtOnce), kDone) << "still below the limit when it came";
    EXPECT_EQ(heavy.Push(Packet(1), kAtOnce), kRefused);
    for (int i = 0; i < 3; ++i)
        heavy.Pop();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(heavy.Push(Packet(333), kAtOnce), kDone) << "the bytes of what was taken still count";
    EXPECT_EQ(heavy.Push(Packet(1), kAtOnce), kDone);
    EXPECT_EQ(heavy.Push(Packet(1), kAtOnce), kRefused);
    heavy.Clear();
    EXPECT_EQ(heavy.Push(Packet(1), kAtOnce), kDone) << "the bytes of what was dropped still count";

    // The one packet is held back until another follows: were it to fill the queue alone, neither side could move.
    GPacketQueue huge(kLimits, 0);
    ASSERT_EQ(huge.Push(Packet(5000), kAtOnce), kDone);
    EXPECT_EQ(huge.Push(Packet(5000), kAtOnce), kDone);
    EXPECT_EQ(huge.WaitReady(true), Ready::Packet);
    EXPECT_EQ(huge.Push(Packet(1), kAtOnce), kRefused);
}

TEST(PacketQueue, TheByteLimitFollowsTheSampleSizeBetweenItsBounds)
{
    EXPECT_EQ(kAviRules.queue.ByteLimit(0), 8u << 20);
    EXPECT_EQ(kAviRules.queue.ByteLimit(8'000'001), 12'000'001u);
    EXPECT_EQ(kAviRules.queue.ByteLimit(0xFFFFFFFF), 80u << 20) << "1.5 times a 32-bit size has to be formed wider";
}

TEST(PacketQueue, AWaitingReaderIsWokenByThePinAndByAReasonToGiveUp)
{
    const GWatchdog watchdog("a full queue");
    GPacketQueue queue(kLimits, 0);
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(queue.Push(Packet(1), kAtOnce), kDone);
    std::atomic<int> looks{0};
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        const std::function<bool()> giveUp = [&] { return ++looks, stop.load(); };
        EXPECT_EQ(queue.Push(Packet(1), giveUp), kDone);
        EXPECT_EQ(queue.Push(Packet(1), giveUp), kRefused);
    });
    while (looks < 3)
        std::this_thread::yield();
    queue.Pop();
    const int seen = looks;
    while (looks < seen + 3)
        std::this_thread::yield();
    stop = true;
    reader.join();
}

TEST(PacketPool, GivesBackBuffersThatFitAndKeepsNoHoard)
{
    GPacketPool pool;
    EXPECT_EQ(pool.Take(10), nullptr);
    pool.Give(Packet(100'000));
    EXPECT_EQ(pool.Take(200'000), nullptr) << "too small";
    EXPECT_EQ(pool.Take(10'000), nullptr) << "a queue of small packets in large buffers would outgrow its limit";
    const GPacketPtr fits = pool.Take(70'000);
    ASSERT_NE(fits, nullptr);
    EXPECT_EQ(fits->data.Size(), 0u);
    EXPECT_EQ(fits->start, kNoTime) << "the old packet's time";

    for (int i = 0; i < 200; ++i)
        pool.Give(Packet(100));
    int kept = 0;
    while (pool.Take(100))
        ++kept;
    EXPECT_LE(kept, 64);
    for (int i = 0; i < 20; ++i)
        pool.Give(Packet(1 << 20));
    kept = 0;
    while (pool.Take(1 << 20))
        ++kept;
    EXPECT_LE(kept, 8) << "MiB";
    pool.Give(nullptr);
}

}  // namespace vex::test
