#include "framework/packet_pool.h"

#include <algorithm>

namespace vex {

namespace {

constexpr std::size_t kPoolBytes = 4u << 20;
constexpr std::size_t kPoolSearch = 8;       // entries looked at for a fitting buffer
constexpr std::size_t kSmallBuffer = 16384;  // bytes; below this, waste does not matter

}  // namespace

// Giving back happens where nothing may fail, so the room for it is made at once.
GPacketPool::GPacketPool(std::size_t mostPackets) : maxPackets(mostPackets) { packets.reserve(maxPackets); }

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
    if (packets.size() >= maxPackets || heldBytes + capacity > kPoolBytes) {
        dropped = std::move(packet);
        return;
    }
    heldBytes += capacity;
    packets.push_back(std::move(packet));
}

}  // namespace vex
