// Packets of one logical stream on Ogg pages (RFC 3533).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "tools/vex/framers.h"

namespace vex {

class GOggWriter {
public:
    // `granule` is the position at the packet's end.
    void Packet(std::span<const std::uint8_t> bytes, std::int64_t granule, const GByteSink& out);
    // Ends the page, if it holds anything. The last one of a stream says so.
    enum class GLast : std::uint8_t { No, Yes };
    void EndPage(GLast last, const GByteSink& out);

private:
    static constexpr std::size_t kMostSegments = 255;
    static constexpr std::size_t kPageBytes = 8192;  // a page of that size or more is ended with the packet
    static constexpr std::int64_t kNoGranule = -1;   // no packet ends on the page

    void AddSegment(std::span<const std::uint8_t> bytes, const GByteSink& out);

    std::vector<std::uint8_t> segments;  // the lacing values of the page
    std::vector<std::uint8_t> body;
    std::int64_t pageGranule = kNoGranule;
    std::uint32_t pageNumber = 0;
    bool continued = false;  // the page begins inside a packet
};

}  // namespace vex
