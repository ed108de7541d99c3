// A pin of the Matroska filter: completes and orders Blocks before their frames become samples.
#pragma once

#include <deque>

#include "formats/mkv/mkv_packet.h"
#include "framework/output_pin.h"

namespace vex {

// A Block without a duration ends where the next one of its track starts, so a window of `reorderDepth` Blocks is kept
// back; within it a Block with a lower reference priority overtakes. Laced frames become one sample each.
class CMKV_OutputPin final : public CVexOutputPin {
public:
    // `minCache` as the track declares it: the window is at least 2 deep.
    CMKV_OutputPin(CVexFilter* owningFilter, const GStreamInfo& info, std::uint64_t minCache);

protected:
    GUnitStatus PrepareUnit() override;
    void FinishUnit() override;
    void DropWindow() override;

private:
    using GBlockPtr = std::unique_ptr<GMkvBlockPacket>;

    // Frames of the front Block that are still to be delivered.
    bool NextFrame();
    void Take(GBlockPtr packet);
    void CompleteFront();
    bool FrontIsComplete() const { return !pending.empty() && pending.front()->block.duration.valid; }

    const std::size_t reorderDepth;
    // Streaming thread.
    std::deque<GBlockPtr> pending;
    GBlockPtr delivering;         // taken off `pending`; its frames go out one by one
    std::size_t frameIndex = 0;   // of `delivering`
    std::size_t frameOffset = 0;  // bytes
    bool ending = false;          // the end marker is next: what is pending is all there is
};

}  // namespace vex
