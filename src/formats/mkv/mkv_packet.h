// A Block on its way to a pin.
#pragma once

#include <cstdint>
#include <vector>

#include "formats/mkv/mkv_values.h"
#include "framework/contract/packet.h"

namespace vex {

// One Block or SimpleBlock. The bytes of its frames lie one after the other in the packet that carries it.
struct GMkvBlock {
    static constexpr std::uint8_t kKeyFlag = 0x80;  // bits of flags
    static constexpr std::uint8_t kLacingMask = 0x06;

    std::uint64_t track = 0;    // marker removed
    std::int64_t timecode = 0;  // ticks from the Cluster's
    std::uint8_t flags = 0;
    std::vector<std::uint32_t> frameSizes;  // bytes, in file order; empty until the frames are read
    CUInt duration;                         // ticks; valid when the Block has one
    CUInt referencePriority;
    CInt reference;  // valid when the Block refers to another one: no key frame
    CInt referenceVirtual;

    void Clear()
    {
        frameSizes.clear();
        track = 0;
        timecode = 0;
        flags = 0;
        duration = {};
        referencePriority = {};
        reference = {};
        referenceVirtual = {};
    }
};

// What the Matroska filter's pins work with. A packet with the `header` flag carries one codec header and no Block.
struct GMkvBlockPacket final : GPacket2 {
    void Recycle() override
    {
        GPacket2::Recycle();
        block.Clear();
        headerPos = 0;
    }

    GMkvBlock block;
    std::int64_t headerPos = 0;  // of the Block element, while the payload is unread; names it in the damage log
};

}  // namespace vex
