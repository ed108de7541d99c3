// One elementary stream: what it is, when it starts, and how its packets are put together.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "dshow/media_type.h"
#include "formats/mpeg/mpeg_times.h"
#include "formats/mpeg/pes_assembler.h"

namespace vex {

// Kinds below Ac3 are pictures.
enum class GMpeg2Kind : std::uint8_t { MpegVideo, Avc, Vc1, Ac3 = 5, Dts, Aac, Lpcm, MpegAudio };

constexpr bool IsPicture(GMpeg2Kind kind) { return kind < GMpeg2Kind::Ac3; }

// A class for each codec is in mpeg_video_streams.h and mpeg_audio_streams.h.
class GMpeg2ReadStream {
public:
    explicit GMpeg2ReadStream(GMpeg2Kind streamKind) : kind(streamKind) {}
    virtual ~GMpeg2ReadStream() = default;
    GMpeg2ReadStream(const GMpeg2ReadStream&) = delete;
    GMpeg2ReadStream& operator=(const GMpeg2ReadStream&) = delete;

    // In order of preference.
    virtual std::vector<CMediaType> MediaTypes() const = 0;
    // Whether a decoder may start with this payload.
    virtual bool IsSyncPoint(GBytes payload) const
    {
        static_cast<void>(payload);
        return true;
    }
    // Bytes at the start of every payload that are not the codec's. `subStream`: of private stream 1 in a program
    // stream, else 0.
    virtual std::size_t HeaderBytes(std::uint8_t subStream) const
    {
        static_cast<void>(subStream);
        return 0;
    }

    // The time that a packet with this presentation time starts at, 100 ns; and in the order of the file.
    REFERENCE_TIME TimeOf(std::uint64_t pts) const
    {
        return firstPts ? TimeFromTicks(PtsAfter(*firstPts, pts) - *firstPts) : 0;
    }
    REFERENCE_TIME NextTime(std::uint64_t pts)
    {
        const std::int64_t ticks = clock.Unwrap(pts);
        if (!firstPts)
            firstPts = ticks;
        return TimeFromTicks(ticks - *firstPts);
    }
    // Reading starts anew, at the start of the file or behind a seek.
    void Reset(bool atStart)
    {
        clock.Restart(firstPts);
        assembler->Reset(atStart);
    }

    const GMpeg2Kind kind;
    std::uint32_t number = 0;              // PID; stream id with the sub-stream below it
    std::uint16_t id = 0;                  // PID, stream id or sub-stream number, as pins show it
    std::optional<std::int64_t> firstPts;  // 90 kHz: the smallest one met when the file was opened
    std::string language;                  // ISO 639-2, or empty
    std::optional<std::uint8_t> streamType;
    std::vector<std::uint8_t> configuration;  // the header that the stream was found by

    std::unique_ptr<GPesAssembler> assembler;
    bool wanted = true;

private:
    GPtsClock clock;
};

using GMpeg2StreamPtr = std::unique_ptr<GMpeg2ReadStream>;

// What a parser makes of a payload.
struct GMpegParse {
    GMpeg2StreamPtr stream;  // null: not this codec
    bool cut = false;        // it may be, but its headers do not end in these bytes
};

}  // namespace vex
