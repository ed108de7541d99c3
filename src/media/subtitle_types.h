// The media type of subtitles: FORMAT_SubtitleInfo, a fixed part of 520 bytes and the codec's own header.
#pragma once

#include <string_view>

#include "dshow/media_type.h"
#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kSubtitleInfoSize = 520;  // bytes

// MEDIATYPE_Subtitle. `language`: ISO 639-2, of which three characters count; `name`: of which 255 count.
CMediaType MakeSubtitleType(REFGUID subtype, std::string_view language, WStringView name, GBytes codecHeader);

// The bytes behind the fixed part; empty for another format type.
GBytes SubtitleCodecHeader(const CMediaType& type);

}  // namespace vex
