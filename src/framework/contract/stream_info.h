// What a read handler says of the streams and attachments of its file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dshow/media_type.h"
#include "media/property.h"
#include "platform/pipeline.h"

namespace vex {

// A file carried inside the file. The bytes stay there until they are asked for.
struct GAttachmentInfo {
    std::string name;  // UTF-8
    std::string mimeType;
    std::string description;  // UTF-8
    std::uint64_t size = 0;   // bytes, already checked against the file's size
};

// A sample that a pin delivers by itself ahead of its data after every start: a codec header, or the empty text that
// lets a subtitle renderer begin. Its times are not moved by seeks or rates; it carries no media times.
struct GLeadSample {
    std::vector<std::uint8_t> data;
    REFERENCE_TIME start = 0;  // 100 ns
    REFERENCE_TIME stop = 0;
    bool sync = false;
    bool discontinuity = false;
};

// Who takes a stream's packets.
enum class GStreamTarget : std::uint8_t {
    Pin,
    Filter,  // no pin: CVexFilter::TakePacket
};

// Fixed from Open to Close.
struct GStreamInfo {
    std::uint32_t number = 0;            // GPacket2::stream of its packets
    std::vector<CMediaType> mediaTypes;  // in order of preference; none (or a first one of GUID_NULL): no pin
    std::string language;                // English name, or empty
    WString pinName;                     // what a host shows
    WString pinId;                       // what QueryId gives; empty: the pin's 1-based number
    std::vector<GProperty> properties;
    GStreamTarget target = GStreamTarget::Pin;
    std::vector<GLeadSample> leadSamples;
    std::uint32_t minimumBuffer = 0;  // bytes; the pin asks its peer for buffers of at least this size
    bool dropBeforeSegment = false;   // packets that start before the segment's start are not delivered
};

}  // namespace vex
