// What arrived at one pin, in order.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/md5.h"
#include "host/sink_pin.h"
#include "platform/threads.h"

namespace vex::wintest {

struct GSampleRecord {
    std::optional<LONGLONG> start, stop;            // 100 ns, relative to the segment
    std::optional<LONGLONG> mediaStart, mediaStop;  // 100000 times coarser
    long size = 0;                                  // bytes
    bool sync = false, discontinuity = false, preroll = false;
    GMd5Digest md5{};
    std::vector<std::uint8_t> bytes;  // empty unless they are kept

    bool operator==(const GSampleRecord&) const = default;
};

// One object in a line, with the keys that the command's own dump uses; `pin` counts the filter's pins from 0.
std::string ToJson(std::size_t pin, const GSampleRecord& sample);

// What a log keeps of the samples: each with its bytes or without, or the first few and a digest of all bytes.
enum class GKept { Bytes, Digest, First };

// Filled by a streaming thread, read by the test.
class GPinLog {
public:
    static constexpr std::size_t kFirst = 3;

    GPinLog(std::string pinName, GKept ofPayloads) : name(std::move(pinName)), kept(ofPayloads) {}
    const std::string name;

    void Add(const GSampleView& sample);
    void AddSegment(REFERENCE_TIME start);
    void AddEndOfStream();
    void Clear();

    // Waits for so many samples since Clear; throws when they do not come.
    void WaitForSamples(std::size_t count);

    std::vector<GSampleRecord> Samples() const;
    std::size_t Arrived() const;                         // samples since Clear
    std::optional<REFERENCE_TIME> SegmentStart() const;  // of the last NewSegment, 100 ns; a grabber sees none
    std::size_t EndsOfStream() const;
    GMd5Digest Digest() const;  // GKept::First: of the bytes of all samples since Clear

private:
    const GKept kept;
    mutable GMutex lock;  // Guards what follows.
    GCondition changed;
    std::vector<GSampleRecord> samples;
    GMd5 all;
    std::size_t arrived = 0;
    std::optional<REFERENCE_TIME> segmentStart;
    std::size_t endsOfStream = 0;
};

}  // namespace vex::wintest
