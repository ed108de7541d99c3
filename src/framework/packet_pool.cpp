#include "framework/packet_pool.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vex {

namespace {

constexpr std::size_t kPoolBytes = 8u << 20;  // in each of the two lists
constexpr std::size_t kPoolSearch = 8;        // entries looked at for a fitting buffer
constexpr std::size_t kSmallBuffer = 16384;   // bytes; below this, waste does not matter

}  // namespace

// Giving back happens where nothing may fail, so the room for it is made at once.
GPacketPool::GPacketPool(std::size_t mostPackets) : maxPackets(mostPackets)
{
    ready.reserve(2 * maxPackets);
    returned.reserve(maxPackets);
}

GPacketPtr GPacketPool::Take(std::size_t bytes)
{
    if (GPacketPtr packet = TakeReady(bytes))
        return packet;
    return Fetch() ? TakeReady(bytes) : nullptr;
}

GPacketPtr GPacketPool::TakeReady(std::size_t bytes)
{
    const std::size_t largest = std::max(kSmallBuffer, bytes > SIZE_MAX / 2 ? SIZE_MAX : bytes * 2);
    const std::size_t looks = std::min(kPoolSearch, ready.size());
    for (std::size_t i = 1; i <= looks; ++i) {
        GPacketPtr& candidate = ready[ready.size() - i];
        const std::size_t capacity = candidate->data.Capacity();
        if (capacity < bytes || capacity > largest)
            continue;
        readyBytes -= capacity;
        std::swap(candidate, ready.back());
        GPacketPtr taken = std::move(ready.back());
        ready.pop_back();
        return taken;
    }
    return nullptr;
}

// What was given back goes before what has not suited so far. False when there is nothing new.
bool GPacketPool::Fetch()
{
    {
        const GMutexLock held(lock);
        if (returned.empty())
            return false;
        std::ranges::move(returned, std::back_inserter(ready));
        returned.clear();
        readyBytes += std::exchange(returnedBytes, 0);
    }
    std::size_t surplus = 0;
    while (readyBytes > kPoolBytes || ready.size() - surplus > maxPackets)
        readyBytes -= ready[surplus++]->data.Capacity();
    ready.erase(ready.begin(), ready.begin() + static_cast<std::ptrdiff_t>(surplus));
    return true;
}

void GPacketPool::Give(GPacketPtr packet)
{
    if (!packet || packet->data.Capacity() == 0)  // without a buffer it serves nobody
        return;
    packet->Recycle();
    const std::size_t capacity = packet->data.Capacity();
    GPacketPtr dropped;  // freed after the lock
    const GMutexLock held(lock);
    if (returned.size() >= maxPackets || returnedBytes + capacity > kPoolBytes) {
        dropped = std::move(packet);
        return;
    }
    returnedBytes += capacity;
    returned.push_back(std::move(packet));
}

}  // namespace vex
