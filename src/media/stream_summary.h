// A stream in the words of its users: codec, profile, picture and sound, out of its media type.
#pragma once

#include <cstdint>
#include <string>

#include "platform/media_records.h"

namespace vex {

// What the media type tells; 0 or empty where it does not.
struct GStreamSummary {
    std::string kind;              // "video", "audio", "subtitle", "text", "stream" or "other"
    std::string codec;             // "H.264", "AAC", or the subtype's short name
    std::string profile;           // "Main@3.0", "LC"
    std::uint32_t width = 0;       // pixels
    std::uint32_t height = 0;      // pixels
    double frameRate = 0;          // frames per second
    std::uint32_t sampleRate = 0;  // Hz
    std::uint32_t channels = 0;
    std::uint64_t bitRate = 0;  // bits per second
};

GStreamSummary SummariseStream(const AM_MEDIA_TYPE& type);

// "H.264 Main@3.0, 640x360, 30 fps, 8.0 Mb/s": what is known, in one line.
std::string SummaryText(const GStreamSummary& summary);

}  // namespace vex
