// Media types in words, for people and for comparison in tests.
#pragma once

#include <string>
#include <vector>

#include "media/property.h"
#include "platform/media_records.h"

namespace vex {

// "{73646976-0000-0010-8000-00aa00389b71}"
std::string GuidText(REFGUID id);

// A short name: "video", "audio", "text", "subtitle", "stream", "none"; otherwise the GUID's text.
std::string MajorTypeName(REFGUID id);
// A name of ours ("RGB24", "Vorbis"), the known name of a wave format tag ("PCM") or its number ("0x1234"), the
// FourCC when its characters can be printed ("XVID"), otherwise the GUID's text.
std::string SubtypeName(REFGUID id);
// "VideoInfo", "WaveFormatEx", "none" ...; otherwise the GUID's text.
std::string FormatTypeName(REFGUID id);

// The fields of a format block, in the block's order. A field that does not lie in the block as a whole is left
// out, with all that follow; a format type without a layout known here gives nothing. Lengths are shown as declared
// ("extra_size" of a wave format, "sequence_header_size"), but the "extra_size" of the others counts the bytes that
// are there.
std::vector<GProperty> FormatFields(const AM_MEDIA_TYPE& type);

}  // namespace vex
