// The navigation packs of a DVD: which title part (VOB) is where, and which presentation times it has. The times of
// every part begin anew.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "io/scan_window.h"
#include "platform/media_records.h"

namespace vex {

// Bytes of a navigation packet that are looked at.
inline constexpr std::size_t kNavigationBytes = 59;

// Data search information, a packet of private stream 2.
struct GNavigationEntry {
    std::uint32_t systemClock = 0;  // 90 kHz
    std::uint16_t vob = 0;
    std::uint32_t cellElapsed = 0;   // as coded
    REFERENCE_TIME framePeriod = 0;  // 100 ns; 0: not said
    std::uint32_t startPts = 0;      // of the part's video, 90 kHz
    std::uint32_t endPts = 0;
    std::int64_t position = 0;  // in the file
};

// Nothing for other packets of private stream 2.
std::optional<GNavigationEntry> ReadNavigationEntry(GBytes packet, std::int64_t position);

class GMpegNavigation {
public:
    // Takes the first entry, and one of the part behind the last. False for others.
    bool Append(const GNavigationEntry& entry);
    // Looks for the other parts of a file of several. Reads a bounded number of bytes, whatever the size of the file.
    void Extend(GScanWindow& window, std::int64_t fileSize);
    void Clear() { entries.clear(); }

    bool Empty() const { return entries.empty(); }
    // Whether `entry` belongs to another part than the first one.
    bool IsLater(const GNavigationEntry& entry) const { return !entries.empty() && entry.vob != entries.front().vob; }

    // A presentation time at `position` on one time line for all parts: that of the first one. The time itself when
    // there are not several.
    std::uint64_t Continuous(std::uint64_t pts, std::int64_t position) const;

private:
    // Of `entries`, the part that the time belongs to.
    std::size_t PartOf(std::uint64_t pts, std::int64_t position) const;

    std::vector<GNavigationEntry> entries;  // one for each part, in order of position
};

}  // namespace vex
