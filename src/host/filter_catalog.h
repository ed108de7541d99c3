// The filters of the module as a host knows them, and how the one for a file is found.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/types.h"

namespace vex {

struct GFilterEntry {
    std::string_view shortName;    // "avi"
    std::string_view displayName;  // as registered
    CLSID clsid;
    std::string_view container;   // "AVI"; empty for a second filter of a container, which is only taken by name
    std::string_view formats;     // what it reads, in words
    std::string_view extensions;  // lower case, each between blanks: " avi divx "
};

// In the order in which the module registers them.
std::span<const GFilterEntry> FilterCatalog();

// The bytes from a file's start that FindByContent can make use of.
inline constexpr std::size_t kContentProbeBytes = 64 * 1024;

// By short name, display name or class identifier (with or without braces), letters in either case; null when unknown.
const GFilterEntry* FindByName(std::string_view name);
// By the first bytes of a file; null when they tell nothing.
const GFilterEntry* FindByContent(std::span<const std::uint8_t> start);
// By a path's extension; null when it has none that is known.
const GFilterEntry* FindByExtension(std::string_view path);

// The braced text of a class identifier, lower case.
std::string ClsidText(REFCLSID clsid);

}  // namespace vex
