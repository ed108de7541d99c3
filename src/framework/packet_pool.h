// Where the packets of one pin wait to be filled again.
#pragma once

#include <vector>

#include "framework/contract/packet.h"
#include "platform/threads.h"

namespace vex {

// Packets given back by a pin, for the reader. Bounded in number and bytes. One pool per pin, so that a pin with a
// packet class of its own never gets another's.
class GPacketPool {
public:
    explicit GPacketPool(std::size_t mostPackets);
    // Reader thread: a packet whose buffer suits `bytes`, or null: memory that is much larger than needed would make
    // queues, whose limits count payload, hold far more than they say.
    GPacketPtr Take(std::size_t bytes);
    // Any thread.
    void Give(GPacketPtr packet);

private:
    GPacketPtr TakeReady(std::size_t bytes);
    bool Fetch();

    const std::size_t maxPackets;
    std::vector<GPacketPtr> ready;  // reader thread; more is fetched from `returned` when none of the last suits
    std::size_t readyBytes = 0;
    GMutex lock;
    std::vector<GPacketPtr> returned G_GUARDED_BY(lock);
    std::size_t returnedBytes G_GUARDED_BY(lock) = 0;
};

}  // namespace vex
