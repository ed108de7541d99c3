// The AVCDecoderConfigurationRecord ("avcC", ISO/IEC 14496-15 clause 5.2.4.1) as a list of facts, and the form in which
// an MPEG2VIDEOINFO carries parameter sets.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "io/bytes.h"

namespace vex {

// The spans lie in the bytes of the record.
struct GAvcRecord {
    std::uint8_t profile = 0;
    std::uint8_t level = 0;
    std::uint8_t lengthSize = 0;  // bytes of a NAL unit's length in the payloads, 1 to 4

    // The sets that are whole, each without its length, empty ones included. Reading stops at the first one that is
    // cut.
    std::vector<GBytes> sequenceSets;
    std::vector<GBytes> pictureSets;
    std::uint8_t declaredPictureSets = 0;  // 0 to 255, all eight bits; 0 when the count itself is cut off
    bool complete = false;                 // both counts and all the sets they declare were there
};

// Nothing when the record ends within its first six bytes. Any version is read.
std::optional<GAvcRecord> ReadAvcRecord(GBytes avcC);

// Sequence sets, then picture sets, each behind a length of 2 bytes, most significant first: the sequence header of an
// MPEG2VIDEOINFO of subtype "AVC1". A set of more than 65535 bytes is left out.
std::vector<std::uint8_t> AvcSequenceHeader(std::span<const GBytes> sequenceSets, std::span<const GBytes> pictureSets);

}  // namespace vex
