// BITMAPINFOHEADER and WAVEFORMATEX as files store them: little-endian, packed.
#pragma once

#include <optional>

#include "io/bytes.h"
#include "platform/media_records.h"

namespace vex {

inline constexpr std::size_t kBitmapHeaderSize = 40;
inline constexpr std::size_t kWaveHeaderSize = 18;
inline constexpr std::size_t kWaveFieldsSize = 16;  // without cbSize, which an old PCM format may lack

// The header at the start of `bytes`, biSize as stored; nothing when fewer than 40 bytes are there. The bytes behind it
// are bytes.subspan(kBitmapHeaderSize).
std::optional<BITMAPINFOHEADER> ReadBitmapHeader(GBytes bytes);

struct GWaveFormat {
    WAVEFORMATEX header{};  // cbSize as stored: it may exceed extra.size()
    GBytes extra;           // the bytes behind the header, at most cbSize; lies in the bytes that were read
    bool whole = false;     // at least the 16 bytes before cbSize were there
};

// Fields that do not lie in `bytes` as a whole are 0.
GWaveFormat ReadWaveFormat(GBytes bytes);

}  // namespace vex
