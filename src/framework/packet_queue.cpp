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
        wake = pinWaits && BatchLocked();
        if (wake)
            wakeAt = std::min(kBatch, std::max(kFirstWake, maxPackets / 4));
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
        bytes -= packet->GetSize();
        wake = readerWaits && RoomLocked();
    }
    if (wake)
        drained.notify_one();
    return packet;
}

void GPacketQueue::DropLocked()
{
    packets.clear();
    bytes = 0;
    wakeAt = kFirstWake;
    drained.notify_one();
}

void GPacketQueue::DropPackets()
{
    const GMutexLock held(lock);
    DropLocked();
}

void GPacketQueue::Clear()
{
    const GMutexLock held(lock);
    DropLocked();
    ended = false;
}

}  // namespace vex
