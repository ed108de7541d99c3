// A source filter that plays a script: what the host is tried against without any container.
#pragma once

#include <string>
#include <vector>

#include "host/module.h"
#include "platform/pipeline.h"

namespace vex::test {

inline constexpr CLSID kFakeClsid{0x8E1F3C00, 0x1111, 0x4222, {0x83, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}};

// Sample n starts at n times this, and lasts as long (100 ns).
inline constexpr REFERENCE_TIME kFakeSampleTime = 400'000;

struct GFakePin {
    WString name;
    std::uint32_t samples = 3;
    std::uint32_t sampleBytes = 16;
    bool hasTimes = true;
    bool hasStop = true;
    HRESULT failWith = S_OK;    // instead of the end of the stream
    bool skipsSegment = false;  // breaks the rules of delivery: no NewSegment
    bool endsTwice = false;     // end of stream is said twice
    bool neverEnds = false;     // after the samples nothing follows, not even the end
};

struct GFakeScript {
    std::vector<GFakePin> pins;
    HRESULT loadResult = S_OK;
    WString loadError;  // the error object's description; empty: none
};

// The module whose only filter plays `script` from now on. One script at a time.
GModule FakeModule(GFakeScript script);

// The payload of sample `number` of pin `pin`.
std::vector<std::uint8_t> FakePayload(std::size_t pin, std::uint32_t number, std::uint32_t bytes);

}  // namespace vex::test
