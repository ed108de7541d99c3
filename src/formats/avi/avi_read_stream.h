// One stream of an AVI file: the table of its chunks and the place where reading has come to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "formats/avi/avi_stream_format.h"
#include "platform/threads.h"

namespace vex {

struct GAviChunk {
    std::int64_t position = 0;  // of the first payload byte
    std::uint32_t size = 0;     // bytes
    bool keyFrame = false;
    std::uint64_t bytesBefore = 0;  // payload bytes of all earlier chunks of the stream
};

// A chunk with its header, as positions in the file.
struct GAviExtent {
    std::int64_t start = 0;
    std::int64_t end = 0;
};

// The chunk to be delivered next, with its times in 100 ns.
struct GAviTimedChunk {
    GAviChunk chunk;
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
};

// Which entries an index may add behind those there are. An index in file order only ever moves forward; a list of
// chunks may name one twice, which shows a frame for longer.
enum class GAviAppend : std::uint8_t { Beyond, NotBefore };

// Built by one thread while the headers are read. From then on the format and the number are constant and the rest is
// for any thread: the scanner appends, the reader takes chunks and seeks.
class GAvi2ReadStream {
public:
    // Streams beyond these have no chunk code that could name them. The last one's tens digit is a ':'.
    static constexpr std::size_t kMaxStreams = 101;

    // Header reading only.
    GAviStreamFormat& EditFormat() { return format; }
    void SetNumber(std::size_t index);
    void SetAnnouncedLength(std::uint64_t units) { announcedLength = units; }

    const GAviStreamFormat& Format() const { return format; }
    // The two ASCII digits that begin the codes of the stream's chunks: tens in the low byte, units in the next.
    std::uint32_t Digits() const { return digits; }
    // The whole code that its chunks are expected to have.
    std::uint32_t ChunkId() const { return chunkId; }
    // What the super index says of the whole stream, in units of the rate, when there is one.
    REFERENCE_TIME DurationAtOpen() const;

    // False when the entry does not lie where `rule` wants it; it is dropped then.
    bool Append(std::int64_t position, std::uint32_t size, bool keyFrame, GAviAppend rule) G_EXCLUDES(lock);
    bool IsEmpty() const G_EXCLUDES(lock);
    // Forgets all entries. Header reading only.
    void Clear() G_EXCLUDES(lock);
    // Of all entries, with the headers of their chunks.
    std::int64_t NamedBytes() const G_EXCLUDES(lock);
    void AddExtents(std::vector<GAviExtent>& extents) const G_EXCLUDES(lock);
    REFERENCE_TIME Duration() const G_EXCLUDES(lock);

    // The time by which the next chunk is to be read: audio one second ahead. Nothing when no chunk is left.
    std::optional<REFERENCE_TIME> DueTime() const G_EXCLUDES(lock);
    std::optional<GAviTimedChunk> NextChunk() const G_EXCLUDES(lock);
    void Advance() G_EXCLUDES(lock);

    // To the whole second of `time`; video to the key frame at or before it.
    void SeekTo(REFERENCE_TIME time) G_EXCLUDES(lock);
    // To the first key frame at or after the whole second of `time`; returns its time, or the end of the stream's.
    REFERENCE_TIME SeekToKeyFrameFrom(REFERENCE_TIME time) G_EXCLUDES(lock);

private:
    std::size_t PlaceOfLocked(REFERENCE_TIME time) const G_REQUIRES(lock);
    std::size_t PlaceOfByteLocked(std::uint64_t target, std::size_t otherwise) const G_REQUIRES(lock);
    std::uint64_t BytesLocked() const G_REQUIRES(lock);
    REFERENCE_TIME StartTimeLocked() const G_REQUIRES(lock);

    GAviStreamFormat format;
    std::uint32_t digits = 0;
    std::uint32_t chunkId = 0;
    std::optional<std::uint64_t> announcedLength;

    mutable GMutex lock;  // Guards what follows.
    std::vector<GAviChunk> table G_GUARDED_BY(lock);
    std::size_t cursor G_GUARDED_BY(lock) = 0;  // index of the next chunk; the count when exhausted
};

}  // namespace vex
