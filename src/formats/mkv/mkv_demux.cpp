#include "formats/mkv/mkv_demux.h"

namespace vex {
namespace {

// What one call may pass over before it lets its thread look for commands.
constexpr int kMaxElements = 64;
constexpr std::uint64_t kMaxSearched = 1u << 20;  // bytes

}  // namespace

void GMkvBlockStats::Count(const GMkvBlock& block)
{
    if (seen == kSample)
        return;
    ++seen;
    withoutReference += block.reference.valid ? 0 : 1;
    keyFlagged += (block.flags & GMkvBlock::kKeyFlag) != 0 ? 1 : 0;
}

GMkvDemux::GStatus GMkvDemux::Next(GMkvTimedBlock& next)
{
    for (int passed = 0; passed < kMaxElements; ++passed) {
        switch (state) {
        case GState::EnterCluster:
            if (!file.cluster) {
                state = GState::AtEnd;
                break;
            }
            walk.Enter(*file.cluster, file.startBlock);
            file.startBlock.reset();
            state = GState::InCluster;
            break;
        case GState::InCluster:
            if (StepInCluster(next) == GStatus::Block)
                return GStatus::Block;
            break;
        case GState::LeaveCluster:
            switch (file.cluster->StepToCluster(kMaxSearched)) {
            case GMkvStep::Moved:
                state = GState::EnterCluster;
                break;
            case GMkvStep::Searching:
                return GStatus::NotYet;
            case GMkvStep::End:
                state = GState::AtEnd;
                break;
            }
            break;
        case GState::AtEnd:
            return GStatus::End;
        }
    }
    return GStatus::NotYet;
}

GMkvDemux::GStatus GMkvDemux::StepInCluster(GMkvTimedBlock& next)
{
    switch (walk.Step()) {
    case GMkvClusterWalk::GAt::End:
        state = GState::LeaveCluster;
        return GStatus::NotYet;
    case GMkvClusterWalk::GAt::Other:
        return GStatus::NotYet;
    case GMkvClusterWalk::GAt::Block:
        break;
    }
    switch (ReadMkvBlock(walk.Block(), next.block, next.payload)) {
    case GMkvBlockRead::Unreadable:
        state = GState::LeaveCluster;
        return GStatus::NotYet;
    case GMkvBlockRead::NoBlock:
        return GStatus::NotYet;
    case GMkvBlockRead::Done:
        break;
    }
    stats.Count(next.block);
    SetTimes(next);
    return GStatus::Block;
}

void GMkvDemux::SetTimes(GMkvTimedBlock& next) const
{
    next.start = MkvBlockTime(file, walk.ClusterTicks(), next.block) - file.firstClusterTime;
    const CUInt& duration = next.block.duration;
    next.stop = next.start + (duration.valid ? file.ToTime(MkvTicks(duration.value)) : 1);
}

}  // namespace vex
