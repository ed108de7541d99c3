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

// What a sample said of itself; `data` is empty.
struct GSampleRecord : GSampleView {
    std::size_t size = 0;  // bytes
    GMd5Digest md5{};
    std::vector<std::uint8_t> bytes;  // empty unless they are kept
};

// One object in a line, with the keys that the command's own dump uses; `pin` counts the filter's pins from 0.
std::string ToJson(std::size_t pin, const GSampleRecord& sample);
inline bool operator==(const GSampleRecord& a, const GSampleRecord& b) { return ToJson(0, a) == ToJson(0, b); }

// What a log keeps of the samples: each with its bytes or without, or the first few and a digest of all bytes.
enum class GKept { Bytes, Digest, First };

struct GArrival {
    std::optional<REFERENCE_TIME> segment;  // start of the last, 100 ns; a grabber sees none
    std::vector<GSampleRecord> samples;     // those that are kept
    std::size_t count = 0;                  // of all samples
    std::size_t endsOfStream = 0;
    GMd5 all;  // GKept::First: the bytes of all samples
};

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
    GArrival Arrived() const;  // since Clear

private:
    const GKept kept;
    mutable GMutex lock;  // Guards what follows.
    GCondition changed;
    GArrival arrived;
};

}  // namespace vex::wintest
