// The logical streams of a file, from the pages at its start.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "formats/ogg/ogg_stream.h"
#include "framework/contract/damage_log.h"
#include "io/file_base.h"
#include "io/result.h"

namespace vex {

// In order of discovery.
using GOggStreams = std::vector<std::unique_ptr<GOGG2ReadStream>>;

// Null when there is none.
GOGG2ReadStream* FindStream(const GOggStreams& streams, std::uint32_t serial);
// The first video stream; null when there is none.
GOGG2ReadStream* FirstVideo(const GOggStreams& streams);

// The streams that begin within the first 128 KiB and have all their headers there. An error when there is none, with
// the names of the codecs that were met. Moves the source.
GResult<GOggStreams> ReadOggHeaders(GFileBase& source, GDamageLog& damage);

}  // namespace vex
