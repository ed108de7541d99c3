// MPEG audio frames (ISO/IEC 11172-3, 13818-3) as this reader takes them.
#pragma once

#include <cstdint>
#include <optional>

#include "media/mpeg_audio.h"
#include "platform/pipeline.h"

namespace vex {

struct GMp3Header {
    std::uint8_t layer = 0;       // 1 to 3
    bool lowFrequencies = false;  // MPEG-2 and 2.5: half as many samples in a frame
    bool mono = false;
    std::uint16_t frameSize = 0;   // bytes, header included
    std::uint32_t sampleRate = 0;  // Hz

    std::uint16_t Channels() const { return mono ? 1 : 2; }
    // The sampling rate of an MPEG-1 stream whose frames last as long: 1152 samples each.
    std::int64_t ScaledRate() const { return std::int64_t{sampleRate} << (lowFrequencies ? 1 : 0); }
};

// One frame of 1152 samples at 1 Hz, in units of 100 ns.
inline constexpr std::int64_t kMp3FrameUnits = 1152 * kUnitsPerSecond;

struct GMp3Syntax {
    using Header = GMp3Header;
    static constexpr std::size_t kHeaderSize = kMpegAudioHeaderSize;
    static constexpr std::size_t kMaxFrameSize = 2881;  // layer II, 160 kbit/s at 8 kHz
    static constexpr std::size_t kPayloadOffset = 0;
    static constexpr bool kNeedsSuccessor = false;
    static constexpr bool kLastStandsAlone = false;
    static constexpr const char* kNothingFound = "MP3 Handler Error, Can't Read Mp3 File Header[1]!\n";
    static constexpr const char* kNoHeader = "MP3 Handler Error, Can't Read Mp3 File Header[2]!\n";
    static constexpr const char* kNoNextHeader = "MP3 Header Error, Can't Read Mp3 File Header[3]!\n";

    // Free format has no frame size and is not taken. The reserved version counts as MPEG-2.5, and the reserved rate of
    // MPEG-1 and MPEG-2 as the first one of the next lower version.
    static std::optional<GMp3Header> Decode(GBytes bytes);
    static std::size_t FrameSize(const GMp3Header& header) { return header.frameSize; }
    static bool MayBegin(GBytes bytes)
    {
        return bytes.size() >= 3 && bytes[0] == 0xFF && (bytes[1] & 0xE0) == 0xE0 && (bytes[2] & 0xF0) != 0xF0;
    }
    // Truncated to 100 ns at every frame.
    static REFERENCE_TIME StopTime(const GMp3Header& header, REFERENCE_TIME start)
    {
        return start + kMp3FrameUnits / header.ScaledRate();
    }
};

}  // namespace vex
