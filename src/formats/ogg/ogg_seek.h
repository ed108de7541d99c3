// Duration and positions of an Ogg file, which has no index, from the granules of its pages.
#pragma once

#include <atomic>
#include <cstdint>

#include "formats/ogg/ogg_header_scan.h"
#include "io/file_base.h"

namespace vex {

// 100 ns, of the last page that a stream of `streams` has with a granule above 0; 0 when the last 32 MiB hold none.
// Moves the source.
REFERENCE_TIME FindOggDuration(GFileBase& source, const GOggStreams& streams, const std::atomic<bool>& interrupted);

// A position to read from, in bytes, so that `time` comes within 8 KiB and a page; by interpolation between pages, over
// a file of `duration` (both 100 ns). Moves the source. 0 when it is interrupted.
std::int64_t FindOggPosition(GFileBase& source, const GOggStreams& streams, REFERENCE_TIME time,
                             REFERENCE_TIME duration, const std::atomic<bool>& interrupted);

}  // namespace vex
