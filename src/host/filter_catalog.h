// The filters of the module as a host knows them, and how the one for a file is found.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "framework/contract/filter_info.h"

namespace vex {

// In the order in which the module registers them.
std::span<const GFilterInfo* const> FilterCatalog();

// The bytes from a file's start that FindByContent can make use of.
inline constexpr std::size_t kContentProbeBytes = 64 * 1024;

// By short name, display name or class identifier (with or without braces), letters in either case; null when unknown.
const GFilterInfo* FindByName(std::string_view name);
// By the first bytes of a file; null when they tell nothing.
const GFilterInfo* FindByContent(std::span<const std::uint8_t> start);
// The one that downloads this path, UTF-8, because it is a URL; null when it is none.
const GFilterInfo* FindByUrl(std::string_view path);
// By a path's extension; null when it has none that is known.
const GFilterInfo* FindByExtension(std::string_view path);

// The name as registered, UTF-8.
std::string DisplayName(const GFilterInfo& info);

// The braced text of a class identifier, lower case.
std::string ClsidText(REFCLSID clsid);

}  // namespace vex
