// How output pins are called in a host's stream menus.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/types.h"

namespace vex {

enum class GPinKind : std::uint8_t { Video, Audio, Subtitle, Other };

// The names of the AVI filter's pins: "Video", "Audio 01", "Subtitle 02", "Stream 03"; with a language
// "Audio 01/ German". `stream` is the number in the name, `language` UTF-8. The video pin has neither number nor
// language.
WString AviPinName(GPinKind kind, std::uint32_t stream, std::string_view language = {});

}  // namespace vex
