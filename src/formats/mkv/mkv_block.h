// Blocks: their headers, their lacing, and the walk over those of one Cluster.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "formats/mkv/mkv_element.h"
#include "formats/mkv/mkv_packet.h"

namespace vex {

// Where the bytes behind a Block's header lie: the lace, if any, and the frames.
struct GMkvPayload {
    std::int64_t headerPos = 0;   // absolute, of the Block element; names it in the damage log
    std::int64_t position = 0;    // absolute
    std::uint64_t claimed = 0;    // bytes, as the element says
    std::uint64_t available = 0;  // bytes that are there; fewer only where the file was cut off
};

enum class GMkvBlockRead : std::uint8_t {
    Done,
    NoBlock,     // nothing that could be delivered; what follows is sound
    Unreadable,  // the walk over this Cluster cannot go on
};

// Read the header and leave `block` without frames. ParseBlock takes a Block or a SimpleBlock, ParseBlockGroup a
// BlockGroup with all that it says of its first Block; ReadMkvBlock any of the children of a Cluster that hold one, and
// gives a SimpleBlock without the key flag the reference it stands for.
GMkvBlockRead ParseBlock(const GMkvElement& element, GMkvBlock& block, GMkvPayload& payload);
GMkvBlockRead ParseBlockGroup(GMkvElement& element, GMkvBlock& block, GMkvPayload& payload);
GMkvBlockRead ReadMkvBlock(GMkvElement& element, GMkvBlock& block, GMkvPayload& payload);

// The lacing in front of a payload of `claimed` bytes, of which `payload` are there: puts the sizes of the frames that
// are there whole into `frameSizes` (an unlaced one may be cut short) and gives the number of bytes before the first of
// them. Nothing, with `frameSizes` empty, when the lace is damaged: sizes beyond the payload or below zero.
std::optional<std::size_t> SplitMkvLace(std::span<const std::uint8_t> payload, std::uint64_t claimed,
                                        std::uint8_t flags, std::vector<std::uint32_t>& frameSizes);

// Reads the payload of `block` in one go; `data` then holds its frames one after the other. False when not one of them
// is there. `payload.available` is at most kMaxPacketSize.
bool ReadMkvFrames(GMkvReader& reader, const GMkvPayload& payload, GMkvBlock& block, GBuffer& data);

// The children of one Cluster, one at a time, so that whoever walks can stop anywhere.
class GMkvClusterWalk {
public:
    enum class GAt : std::uint8_t { Block, Other, End };

    // `walked` must outlive the walk and stay where it is. Starts at `startBlock`, a child of it, or at its first.
    void Enter(GMkvElement& walked, const std::optional<GMkvElement>& startBlock = std::nullopt);
    // To the next child. A level-1 element met among them ends the Cluster, whatever size it claims.
    GAt Step();

    // After Step gave Block: that element, and the time of its Cluster.
    GMkvElement& Block() { return *child; }
    std::int64_t ClusterTicks() const { return ticks; }

private:
    void ReadClusterTicks();

    GMkvElement* cluster = nullptr;
    std::optional<GMkvElement> child;
    bool stepped = false;  // `child` has been handed out
    bool ticksKnown = false;
    std::int64_t ticks = 0;
};

}  // namespace vex
