// Vorbis comments, read by libvorbis.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "formats/ogg/ogg_stream.h"

struct vorbis_comment;

namespace vex {

// Of a comment block that libvorbis has filled.
std::vector<GOggComment> ListComments(const vorbis_comment& block);

// `packet` is a comment header: a type byte, a signature of six characters, then the comments (Vorbis I, 5.2.1).
// Nothing when libvorbis refuses it. `framed`: the comments end with the framing bit, which those of Theora lack.
std::optional<std::vector<GOggComment>> ReadComments(GBytes packet, bool framed);

// The value of the first comment of that lower-case name; empty when there is none.
std::string_view FindComment(const std::vector<GOggComment>& comments, std::string_view name);

}  // namespace vex
