// Makes tracks out of the box tree.
#pragma once

#include <memory>
#include <vector>

#include "formats/mp4/mp4_box.h"
#include "formats/mp4/mp4_track.h"
#include "framework/contract/damage_log.h"

namespace vex {

using Mp4TrackPtr = std::unique_ptr<Mp4Track>;

// A track out of a "trak" box, or null when something is missing. Takes the tables out of the tree. `shift` is added to
// all chunk offsets.
Mp4TrackPtr BuildTrack(Mp4Box& trak, std::uint64_t shift, GDamageLog& damage);

// Of two video tracks the one with fewer chunks goes (the later one of equals), then the next position is looked at.
void RemoveDuplicateVideo(std::vector<Mp4TrackPtr>& tracks);

}  // namespace vex
