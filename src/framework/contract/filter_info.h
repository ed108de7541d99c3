// What the module and a host know of a filter before one is created.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/types.h"

namespace vex {

// Constant data, one record per filter, in its format's folder.
struct GFilterInfo {
    const char* shortName;     // "avi"; unique, lower case
    const WCHAR* displayName;  // as registered
    CLSID clsid;
    const char* container;   // "AVI"; empty for a second filter of a container, which a host only takes by name
    const char* formats;     // what it reads, in words
    const char* extensions;  // lower case, each between blanks: " avi divx "
    // Whether a file that starts with these bytes (up to 64 KiB) is of this container; null: never asked.
    bool (*recognises)(std::span<const std::uint8_t> start);
    // Whether this path, UTF-8, is a URL that the filter downloads; null: it takes none.
    bool (*takesUrl)(std::string_view path) = nullptr;
};

}  // namespace vex
