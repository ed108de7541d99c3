#include "formats/mp4/mp4_transforms.h"

#include <algorithm>

namespace vex {

void SwapBytes(std::span<std::uint8_t> samples)
{
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2)
        std::swap(samples[i], samples[i + 1]);
}

void FlipFrame(std::span<std::uint8_t> frame, std::size_t width, std::size_t height, std::size_t bytesPerPixel)
{
    const std::size_t row = width * bytesPerPixel;
    if (row == 0)
        return;
    height = std::min(height, frame.size() / row);
    for (std::size_t top = 0; top < height / 2; ++top) {
        const auto upper = frame.subspan(top * row, row);
        std::ranges::swap_ranges(upper, frame.subspan((height - 1 - top) * row, row));
    }
    for (std::size_t pixel = 0; pixel < width * height; ++pixel)
        std::ranges::reverse(frame.subspan(pixel * bytesPerPixel, bytesPerPixel));
}

}  // namespace vex
