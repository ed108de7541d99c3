#include "framework/packet_queue.h"

#include <algorithm>

namespace vex {

namespace {

constexpr std::chrono::milliseconds kLongestWait{1};
constexpr std::size_t kPoolPackets = 64;
constexpr std::size_t kPoolBytes = 8 * kMiB;
constexpr std::size_t kPoolSearch = 8;       // entries looked at for a fitting buffer
constexpr std::size_t kSmallBuffer = 16384;  // bytes; below this, waste does not matter

}  // namespace

// Giving back happens where nothing may fail, so the room for it is made at once.
GPacketPool::GPacketPool() { packets.reserve(kPoolPackets); }

GPacketPtr GPacketPool::Take(std::size_t bytes)
{
    const std::size_t largest = std::max(kSmallBuffer, bytes > SIZE_MAX / 2 ? SIZE_MAX : bytes * 2);
    const GMutexLock held(lock);
    const std::size_t looks = std::min(kPoolSearch, packets.size());
    for (std::size_t i = 1; i <= looks; ++i) {
        GPacketPtr& candidate = packets[packets.size() - i];
        const std::size_t capacity = candidate->data.Capacity();
        if (capacity < bytes || capacity > largest)
            continue;
        heldBytes -= capacity;
        std::swap(candidate, packets.back());
        GPacketPtr taken = std::move(packets.back());
        packets.pop_back();
        return taken;
    }
    return nullptr;
}

void GPacketPool::Give(GPacketPtr packet)
{
    if (!packet)
        return;
    packet->Recycle();
    const std::size_t capacity = packet->data.Capacity();
    GPacketPtr dropped;  // freed after the lock
    const GMutexLock held(lock);
    if (packets.size() >= kPoolPackets || heldBytes + capacity > kPoolBytes) {
        dropped = std::move(packet);
        return;
    }
    heldBytes += capacity;
    packets.push_back(std::move(packet));
}

GPacketQueue::GPacketQueue(const GQueueLimits& queueLimits, std::uint32_t sampleSize)
    : byteLimit(queueLimits.ByteLimit(sampleSize)), maxPackets(queueLimits.packets)
{
}

GPacketQueue::PushResult GPacketQueue::Push(GPacketPtr packet, const std::function<bool()>& giveUp)
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
        GPacket2* last = packets.empty() ? nullptr : packets.back().get();
        const bool joins = packet->continuation && !packet->discontinuity && packet->start == kNoTime && last &&
                           last->start != kNoTime;
        const std::size_t size = packet->GetSize();
        if (joins)
            last->data.Append(packet->data.Span());
        else
            packets.push_back(std::move(packet));
        bytes += size;
        wake = pinWaits && BatchLocked();
        if (wake)
            wakeAt = std::min(kBatch, std::max(kFirstWake, maxPackets / 4));
    }
    // Behind the lock: the pin would wake only to wait for it.
    if (wake)
        filled.notify_one();
    return PushResult::Done;
}

void GPacketQueue::PushEnd()
{
    const GMutexLock held(lock);
    packets.push_back(nullptr);
    filled.notify_one();
}

GPacketQueue::Ready GPacketQueue::ReadyLocked(bool holdBack) const
{
    if (packets.empty())
        return Ready::No;
    if (!packets.front())
        return Ready::End;
    return holdBack && packets.size() < 2 ? Ready::No : Ready::Packet;
}

GPacketQueue::Ready GPacketQueue::WaitReady(bool holdBack)
{
    GMutexLock held(lock);
    const Ready now = ReadyLocked(holdBack);
    if (now != Ready::No)
        return now;
    pinWaits = true;
    held.WaitFor(filled, kLongestWait);
    pinWaits = false;
    return ReadyLocked(holdBack);
}

GPacketPtr GPacketQueue::Pop()
{
    GPacketPtr packet;
    bool wake = false;
    {
        const GMutexLock held(lock);
        if (packets.empty())
            return nullptr;
        packet = std::move(packets.front());
        packets.pop_front();
        if (packet)
            bytes -= packet->GetSize();
        wake = readerWaits && RoomLocked();
    }
    if (wake)
        drained.notify_one();
    return packet;
}

void GPacketQueue::Clear()
{
    const GMutexLock held(lock);
    packets.clear();
    bytes = 0;
    wakeAt = kFirstWake;
    drained.notify_one();
}

}  // namespace vex
