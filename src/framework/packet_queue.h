// The queue between the reader thread and one pin's streaming thread.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <functional>

#include "framework/contract/packet.h"
#include "framework/filter_rules.h"
#include "platform/threads.h"

namespace vex {

class GPacketQueue {
public:
    enum class PushResult : std::uint8_t { Done, Refused };

    GPacketQueue(const GQueueLimits& queueLimits, std::uint32_t sampleSize);

    // Reader thread, before PushEnd. Takes the packet, or refuses and leaves it: while the queue is full it waits, at
    // most 1 ms between looks at `giveUp`, whose true refuses. A continuation without a time of its own is joined to
    // the last packet queued, up to kMaxPacketSize; it is Done too, and left to be used again. Throws std::bad_alloc.
    PushResult Push(GPacketPtr& packet, const std::function<bool()>& giveUp);
    // Reader thread: the end marker, behind all packets. It needs no memory.
    void PushEnd();

    enum class Ready : std::uint8_t { No, Packet, End };
    // Pin thread: the next packet. The last one is ready only when something is queued behind it (it may still grow by
    // continuations) unless `holdBack` is false. Waits at most 1 ms when nothing is ready. The end marker stays until
    // Clear.
    Ready Take(bool holdBack, GPacketPtr& packet);

    // Any thread: whether the pin is close to having nothing to do.
    bool IsLow() const { return low.load(std::memory_order_relaxed); }

    // Pin thread: everything but the end marker.
    void DropPackets();
    // The end marker too; the streaming thread is parked.
    void Clear();

private:
    Ready ReadyLocked(bool holdBack) const G_REQUIRES(lock);
    Ready Fetch(bool holdBack);
    void DropLocked() G_REQUIRES(lock);
    void DropFetched();
    // A held-back packet does not count towards the limit; otherwise it could block the packet that releases it.
    bool FullLocked() const G_REQUIRES(lock)
    {
        const std::size_t count = packets.size() + fetchedPackets.load(std::memory_order_relaxed);
        return count >= maxPackets || (bytes + fetchedBytes.load(std::memory_order_relaxed) >= byteLimit && count > 1);
    }

    // Room enough to wake a reader that found the queue full: a quarter of it, so that the two threads do not take
    // turns at every packet.
    bool RoomLocked() const G_REQUIRES(lock)
    {
        return packets.size() <= 1 ||
               (packets.size() <= maxPackets - maxPackets / 4 && bytes <= byteLimit - byteLimit / 4);
    }

    // A pin that waits for the start of a segment is woken at once, one that keeps up with the reader in batches:
    // waking it for every packet costs more than handing the packet over. Its wait ends after 1 ms in any case.
    static constexpr std::size_t kFetch = 32;  // packets that the pin takes over at once, to save locks
    static constexpr std::size_t kFirstWake = 2;
    static constexpr std::size_t kBatch = 40;
    static constexpr std::uint64_t kBatchBytes = kMiB;
    // Well before the queue is full: the reader and the pin must not both wait for their time to run out.
    bool BatchLocked() const G_REQUIRES(lock)
    {
        return packets.size() >= wakeAt ||
               (packets.size() >= kFirstWake && bytes >= std::min(kBatchBytes, byteLimit / 4));
    }

    // After each change of `packets`. Less than a quarter of both limits is low.
    void NoteLevelLocked() G_REQUIRES(lock)
    {
        const std::size_t count = packets.size() + fetchedPackets.load(std::memory_order_relaxed);
        const std::uint64_t held = bytes + fetchedBytes.load(std::memory_order_relaxed);
        low.store(count < maxPackets / 4 && held < byteLimit / 4, std::memory_order_relaxed);
    }

    const std::uint64_t byteLimit;
    const std::size_t maxPackets;
    GMutex lock;
    GCondition filled;   // the pin waits here
    GCondition drained;  // the reader waits here
    std::deque<GPacketPtr> packets G_GUARDED_BY(lock);
    std::uint64_t bytes G_GUARDED_BY(lock) = 0;
    bool ended G_GUARDED_BY(lock) = false;  // the end marker
    bool pinWaits G_GUARDED_BY(lock) = false;
    std::size_t wakeAt G_GUARDED_BY(lock) = kFirstWake;  // packets queued when a waiting pin is woken
    bool readerWaits G_GUARDED_BY(lock) = false;

    // Taken out of `packets` and not yet taken by the pin: still counted, though a reader that waits is not woken for
    // each.
    std::array<GPacketPtr, kFetch> fetched;  // pin thread; from nextFetched on
    std::size_t nextFetched = 0;             // pin thread
    std::atomic<std::size_t> fetchedPackets{0};
    std::atomic<std::uint64_t> fetchedBytes{0};
    std::atomic<bool> low{true};  // as of the last change of `packets`
};

}  // namespace vex
