// Fonts that a media file brings along, made known to the process.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vex {

// Registers a font from memory for the rest of the process; 0 when the platform has no such facility or refuses it.
// On Windows gdi32's AddFontMemResourceEx; elsewhere an entry in the list below.
std::uintptr_t AddProcessFont(std::span<const std::uint8_t> data);

// Sizes in bytes of the fonts registered so far, in order; empty on Windows. Any thread.
std::vector<std::size_t> ProcessFonts();

}  // namespace vex
