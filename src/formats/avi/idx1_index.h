// The legacy index at the end of an AVI file.
#pragma once

#include "formats/avi/avi_layout.h"
#include "framework/contract/damage_log.h"
#include "io/file_base.h"
#include "io/result.h"

namespace vex {

// Fills the tables that are still empty from the "idx1" chunk. An error leaves them as they were, or no stream with an
// entry: the index is of no use then.
GStatus LoadIdx1(GFileBase& source, const GRiffChunk& chunk, GAviLayout& layout, GDamageLog& damage);

}  // namespace vex
