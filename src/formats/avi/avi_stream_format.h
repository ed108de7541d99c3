// What the headers of one AVI stream say: its kind, its clock and its media type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "dshow/media_type.h"
#include "io/fourcc.h"
#include "platform/pipeline.h"

namespace vex {

// Filled while the headers are read, constant from then on.
class GAviStreamFormat {
public:
    static constexpr std::size_t kHeaderSize = 56;  // bytes of "strh" that have a meaning

    // The body of "strh"; what lies behind its 56 bytes is ignored, what is missing counts as zero.
    void SetHeader(std::span<const std::uint8_t> body);
    // The body of "strf", from which the rate follows, with the help of the "strh" seen so far.
    void SetFormat(std::vector<std::uint8_t> body);

    bool IsVideo() const { return type == FourCC("vids"); }
    bool IsAudio() const { return type == FourCC("auds"); }
    // biCompression, 0 when there is none.
    std::uint32_t Compression() const;
    // Positions of the stream count payload bytes and not chunks.
    bool CountsBytes() const { return IsAudio() && (sampleSize != 0 || rate > 1000.0); }
    // Time of the position before chunk `index`, with `bytes` payload bytes before it. 0 for a stream of rate 0.
    REFERENCE_TIME TimeAt(std::uint64_t index, std::uint64_t bytes) const;
    // The position at a whole number of seconds, in chunks or bytes.
    std::uint64_t PositionAt(std::uint64_t seconds) const;

    // The largest payload to be expected, in bytes; 0 when nothing is known.
    std::uint32_t BufferSize() const;
    // Empty for a stream that is neither video nor audio, or whose format lacks fields that every format has.
    CMediaType MediaType() const;

private:
    // All zero for a stream of another kind and for a format that lacks fields that every format has.
    BITMAPINFOHEADER Bitmap() const;
    WAVEFORMATEX Wave() const;
    CMediaType VideoType() const;
    CMediaType AudioType() const;

    std::uint32_t type = 0;
    std::uint32_t scale = 0;
    std::uint32_t ticksPerScale = 0;  // dwRate
    std::uint32_t suggestedBufferSize = 0;
    std::uint32_t sampleSize = 0;
    double rate = 1.0;  // frames, blocks or bytes per second; never negative, infinite or not a number
    std::vector<std::uint8_t> format;
};

}  // namespace vex
