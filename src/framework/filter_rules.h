// What differs between the source filters, as data. One row per filter, in its format's folder; everything else is the
// frame's.
#pragma once

#include <cstdint>
#include <limits>

#include "platform/pipeline.h"

namespace vex {

inline constexpr std::uint64_t kMiB = 1024 * 1024;
inline constexpr std::uint64_t kNoUpperClamp = std::numeric_limits<std::uint64_t>::max();

// When a pin's queue is full. Both limits are tested before a packet is appended, so that one oversized packet always
// fits into an empty queue.
struct GQueueLimits {
    std::uint32_t packets = 300;             // at most
    std::uint64_t minimumBytes = 8 * kMiB;   // payload bytes; the limit proper is 1.5 x lSampleSize of the pin's type,
    std::uint64_t maximumBytes = 80 * kMiB;  // clamped to these two: equal ones make it fixed, kNoUpperClamp opens it

    constexpr std::uint64_t ByteLimit(std::uint32_t sampleSize) const
    {
        const std::uint64_t wanted = static_cast<std::uint64_t>(sampleSize) * 3 / 2;
        if (wanted < minimumBytes)
            return minimumBytes;
        return wanted > maximumBytes ? maximumBytes : wanted;
    }
};

enum class GMediaTimeRule : std::uint8_t {
    Packet,  // the packet's media times
    None,    // samples carry none
};

enum class GPrerollRule : std::uint8_t {
    UpToZero,    // a sample at exactly the segment's start is preroll too
    BeforeZero,  // only samples before it
    Never,
};

enum class GSyncRule : std::uint8_t {
    FirstOrKeyFrame,  // the first sample of a segment counts as a sync point whatever it holds
    KeyFrame,
};

enum class GSeekRelay : std::uint8_t {
    EveryPin,       // each pin's seek counts, unless it asks for the position already reached
    OncePerTarget,  // the same target from another pin is the same seek relayed
};

enum class GSegmentEnd : std::uint8_t {
    Stop,      // a segment ends at the stop position
    Duration,  // at the end of the file, whatever the stop position
};

// How a pin gets a larger buffer for a payload that does not fit.
enum class GResizeRule : std::uint8_t {
    FlushPeerOrAbort,  // the peer is flushed first; a failure ends the stream with EC_ERRORABORT
    Abort,             // no flush; a failure ends the stream with EC_ERRORABORT
    DropOnFailure,     // no flush; a failure costs the packet only
};

enum class GEmptyPayloads : std::uint8_t {
    Skip,
    Deliver,
};

struct GFilterRules {
    GQueueLimits queue{};
    GMediaTimeRule mediaTimes = GMediaTimeRule::Packet;
    GPrerollRule preroll = GPrerollRule::UpToZero;
    GSyncRule sync = GSyncRule::FirstOrKeyFrame;
    GSeekRelay seekRelay = GSeekRelay::EveryPin;
    GSegmentEnd segmentEnd = GSegmentEnd::Stop;
    GResizeRule resize = GResizeRule::FlushPeerOrAbort;
    GEmptyPayloads emptyPayloads = GEmptyPayloads::Skip;
    REFERENCE_TIME minimumRange = 0;  // 100 ns; the stop position of a new pin is at least this
    bool firstVideoOnly = false;      // later video streams get no pin
    bool seekOptions = false;         // a host may set the key-frame and preroll options
    bool prerollAtFirst = true;       // the preroll option of a new filter
};

}  // namespace vex
