// What the parser finds in an AVI file: its streams and where their data lies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "formats/avi/avi_read_stream.h"
#include "formats/avi/riff_walker.h"
#include "io/file_base.h"

namespace vex {

// A "movi" list.
struct GAviMoviRange {
    std::int64_t start = 0;   // position of the list type "movi"
    std::int64_t end = 0;     // kRiffEndUnknown when neither the list nor its RIFF says
    bool endGuessed = false;  // the list did not say: what follows its data may have to be told by its code
};

enum class GAviIndex : std::uint8_t { None, OpenDml, Idx1 };

struct GAviLayout {
    static constexpr std::uint32_t kNoReferenceStream = 255;

    // The stream that a chunk code belongs to, by its two digits; null when there is none.
    GAvi2ReadStream* FindStream(std::uint32_t code) const;

    std::vector<std::unique_ptr<GAvi2ReadStream>> streams;  // in header order
    std::vector<GAviMoviRange> moviRanges;                  // in file order
    std::uint32_t microSecPerFrame = 0;
    std::uint32_t totalFrames = 0;
    std::uint32_t referenceVideoStream = kNoReferenceStream;  // digits of the last video stream

    GAviIndex index = GAviIndex::None;  // what filled the tables; None: they need a scan
    std::int64_t unnamedBytes = 0;      // of data that the index leaves out, as far as known
    bool indexRefused = false;          // the OpenDML index points beyond the end of the file: no index is believed
    std::int64_t expectedEnd = 0;       // then, how far the file is to grow
    bool singleRiff = false;            // no second RIFF can follow
    std::int64_t firstRiffEnd = 0;      // kRiffEndUnknown for a recording cut off while being written
};

// The end of a RIFF of `size` bytes at `position`; kRiffEndUnknown for the sizes that a writer leaves behind that
// never came to fill them in.
std::int64_t RiffEnd(std::int64_t position, std::uint32_t size);

// The range of the "movi" list `list` inside a RIFF that ends at `riffEnd`. A list of size 0 that is followed by data
// reaches to there.
GAviMoviRange MoviRangeOf(GFileBase& source, const GRiffChunk& list, std::int64_t riffEnd);

}  // namespace vex
