// What OpenContainer makes of a file: its clock and its tracks.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "formats/mp4/mp4_track_builder.h"
#include "framework/contract/damage_log.h"
#include "io/file_base.h"
#include "io/result.h"

namespace vex {

struct Mp4Movie {
    std::uint32_t brand = 0;      // FourCC of "ftyp"; 0: none
    std::uint64_t size = 0;       // bytes of the file when it was opened
    std::uint64_t timescale = 0;  // units a second, not 0
    std::uint64_t duration = 0;   // units
    std::vector<Mp4TrackPtr> tracks;
};

// Tracks that cannot be built, and second video tracks, are left out; there may be none left. The error says what is
// wrong in words for people.
GResult<Mp4Movie> ReadMovie(GFileBase& source, GDamageLog& damage, const std::atomic<bool>& interrupted);

}  // namespace vex
