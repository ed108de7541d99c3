// Builders of video media types. Each makes a type of MEDIATYPE_Video with samples of variable size and temporal
// compression (change these afterwards where a format differs), and may throw std::bad_alloc. The reading counterpart
// is codec_tags.h (GetBitmapHeader) and SequenceHeader below.
#pragma once

#include <cstdint>
#include <optional>

#include "dshow/media_type.h"
#include "io/bytes.h"

namespace vex {

// One plane; biSize is 40, all other fields are 0.
BITMAPINFOHEADER MakeBitmapHeader(LONG width, LONG height, WORD bitCount, std::uint32_t compression);

// Without a format block.
CMediaType MakeVideoType(REFGUID subtype);

// FORMAT_VideoInfo: `info` (its biSize is not changed), then `behind`: palette, masks or codec configuration.
CMediaType MakeVideoInfoType(REFGUID subtype, const VIDEOINFOHEADER& info, GBytes behind);

// FORMAT_MPEGVideo: `info`, its cbSequenceHeader replaced, then the sequence header. The block has at least
// sizeof(MPEG1VIDEOINFO) bytes.
CMediaType MakeMpeg1VideoType(REFGUID subtype, const MPEG1VIDEOINFO& info, GBytes sequenceHeader);
// FORMAT_MPEG2Video, likewise: at least sizeof(MPEG2VIDEOINFO) bytes, and at least `blockSize`; what the sequence
// header leaves is zero. For H.264 the sequence header holds the parameter sets (avc_record.h) and dwFlags the bytes of
// a NAL unit's length.
CMediaType MakeMpeg2VideoType(REFGUID subtype, const MPEG2VIDEOINFO& info, GBytes sequenceHeader,
                              std::size_t blockSize = 0);

// A FORMAT_VideoInfo type as FORMAT_VideoInfo2, with room for the picture aspect ratio; all else is the same. A type
// without a valid major type when `type` is not FORMAT_VideoInfo or its block is too short.
CMediaType MakeVideoInfo2Twin(const CMediaType& type, DWORD aspectX, DWORD aspectY);

// Set a field of a finished block, when its format type has one there; else they do nothing.
void SetFrameTime(CMediaType& type, REFERENCE_TIME timePerFrame);  // 100 ns; all four video format types
void SetAspect(CMediaType& type, DWORD aspectX, DWORD aspectY);    // VideoInfo2 and MPEG2Video

// The sequence header of a FORMAT_MPEGVideo or FORMAT_MPEG2Video block; nothing for another format type and for a block
// that does not hold it as a whole.
std::optional<GBytes> SequenceHeader(const CMediaType& type);

}  // namespace vex
