// Samples that are not stored as a renderer wants them.
#pragma once

#include <cstdint>
#include <span>

namespace vex {

// Exchanges the bytes of every 16-bit word. An odd byte at the end stays.
void SwapBytes(std::span<std::uint8_t> samples);

// Exchanges the rows of a frame top with bottom and reverses the bytes of every pixel. Sizes in pixels and bytes; a
// frame of fewer rows than `height` is turned as far as whole rows are there.
void FlipFrame(std::span<std::uint8_t> frame, std::size_t width, std::size_t height, std::size_t bytesPerPixel);

}  // namespace vex
