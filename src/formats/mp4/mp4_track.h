// One track: its tables, its format, and the place reading has come to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/mp4/mp4_sample_tables.h"
#include "platform/pipeline.h"

namespace vex {

enum class GMp4Category : std::uint8_t { Video, Audio, Neither };

// How samples become packets.
enum class GMp4Packing : std::uint8_t {
    Varying,     // one sample, its size from the table
    Constant,    // one sample of constant size
    Group,       // up to kMaxGroup small samples of constant size, within a chunk
    Block,       // samplesPerPacket samples, coded in bytesPerFrame bytes
    WholeChunk,  // the same, but all of a chunk
    ChunkStart,  // one sample of constant size, which always lies at the chunk's start
};

// Samples in one packet of GMp4Packing::Group.
inline constexpr std::uint32_t kMaxGroup = 1024;

// Constant once built, but for the cursor and `reading`, which belong to the reader thread. TimeAtOffset may be called
// from any thread.
struct Mp4Track {
    std::uint32_t trackId = 0;
    bool ok = false;  // built completely
    bool enabled = false;
    GMp4Category category = GMp4Category::Neither;
    std::string language;    // three letters
    std::int32_t width = 0;  // pixels, of the track
    std::int32_t height = 0;
    std::uint64_t timescale = 0;  // units a second, not 0
    std::uint64_t duration = 0;   // units, as the file says
    Mp4SampleTables tables;

    // From the sample description.
    std::uint32_t entryType = 0;  // of the entry in use
    unsigned codec = 0;           // see mp4_codecs.h
    std::uint32_t blockAlign = 0;
    std::uint32_t maxBitRate = 0;  // bit/s
    std::uint32_t avgBitRate = 0;
    GMp4Packing packing = GMp4Packing::Varying;
    std::uint32_t samplesPerPacket = 0;  // Block and WholeChunk: not 0
    std::uint32_t bytesPerFrame = 0;
    WAVEFORMATEX wave{};              // audio
    BITMAPINFOHEADER bitmap{};        // video
    std::vector<std::uint8_t> extra;  // codec configuration that follows `wave` or `bitmap`
    bool swapBytes = false;           // exchange the bytes of each 16-bit word
    bool flipRaw = false;             // turn raw frames upside down

    bool reading = false;  // takes part in the interleaved read

    // Of the sample at the cursor. Requires !AtEnd().
    std::uint64_t SampleSize() const;    // bytes of the packet that it begins
    std::uint64_t SampleOffset() const;  // file position of that packet
    REFERENCE_TIME SampleTime() const { return cursor.time100ns; }
    bool IsSyncSample() const;

    bool AtEnd() const { return cursor.sample >= tables.sampleCount; }
    // Passes one packet; false at the end. Requires !AtEnd().
    bool AdvanceSample();
    // Goes to the last sync sample at or before `time` (100 ns, not negative), or to the first one; within a block or
    // chunk that is one packet, to its first sample. False, with the cursor where it was, when the track ends before
    // `time`.
    bool SeekTrack(REFERENCE_TIME time);
    // To the first sample.
    void Rewind();

    // The time up to which the bytes before file position `offset` hold the track, 100 ns; 0 when they hold nothing of
    // it.
    REFERENCE_TIME TimeAtOffset(std::uint64_t offset) const;
    // Of all samples, in timescale units.
    std::uint64_t TableDuration() const;

private:
    struct Mp4Cursor {
        std::uint32_t sample = 0;
        std::uint32_t chunk = 0;
        std::uint32_t syncIndex = 0;
        std::uint64_t offset = 0;  // bytes from the chunk's start
        GMp4TimeCursor time;
        REFERENCE_TIME time100ns = 0;
    };

    std::uint32_t PacketSamples() const;
    std::uint64_t OffsetInChunk(const Mp4Chunk& chunk, std::uint32_t sample) const;
    void Place(std::uint32_t sample, std::uint32_t chunk);

    Mp4Cursor cursor;
};

}  // namespace vex
