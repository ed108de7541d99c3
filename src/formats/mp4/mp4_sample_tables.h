// Where the samples of one track lie, how long they last, and which of them are sync samples (ISO/IEC 14496-12, clauses
// 8.6 and 8.7).
#pragma once

#include <cstdint>
#include <vector>

#include "formats/mp4/mp4_box.h"
#include "formats/mp4/mp4_table.h"
#include "framework/contract/damage_log.h"

namespace vex {

// Samples that lie one behind the other.
struct Mp4Chunk {
    std::uint64_t offset = 0;  // absolute file position; at most the largest signed number
    GMp4TimeCursor start;      // the place in "stts" of its first sample
    std::uint32_t firstSample = 0;
    std::uint32_t sampleCount = 0;

    std::uint64_t FirstDts() const { return start.Dts(); }
    std::uint32_t EndSample() const { return firstSample + sampleCount; }  // at most the track's sampleCount
};

// Immutable once built. A sample counts when "stts", "stsz" and a chunk have it; the first one that does not ends the
// track.
struct Mp4SampleTables {
    GMp4Table durations;            // "stts": count, delta
    GMp4Table sizes;                // "stsz" of varying sizes
    GMp4Table syncSamples;          // "stss", from 1
    bool hasSyncTable = false;      // without one every sample is a sync sample
    std::uint32_t sampleSize = 0;   // bytes; 0: sizes vary
    std::uint32_t sampleCount = 0;  // those that count
    std::vector<Mp4Chunk> chunks;   // in the order of the table; none is empty
    std::uint32_t chunkCount = 0;   // of the table
    std::uint32_t description = 0;  // of the first chunk, from 1; 0: none

    std::uint32_t SizeOf(std::uint32_t sample) const
    {
        return sampleSize != 0 ? sampleSize : sample < sizes.Count() ? sizes.U32(sample) : 0;
    }
    // From 0. An entry of 0, which no file should have, is a sample that no track has.
    std::uint32_t SyncSample(std::uint32_t index) const { return syncSamples.U32(index) - 1; }
    // The chunk that holds `sample`, which counts.
    std::uint32_t ChunkOf(std::uint32_t sample) const;
    // The last chunk that starts at or before `dts`. There must be a chunk.
    std::uint32_t ChunkAt(std::uint64_t dts) const;
    // Of "stss"; their number when there is none.
    std::uint32_t FirstSyncNotBelow(std::uint32_t sample) const;
};

// Takes the tables out of an "stbl" box. `shift` is added to all chunk offsets. False when a table that a track needs
// is missing or cannot be.
bool BuildSampleTables(Mp4Box& stbl, std::uint64_t shift, Mp4SampleTables& tables, GDamageLog& damage);

}  // namespace vex
