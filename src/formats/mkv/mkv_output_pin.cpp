#include "formats/mkv/mkv_output_pin.h"

#include <algorithm>

namespace vex {

namespace {

// A window is for reordering a few frames; a declared depth beyond this would only hold packets back.
constexpr std::uint64_t kSmallestWindow = 2;
constexpr std::uint64_t kLargestWindow = 64;

}  // namespace

CMKV_OutputPin::CMKV_OutputPin(CVexFilter* owningFilter, const GStreamInfo& info, std::uint64_t minCache)
    : CVexOutputPin(owningFilter, info),
      reorderDepth(static_cast<std::size_t>(std::clamp(minCache, kSmallestWindow, kLargestWindow)))
{
}

CVexOutputPin::GUnitStatus CMKV_OutputPin::PrepareUnit()
{
    if (delivering && NextFrame())
        return GUnitStatus::Unit;
    // A Block may complete those behind it that have a duration of their own: they go before anything new is taken.
    if (!ending && !FrontIsComplete()) {
        GPacketPtr packet;
        switch (queue.Take(false, packet)) {
        case GPacketQueue::Ready::No:
            return GUnitStatus::NotYet;
        case GPacketQueue::Ready::End:
            ending = true;
            break;
        case GPacketQueue::Ready::Packet:
            Take(GBlockPtr(static_cast<GMkvBlockPacket*>(packet.release())));
            break;
        }
    }
    if (!delivering) {
        if (ending && pending.empty())
            return GUnitStatus::End;
        if (pending.size() > reorderDepth || ending)
            CompleteFront();
        if (!FrontIsComplete())
            return GUnitStatus::NotYet;
        delivering = std::move(pending.front());
        pending.pop_front();
    }
    return NextFrame() ? GUnitStatus::Unit : GUnitStatus::NotYet;
}

// Only the last reorderDepth - 1 Blocks may be overtaken; equal priorities keep their order.
void CMKV_OutputPin::Take(GBlockPtr packet)
{
    if (!packet)
        return;
    if (packet->header) {
        delivering = std::move(packet);
        return;
    }
    auto place = pending.end();
    for (std::size_t compared = 1; compared < reorderDepth && place != pending.begin(); ++compared) {
        const auto before = std::prev(place);
        if ((*before)->block.referencePriority.value <= packet->block.referencePriority.value)
            break;
        place = before;
    }
    pending.insert(place, std::move(packet));
}

// A Block without a duration of its own lasts until the next one starts; the very last keeps the end it has.
void CMKV_OutputPin::CompleteFront()
{
    GMkvBlockPacket& front = *pending.front();
    if (front.block.duration.valid)
        return;
    front.block.duration.valid = true;
    if (pending.size() > 1 && pending[1]->start > front.start)
        front.stop = pending[1]->start;
}

// Makes the next frame of `delivering` the unit; false when there is none left, and the packet goes back.
bool CMKV_OutputPin::NextFrame()
{
    const GMkvBlockPacket& packet = *delivering;
    const std::vector<std::uint32_t>& sizes = packet.block.frameSizes;
    const std::size_t count = packet.header ? 1 : sizes.size();
    const std::size_t bytes = packet.GetSize();
    if (frameIndex >= count || frameOffset > bytes) {
        frameIndex = frameOffset = 0;
        Recycle(std::move(delivering));
        return false;
    }
    const std::size_t left = bytes - frameOffset;
    const std::size_t size = packet.header ? left : std::min<std::size_t>(sizes[frameIndex], left);
    unit = {};
    if (packet.unread != 0)
        unit.left = &packet;
    else
        unit.data = packet.data.Span().subspan(frameOffset, size);
    unit.start = packet.start;
    unit.stop = packet.stop;
    if (packet.start != kNoTime && packet.stop != kNoTime && count > 1) {
        const REFERENCE_TIME each = (packet.stop - packet.start) / static_cast<REFERENCE_TIME>(count);
        unit.start = packet.start + static_cast<REFERENCE_TIME>(frameIndex) * each;
        unit.stop = unit.start + each;
    }
    unit.keyFrame = packet.keyFrame && frameIndex == 0;
    unit.discontinuity = packet.discontinuity && frameIndex == 0;
    frameOffset += size;
    ++frameIndex;
    return true;
}

// The packet stays until its last frame is out; NextFrame gives it back.
void CMKV_OutputPin::FinishUnit() { unit = {}; }

void CMKV_OutputPin::DropWindow()
{
    if (delivering)
        Recycle(std::move(delivering));
    for (GBlockPtr& packet : pending)
        Recycle(std::move(packet));
    pending.clear();
    frameIndex = frameOffset = 0;
    ending = false;
}

}  // namespace vex
