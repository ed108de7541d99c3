// From Clusters to timed Blocks.
#pragma once

#include <cstdint>

#include "formats/mkv/mkv_block.h"
#include "formats/mkv/mkv_file.h"

namespace vex {

// What the first Blocks read since the file was loaded looked like.
struct GMkvBlockStats {
    static constexpr std::uint32_t kSample = 100;  // Blocks

    std::uint32_t seen = 0;
    std::uint32_t withoutReference = 0;
    std::uint32_t keyFlagged = 0;

    void Count(const GMkvBlock& block);
    // Some writers mark no references at all but set the key flag: all Blocks looked like key frames, and only some had
    // the flag.
    bool FlagsTellKeyFrames() const
    {
        return seen == kSample && withoutReference == kSample && keyFlagged != 0 && keyFlagged != kSample;
    }
};

// 100 ns, on the file's own clock.
inline std::int64_t MkvBlockTime(const GMkvFile& file, std::int64_t clusterTicks, const GMkvBlock& block)
{
    return file.ToTime(clusterTicks + block.timecode);
}

// A Block with its times; its frames are still in the file.
struct GMkvTimedBlock {
    GMkvBlock block;
    GMkvPayload payload;
    std::int64_t start = 0;  // 100 ns from the first Cluster's time
    std::int64_t stop = 0;   // of a Block without a duration: start + 1
};

// Reads on from the file's `cluster` and `startBlock` to the end of the Segment.
class GMkvDemux {
public:
    enum class GStatus : std::uint8_t { Block, NotYet, End };

    // `loaded` must outlive this.
    explicit GMkvDemux(GMkvFile& loaded) : file(loaded) {}

    // The next Block, of whatever track. NotYet after a number of elements without one, or when damage was met. End
    // repeats until Restart.
    GStatus Next(GMkvTimedBlock& next);

    // The file's cursors were moved.
    void Restart() { state = GState::EnterCluster; }
    // Another file was loaded.
    void Reset()
    {
        Restart();
        stats = {};
    }

    const GMkvBlockStats& Stats() const { return stats; }

private:
    enum class GState : std::uint8_t { EnterCluster, InCluster, LeaveCluster, AtEnd };

    GStatus StepInCluster(GMkvTimedBlock& next);
    void SetTimes(GMkvTimedBlock& next) const;

    GMkvFile& file;
    GMkvClusterWalk walk;
    GMkvBlockStats stats;
    GState state = GState::EnterCluster;
};

}  // namespace vex
