// A fact about a file or a stream, as a host shows it.
#pragma once

#include <cstdint>
#include <string>

namespace vex {

// Names are lower case with '_' ("title", "default") and stable.
struct GProperty {
    enum class Type : std::uint8_t { Text, Integer, Boolean };
    std::string name;
    Type type = Type::Text;
    std::string value;  // UTF-8; an integer in decimal; a boolean as "true" or "false"
};

}  // namespace vex
