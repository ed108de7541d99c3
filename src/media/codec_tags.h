// What a media type or the first bytes of a payload say about the codec.
#pragma once

#include <cstdint>
#include <span>

#include "platform/media_records.h"

namespace vex {

// Copies the bitmap header out of a video type's format block (VideoInfo, VideoInfo2, MPEGVideo, MPEG2Video).
// False, with `header` untouched, for a missing type, another format type, or a block too short to hold one.
bool GetBitmapHeader(const AM_MEDIA_TYPE* type, BITMAPINFOHEADER* header);

// The subtype that the platform gives a bitmap: the FourCC GUID of biCompression; for BI_RGB and BI_BITFIELDS one
// of the RGB subtypes by depth, or GUID_NULL when there is none for that depth.
GUID SubtypeFromBitmap(const BITMAPINFOHEADER& header);

// The same, with the bytes that follow the 40 bytes of the header. When it is a BI_BITFIELDS one they start with
// the colour masks, which tell RGB555 from RGB565 and RGB32 from ARGB32; masks that fit none of them give
// GUID_NULL.
GUID SubtypeFromBitmap(const BITMAPINFOHEADER& header, std::span<const std::uint8_t> behind);

// Whether a video payload starts at a key frame, as far as its first bytes tell. `fourCC` as FourCC makes it;
// letters count as they are. Unknown codecs and payloads of fewer than 8 bytes are key frames.
bool IsKeyFrame(std::uint32_t fourCC, std::span<const std::uint8_t> payload);

}  // namespace vex
