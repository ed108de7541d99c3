// From a track's codec to the media type of its pin.
#pragma once

#include "dshow/media_type.h"
#include "formats/mp4/mp4_track.h"

namespace vex {

// A type that is not valid when there is none for the codec. Of raw video it also corrects track.bitmap, which the
// turning of its frames needs. May throw std::bad_alloc.
CMediaType MakeMp4MediaType(Mp4Track& track);

}  // namespace vex
