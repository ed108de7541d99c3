// Where the packets of one pin wait to be filled again.
#pragma once

#include <vector>

#include "framework/contract/packet.h"
#include "platform/threads.h"

namespace vex {

// Packets given back by a pin, for the reader. Bounded in number and bytes; any thread. One pool per pin, so that a pin
// with a packet class of its own never gets another's.
class GPacketPool {
public:
    explicit GPacketPool(std::size_t mostPackets);
    // A packet whose buffer suits `bytes`, or null: memory that is much larger than needed would make queues, whose
    // limits count payload, hold far more than they say.
    GPacketPtr Take(std::size_t bytes);
    void Give(GPacketPtr packet);

private:
    const std::size_t maxPackets;
    GMutex lock;
    std::vector<GPacketPtr> packets G_GUARDED_BY(lock);
    std::size_t heldBytes G_GUARDED_BY(lock) = 0;
};

}  // namespace vex
