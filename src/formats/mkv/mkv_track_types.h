// What a track becomes outside: a pin name and an ordered list of media types.
#pragma once

#include <span>
#include <vector>

#include "formats/mkv/mkv_file.h"
#include "framework/contract/read_handler.h"

namespace vex {

struct GMkvDescribedTrack {
    const GMkvTrack* track = nullptr;  // owned by the file
    GStreamInfo info;
    GBuffer decodedPrivate;  // CodecPrivate with the content encodings taken off
};

// One entry per track that a pin can be made for, in file order. Describing the first subtitle track makes the fonts
// among the attachments known to the process.
std::vector<GMkvDescribedTrack> DescribeMkvTracks(GMkvFile& file);

// The media types of one kind of track, most wanted first; empty when the codec is unknown or its private data do not
// hold what the type needs. `codecPrivate` is decoded.
std::vector<CMediaType> MkvVideoTypes(const GMkvTrack& track, std::span<const std::uint8_t> codecPrivate);
std::vector<CMediaType> MkvAudioTypes(const GMkvTrack& track, std::span<const std::uint8_t> codecPrivate);
std::vector<CMediaType> MkvSubtitleTypes(const GMkvTrack& track, std::span<const std::uint8_t> codecPrivate);

// CodecID as text; the comparisons are byte for byte.
std::string_view MkvCodecId(const GMkvTrack& track);

}  // namespace vex
