// One loaded Matroska file: its reader, what the top of its Segment says, and where reading stands.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "formats/mkv/mkv_content.h"
#include "formats/mkv/mkv_element.h"
#include "formats/mkv/mkv_records.h"
#include "io/result.h"
#include "platform/pipeline.h"

namespace vex {

// Times from a file are cut to this, 100 ns either way, so that the sum or difference of a few of them cannot overflow.
inline constexpr std::int64_t kMaxMkvTime = std::numeric_limits<std::int64_t>::max() / 8;
// And timecodes to this many ticks, so that a block's can be added to its Cluster's.
inline constexpr std::int64_t kMaxMkvTicks = std::numeric_limits<std::int64_t>::max() / 2;

constexpr std::int64_t MkvTicks(std::uint64_t stored)
{
    return static_cast<std::int64_t>(std::min<std::uint64_t>(stored, kMaxMkvTicks));
}

// ticks * timecodeScale / 100 towards zero, in 100 ns. The product is formed in 128 bits.
std::int64_t MkvTime(std::int64_t ticks, std::uint64_t timecodeScale);

// Not movable: the cursors below point into it. One thread at a time; the records are constant from Open to Close.
class GMkvFile {
public:
    GMkvFile() = default;
    GMkvFile(const GMkvFile&) = delete;
    GMkvFile& operator=(const GMkvFile&) = delete;

    // Closes what is open. Both are kept until Close; the source is open. After a failure the file is closed again.
    GStatus Open(GFileBase& source, GDamageLog& damage);
    void Close();
    bool IsOpen() const { return reader != nullptr; }

    // 100 ns, on the file's own clock: what is given to the outside is less firstClusterTime.
    std::int64_t ToTime(std::int64_t ticks) const { return MkvTime(ticks, info.timecodeScale.value); }

    // The Timecode of a Cluster in ticks, at most kMaxMkvTicks; 0 without one.
    static std::int64_t ClusterTicks(GMkvElement& clusterElement);

    // A fresh cursor on the first Cluster, where the index or, failing that, a walk finds it.
    std::optional<GMkvElement> FirstCluster();
    // A fresh cursor on the Cluster at a CueClusterPosition; nothing when no Cluster can be read there.
    std::optional<GMkvElement> ClusterAt(std::uint64_t cueClusterPosition);

    std::unique_ptr<GMkvReader> reader;  // null when closed
    GMkvHeader header;
    GMkvInfo info;
    std::vector<GMkvSeekHead> seekHeads;
    std::int64_t segmentDataPos = 0;  // absolute; what SeekPosition and CueClusterPosition count from
    std::vector<GMkvTrack> tracks;    // of all Tracks elements, in file order
    std::vector<GMkvCues> cues;
    std::vector<GMkvEdition> chapters;
    std::vector<GMkvAttachment> attachments;
    std::int64_t firstClusterTime = 0;  // 100 ns
    std::int64_t duration = 0;          // 100 ns, 0 when unknown

    // Cursors, each the parent of the next but the last, whose parent is the Cluster.
    std::optional<GMkvElement> root;
    std::optional<GMkvElement> segment;
    std::optional<GMkvElement> cluster;     // being read; after Open the first one, if any
    std::optional<GMkvElement> startBlock;  // where reading must start; none: the beginning of the Cluster

    GMkvContentDecoder contentDecoder;

private:
    GStatus Load();
    GStatus FindSegment();
    void LoadSegment();
    void LoadChild(GMkvElement& child);
    void LoadSeekHead(GMkvElement& child);
    void AddToIndex(const GMkvSeekHead::Entry& entry);
    void LoadFromIndex();
    void FollowSeekHead();
    std::optional<GMkvElement> FromIndex(std::uint32_t id);
    std::optional<std::int64_t> FromSegment(std::uint64_t relativePos) const;

    GMkvSeekIndex seekIndex;
};

}  // namespace vex
