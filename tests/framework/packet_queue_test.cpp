#include "framework/packet_queue.h"

#include <gtest/gtest.h>

#include "framework/packet_pool.h"
#include "io/limits.h"
#include "support/scripted_filter.h"

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

GPacketQueue::PushResult Push(GPacketQueue& queue, GPacketPtr packet)
{
    return queue.Push(packet, [] { return true; });
}

// The next packet that is ready, or null.
GPacketPtr Pop(GPacketQueue& queue)
{
    GPacketPtr packet;
    queue.Take(false, packet);
    return packet;
}

constexpr auto kDone = GPacketQueue::PushResult::Done;
constexpr auto kRefused = GPacketQueue::PushResult::Refused;
using Ready = GPacketQueue::Ready;

}  // namespace

TEST(PacketQueue, TheLastPacketIsHeldBackUntilSomethingFollows)
{
    GPacketQueue queue(kLimits, 0);
    GPacketPtr taken;
    EXPECT_EQ(queue.Take(true, taken), Ready::No);
    ASSERT_EQ(Push(queue, Packet(10)), kDone);
    EXPECT_EQ(queue.Take(true, taken), Ready::No);
    ASSERT_EQ(Push(queue, Packet(11)), kDone);
    ASSERT_EQ(queue.Take(true, taken), Ready::Packet);
    EXPECT_EQ(taken->GetSize(), 10u);
    EXPECT_EQ(queue.Take(true, taken), Ready::No);
    queue.PushEnd();
    ASSERT_EQ(queue.Take(true, taken), Ready::Packet);
    EXPECT_EQ(taken->GetSize(), 11u);
    EXPECT_EQ(queue.Take(true, taken), Ready::End);
    queue.DropPackets();
    EXPECT_EQ(queue.Take(true, taken), Ready::End) << "the marker has to stay for a restart";
    queue.Clear();
    EXPECT_EQ(queue.Take(true, taken), Ready::No);
}

// The pin takes packets over in batches. Those that it has not looked at yet keep their place, count, and are dropped
// with the rest.
TEST(PacketQueue, WhatWasTakenOverAtOnceCountsAndIsDropped)
{
    for (const bool clear : {false, true}) {
        GPacketQueue queue(kLimits, 0);
        for (std::size_t i = 1; i <= 10; ++i)
            ASSERT_EQ(Push(queue, Packet(i)), kDone);
        EXPECT_EQ(Pop(queue)->GetSize(), 1u);
        for (std::size_t i = 11; i <= 301; ++i)
            ASSERT_EQ(Push(queue, Packet(1)), kDone) << i;
        EXPECT_EQ(Push(queue, Packet(1)), kRefused);
        EXPECT_EQ(Pop(queue)->GetSize(), 2u);
        clear ? queue.Clear() : queue.DropPackets();
        EXPECT_EQ(Pop(queue), nullptr);
        EXPECT_EQ(Push(queue, Packet(2000)), kDone);
        EXPECT_EQ(Push(queue, Packet(1)), kDone);
    }
}

TEST(PacketQueue, AContinuationGrowsTheLastPacketOnlyWhenItMay)
{
    GPacketQueue queue(kLimits, 0);
    ASSERT_EQ(Push(queue, Packet(10)), kDone);
    ASSERT_EQ(Push(queue, Continuation(5)), kDone);
    ASSERT_EQ(Push(queue, Continuation(7)), kDone);

    ASSERT_EQ(Push(queue, Packet(3, 400, true)), kDone);
    GPacketPtr broken = Continuation(4);
    broken->discontinuity = true;
    ASSERT_EQ(Push(queue, std::move(broken)), kDone);
    ASSERT_EQ(Push(queue, Continuation(2)), kDone);  // the packet before it has no time either
    std::vector<std::size_t> sizes;
    while (const GPacketPtr packet = Pop(queue))
        sizes.push_back(packet->GetSize());
    EXPECT_EQ(sizes, (std::vector<std::size_t>{22, 3, 4, 2}));

    // No further than a packet may be. The pages of the large buffers are never touched.
    ASSERT_EQ(Push(queue, Packet(kMaxPacketSize - 10)), kDone);
    ASSERT_EQ(Push(queue, Continuation(10)), kDone);
    ASSERT_EQ(Push(queue, Continuation(1)), kDone);
    EXPECT_EQ(Pop(queue)->GetSize(), kMaxPacketSize);
    EXPECT_EQ(Pop(queue)->GetSize(), 1u);
}

TEST(PacketQueue, IsFullAtThreeHundredPacketsOrAtTheByteLimit)
{
    GPacketQueue many(kLimits, 0);
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(Push(many, Packet(1)), kDone) << i;
    EXPECT_EQ(Push(many, Packet(1)), kRefused);
    Pop(many);
    EXPECT_EQ(Push(many, Packet(1)), kDone);

    GPacketQueue heavy(kLimits, 0);
    EXPECT_EQ(Push(heavy, Packet(500)), kDone);
    EXPECT_EQ(Push(heavy, Packet(400)), kDone);
    EXPECT_EQ(Push(heavy, Continuation(99)), kDone);
    EXPECT_EQ(Push(heavy, Packet(700)), kDone) << "still below the limit when it came";
    EXPECT_EQ(Push(heavy, Packet(1)), kRefused);
    for (int i = 0; i < 3; ++i)
        Pop(heavy);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Push(heavy, Packet(333)), kDone) << "the bytes of what was taken still count";
    EXPECT_EQ(Push(heavy, Packet(1)), kDone);
    EXPECT_EQ(Push(heavy, Packet(1)), kRefused);
    heavy.Clear();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Push(heavy, Packet(1)), kDone) << "the bytes of what was dropped still count";

    // The one packet is held back until another follows: were it to fill the queue alone, neither side could move.
    GPacketQueue huge(kLimits, 0);
    ASSERT_EQ(Push(huge, Packet(5000)), kDone);
    EXPECT_EQ(Push(huge, Packet(5000)), kDone);
    EXPECT_EQ(Push(huge, Packet(1)), kRefused);
    GPacketPtr taken;
    EXPECT_EQ(huge.Take(true, taken), Ready::Packet);
    EXPECT_EQ(Push(huge, Packet(5000)), kDone);
    EXPECT_EQ(Push(huge, Packet(1)), kRefused);
}

TEST(PacketQueue, TheByteLimitFollowsTheSampleSizeBetweenItsBounds)
{
    EXPECT_EQ(kPlainRules.queue.ByteLimit(0), 8u << 20);
    EXPECT_EQ(kPlainRules.queue.ByteLimit(8'000'001), 12'000'001u);
    EXPECT_EQ(kPlainRules.queue.ByteLimit(0xFFFFFFFF), 80u << 20) << "1.5 times a 32-bit size has to be formed wider";
    constexpr GQueueLimits kOpen{.minimumBytes = 3 * kMiB, .maximumBytes = kNoUpperClamp};
    EXPECT_EQ(kOpen.ByteLimit(0xFFFFFFFF), 0x1'7FFF'FFFEu);
}

TEST(PacketPool, GivesBackBuffersThatFitAndKeepsNoHoard)
{
    GPacketPool pool(4);
    EXPECT_EQ(pool.Take(10), nullptr);
    GPacketPtr left = Packet(100'000);
    left->unread = 5;
    pool.Give(std::move(left));
    EXPECT_EQ(pool.Take(200'000), nullptr) << "too small";
    EXPECT_EQ(pool.Take(10'000), nullptr) << "a queue of small packets in large buffers would outgrow its limit";
    const GPacketPtr fits = pool.Take(70'000);
    ASSERT_NE(fits, nullptr);
    EXPECT_EQ(fits->GetSize(), 0u) << "neither bytes nor a mark that they are unread";
    EXPECT_EQ(fits->start, kNoTime) << "the old packet's time";

    for (int i = 0; i < 200; ++i)
        pool.Give(Packet(100));
    int kept = 0;
    while (pool.Take(100))
        ++kept;
    EXPECT_EQ(kept, 4);
    for (int i = 0; i < 20; ++i)
        pool.Give(Packet(1 << 20));
    kept = 0;
    while (pool.Take(1 << 20))
        ++kept;
    EXPECT_LE(kept, 4) << "MiB";
    pool.Give(nullptr);
}

}  // namespace vex::test
