// Where reading must start for a time: by the Cues, or by a walk over the Clusters.
#pragma once

#include <cstdint>

#include "formats/mkv/mkv_demux.h"
#include "framework/contract/read_handler.h"

namespace vex {

// The number of the track whose key frames are looked for: the first video track, else the first audio track, else 1.
std::uint64_t MkvSeekTrack(const GMkvFile& file);

// Sets the file's `cluster` and `startBlock` for `target` (100 ns from the first Cluster's time). Returns the position
// reached on the same clock: the target, or with KeyFrame in a file with Cues the time of the first key frame behind
// it. Where nothing suits, reading starts at the first Cluster. Reads headers only.
std::int64_t SeekMkv(GMkvFile& file, const GMkvBlockStats& stats, std::int64_t target, GSeekMode mode);

}  // namespace vex
