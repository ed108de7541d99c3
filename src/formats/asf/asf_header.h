// The Header Object of an ASF file and what lies around it: properties, streams, languages, exclusions, the extent of
// the data packets.
#pragma once

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/asf/asf_read_stream.h"
#include "framework/contract/damage_log.h"
#include "io/file_base.h"
#include "io/result.h"

namespace vex {

// Packets shorter than this cannot hold their own header.
inline constexpr std::uint32_t kAsfSmallestPacket = 11;  // bytes

// Which streams are never to be played together.
class GAsfExclusions {
public:
    using GNumbers = std::bitset<kAsfStreamNumbers>;

    // Every stream excludes every other one.
    void ExcludeEach(const GNumbers& numbers);
    // Streams of different groups exclude each other.
    void ExcludeGroup(const GNumbers& group, const GNumbers& earlierGroups);
    bool Excludes(std::uint16_t one, std::uint16_t other) const;

private:
    std::array<GNumbers, kAsfStreamNumbers> excluded;
};

// Of one Simple Index Object.
struct GAsfSimpleIndex {
    std::uint64_t interval = 0;          // 100 ns between entries
    std::vector<std::uint32_t> packets;  // the entries' packet numbers
};

using GAsfStreams = std::vector<std::unique_ptr<GAsfEXReadStream>>;

// Times in 100 ns, positions from the start of the file.
struct GAsfHeader {
    REFERENCE_TIME playDuration = 0;  // preroll included; 0 when the file does not say
    REFERENCE_TIME preroll = 0;
    bool broadcast = false;
    std::uint32_t packetSize = 0;  // bytes

    GAsfStreams streams;  // in header order
    GAsfExclusions exclusions;

    std::int64_t dataStart = 0;  // of the first packet
    std::int64_t dataEnd = 0;    // behind the last packet; kAsfUntilFileEnd when the file does not say
    std::vector<GAsfSimpleIndex> simpleIndexes;

    // Behind the last packet of a file of so many bytes.
    std::int64_t DataEnd(std::int64_t fileSize) const { return dataEnd < fileSize ? dataEnd : fileSize; }
    // What no object or packet may exceed, bytes.
    std::uint64_t DataSize(std::int64_t fileSize) const;
};

inline constexpr std::int64_t kAsfUntilFileEnd = INT64_MAX;

// Reads the header, the extent of the data and the indexes behind it. `interrupted` ends the search for indexes.
GResult<GAsfHeader> ReadAsfHeader(GFileBase& source, GDamageLog& damage, const std::atomic<bool>& interrupted);

}  // namespace vex
