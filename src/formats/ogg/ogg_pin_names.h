// The names of the Ogg filters' pins.
#pragma once

#include <cstddef>
#include <string>

#include "platform/types.h"

namespace vex {

enum class GOggPinNames : std::uint8_t {
    First,   // the first filter: numbered by the stream's 0-based place in the file
    Second,  // the second filter: not numbered
};

// "Audio / English" when there is a language, else "Audio 1" or "Audio"; "Video 0" or "Video" whatever the language.
WString OggPinName(GOggPinNames names, REFGUID majorType, std::size_t stream, const std::string& language);

}  // namespace vex
