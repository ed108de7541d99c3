#include "framework/packet_queue.h"

#include <algorithm>

#include "io/limits.h"

namespace vex {

namespace {

constexpr std::chrono::milliseconds kLongestWait{1};

// Whether `packet` continues `last` and there is room for it.
bool Joins(const GPacket2& packet, const GPacket2* last)
{
    return packet.continuation && !packet.discontinuity && packet.start == kNoTime && last && last->start != kNoTime &&
           last->unread == 0 &&
           packet.data.Size() <= kMaxPacketSize - std::min<std::size_t>(last->data.Size(), kMaxPacketSize);
}

}  // namespace

GPacketQueue::GPacketQueue(const GQueueLimits& queueLimits, std::uint32_t sampleSize)
    : byteLimit(queueLimits.ByteLimit(sampleSize)), maxPackets(queueLimits.packets)
{
}

GPacketQueue::PushResult GPacketQueue::Push(GPacketPtr& packet, const std::function<bool()>& giveUp)
{
    bool wake = false;
    {
        GMutexLock held(lock);
        while (FullLocked()) {
            if (giveUp())
                return PushResult::Refused;
            readerWaits = true;
            held.WaitFor(drained, kLongestWait);
            readerWaits = false;
        }
        GPacket2* const last = packets.empty() ? nullptr : packets.back().get();
        const std::size_t size = packet->GetSize();
        if (Joins(*packet, last))
            last->data.Append(packet->data.Span());
        else
            packets.push_back(std::move(packet));
        bytes += size;
        NoteLevelLocked();
        wake = pinWaits && BatchLocked();
        if (wake) {
            pinWaits = false;  // it takes a while to wake, and one call is enough
            wakeAt = std::min(kBatch, std::max(kFirstWake, maxPackets / 4));
        }
    }
    // After unlocking, so that the pin does not wake and block at once.
    if (wake)
        filled.notify_one();
    return PushResult::Done;
}

void GPacketQueue::PushEnd()
{
    const GMutexLock held(lock);
    ended = true;
    filled.notify_one();
}

GPacketQueue::Ready GPacketQueue::ReadyLocked(bool holdBack) const
{
    if (packets.empty())
        return ended ? Ready::End : Ready::No;
    return holdBack && packets.size() < 2 && !ended ? Ready::No : Ready::Packet;
}

GPacketQueue::Ready GPacketQueue::Take(bool holdBack, GPacketPtr& packet)
{
    if (fetchedPackets.load(std::memory_order_relaxed) == 0) {
        const Ready ready = Fetch(holdBack);
        if (ready != Ready::Packet)
            return ready;
    }
    packet = std::move(fetched[nextFetched++]);
    // Written by this thread alone.
    fetchedBytes.store(fetchedBytes.load(std::memory_order_relaxed) - packet->GetSize(), std::memory_order_relaxed);
    fetchedPackets.store(fetchedPackets.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    return Ready::Packet;
}

GPacketQueue::Ready GPacketQueue::Fetch(bool holdBack)
{
    bool wake = false;
    {
        GMutexLock held(lock);
        Ready ready = ReadyLocked(holdBack);
        if (ready == Ready::No) {
            if (readerWaits)  // for what was taken out of `fetched` since
                drained.notify_one();
            pinWaits = true;
            held.WaitFor(filled, kLongestWait);
            pinWaits = false;
            ready = ReadyLocked(holdBack);
        }
        if (ready != Ready::Packet)
            return ready;
        std::uint64_t taken = 0;
        nextFetched = 0;
        std::size_t count = 0;
        while (count < fetched.size() && ReadyLocked(holdBack) == Ready::Packet) {
            taken += packets.front()->GetSize();
            fetched[count++] = std::move(packets.front());
            packets.pop_front();
        }
        bytes -= taken;
        wake = readerWaits && RoomLocked();
        if (wake)
            readerWaits = false;
        fetchedPackets.store(count, std::memory_order_relaxed);
        fetchedBytes.store(taken, std::memory_order_relaxed);
        NoteLevelLocked();
    }
    // After unlocking, so that the reader does not wake and block at once.
    if (wake)
        drained.notify_one();
    return Ready::Packet;
}

void GPacketQueue::DropLocked()
{
    packets.clear();
    bytes = 0;
    wakeAt = kFirstWake;
    NoteLevelLocked();
    drained.notify_one();
}

void GPacketQueue::DropFetched()
{
    fetchedPackets.store(0, std::memory_order_relaxed);
    fetchedBytes.store(0, std::memory_order_relaxed);
    for (GPacketPtr& packet : fetched)
        packet.reset();
}

void GPacketQueue::DropPackets()
{
    DropFetched();
    const GMutexLock held(lock);
    DropLocked();
}

void GPacketQueue::Clear()
{
    DropFetched();
    const GMutexLock held(lock);
    DropLocked();
    ended = false;
}

}  // namespace vex
