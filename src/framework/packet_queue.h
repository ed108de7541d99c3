// The queue between the reader thread and one pin's streaming thread, and the pool its packets come from.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <vector>

#include "framework/filter_rules.h"
#include "framework/media/packet.h"
#include "platform/threads.h"

namespace vex {

// Packets given back by pins, for the reader to fill again. Bounded in number and bytes; any thread.
class GPacketPool {
public:
    GPacketPool();
    // A packet whose buffer suits `bytes`, or null: memory that is much larger than needed would make queues, whose
    // limits count payload, hold far more than they say.
    GPacketPtr Take(std::size_t bytes);
    void Give(GPacketPtr packet);

private:
    GMutex lock;
    std::vector<GPacketPtr> packets G_GUARDED_BY(lock);
    std::size_t heldBytes G_GUARDED_BY(lock) = 0;
};

// A null packet is the end marker.
class GPacketQueue {
public:
    enum class PushResult : std::uint8_t { Done, Refused };

    GPacketQueue(const GQueueLimits& queueLimits, std::uint32_t sampleSize);

    // Reader thread. Waits while the queue is full, at most 1 ms between looks at `giveUp`, whose true refuses the
    // packet. A continuation without a time of its own is joined to the last packet queued. Throws std::bad_alloc.
    PushResult Push(GPacketPtr packet, const std::function<bool()>& giveUp);
    // Reader thread: appends the end marker, full or not.
    void PushEnd();

    enum class Ready : std::uint8_t { No, Packet, End };
    // Pin thread: what Pop would give. A packet counts only when something is queued behind it (it may still grow by
    // continuations) unless `holdBack` is false. Waits at most 1 ms when there is nothing.
    Ready WaitReady(bool holdBack);
    // Pin thread, after WaitReady said Packet or End: takes the first entry.
    GPacketPtr Pop();

    // Empties the queue; the pin and reader threads are stopped or about to notice.
    void Clear();

private:
    Ready ReadyLocked(bool holdBack) const G_REQUIRES(lock);
    // The packet held back counts as room for another: alone it would wait for ever for what releases it.
    bool FullLocked() const G_REQUIRES(lock)
    {
        return packets.size() >= maxPackets || (bytes >= byteLimit && packets.size() > 1);
    }

    // Room enough to wake a reader that found the queue full: a quarter of it, so that the two threads do not take turns at
    // every packet.
    bool RoomLocked() const G_REQUIRES(lock)
    {
        return packets.size() <= 1 ||
               (packets.size() <= maxPackets - maxPackets / 4 && bytes <= byteLimit - byteLimit / 4);
    }

    // A pin that waits for the start of a segment is woken at once, one that keeps up with the reader in batches: waking
    // it for every packet costs more than handing the packet over. Its wait ends after 1 ms in any case.
    static constexpr std::size_t kFirstWake = 2;
    static constexpr std::size_t kBatch = 40;
    static constexpr std::uint64_t kBatchBytes = kMiB;
    // Well before the queue is full: the reader and the pin must not both wait for their time to run out.
    bool BatchLocked() const G_REQUIRES(lock)
    {
        return packets.size() >= wakeAt ||
               (packets.size() >= kFirstWake && bytes >= std::min(kBatchBytes, byteLimit / 4));
    }

    const std::uint64_t byteLimit;
    const std::size_t maxPackets;
    GMutex lock;
    GCondition filled;   // the pin waits here
    GCondition drained;  // the reader waits here
    std::deque<GPacketPtr> packets G_GUARDED_BY(lock);
    std::uint64_t bytes G_GUARDED_BY(lock) = 0;
    bool pinWaits G_GUARDED_BY(lock) = false;
    std::size_t wakeAt G_GUARDED_BY(lock) = kFirstWake;  // packets queued when a waiting pin is woken
    bool readerWaits G_GUARDED_BY(lock) = false;
};

}  // namespace vex
