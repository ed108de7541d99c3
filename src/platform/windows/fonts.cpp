#include "platform/fonts.h"

#include "platform/types.h"

#include <limits>

namespace vex {
namespace {

using GAddFontMemResourceEx = HANDLE(WINAPI*)(void* data, DWORD bytes, void* reserved, DWORD* fonts);

// By name: the first systems that have gdi32.dll lack the function.
GAddFontMemResourceEx FindAddFont()
{
    const HMODULE gdi = LoadLibraryA("gdi32.dll");
    void (*const found)() = gdi ? reinterpret_cast<void (*)()>(GetProcAddress(gdi, "AddFontMemResourceEx")) : nullptr;
    return reinterpret_cast<GAddFontMemResourceEx>(found);
}

}  // namespace

std::uintptr_t AddProcessFont(std::span<const std::uint8_t> data)
{
    static const GAddFontMemResourceEx addFont = FindAddFont();
    if (!addFont || data.empty() || data.size() > std::numeric_limits<std::uint32_t>::max())
        return 0;
    DWORD fonts = 0;
    // The system copies the data and does not write to it.
    void* bytes = const_cast<std::uint8_t*>(data.data());
    return reinterpret_cast<std::uintptr_t>(addFont(bytes, static_cast<DWORD>(data.size()), nullptr, &fonts));
}

std::vector<std::size_t> ProcessFonts() { return {}; }

}  // namespace vex
