// How much of an AVI file's data its chunk tables name.
#pragma once

#include <cstdint>

#include "formats/avi/avi_layout.h"
#include "io/file_base.h"

namespace vex {

struct GAviCoverage {
    std::int64_t named = 0;    // bytes of chunks in the tables, headers included
    std::int64_t unnamed = 0;  // bytes of other chunks of the streams, as far as they were looked for
};

// Fillers and index chunks between the named chunks are not data. Reads the headers of at most some thousands of
// chunks, and none where the tables leave little of the "movi" lists over. Moves the source.
GAviCoverage MeasureCoverage(GFileBase& source, const GAviLayout& layout);

}  // namespace vex
