// Takes off what was put on a track's data before it was stored: zlib compression and stripped headers.
#pragma once

#include <cstdint>
#include <memory>

#include "formats/mkv/mkv_records.h"
#include "framework/contract/packet.h"

namespace vex {

// Bytes that one compressed frame or CodecPrivate may expand to. 1 KB of zlib data can hold a megabyte of nothing; the
// largest honest frame is an uncompressed 4K picture of 33 MB.
inline constexpr std::size_t kMaxInflatedSize = 64u << 20;

// Keeps zlib's state and a buffer from one frame to the next. One thread at a time; throws std::bad_alloc only.
class GMkvContentDecoder {
public:
    GMkvContentDecoder();
    ~GMkvContentDecoder();
    GMkvContentDecoder(const GMkvContentDecoder&) = delete;
    GMkvContentDecoder& operator=(const GMkvContentDecoder&) = delete;

    // Applies to `data` the track's encodings whose scope has one of `scopeBits` (GMkvContentEncoding::kFrames,
    // kPrivate). False when one cannot be undone; the data are then as the last step that succeeded left them.
    bool Decode(const GMkvTrack& track, std::uint64_t scopeBits, GBuffer& data);

private:
    struct GInflater;

    bool Inflate(GBuffer& data);
    static void AddHeader(const GMkvBytes& header, GBuffer& data);

    std::unique_ptr<GInflater> inflater;  // made for the first compressed frame
    GBuffer scratch;
};

}  // namespace vex
