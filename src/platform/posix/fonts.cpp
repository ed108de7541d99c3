#include "platform/fonts.h"

#include "platform/threads.h"

namespace vex {
namespace {

struct GFontList {
    GMutex lock;
    std::vector<std::size_t> sizes G_GUARDED_BY(lock);
};

GFontList& Fonts()
{
    static GFontList list;
    return list;
}

}  // namespace

std::uintptr_t AddProcessFont(std::span<const std::uint8_t> data)
{
    if (data.empty())
        return 0;
    GFontList& list = Fonts();
    const GMutexLock held(list.lock);
    list.sizes.push_back(data.size());
    return list.sizes.size();
}

std::vector<std::size_t> ProcessFonts()
{
    GFontList& list = Fonts();
    const GMutexLock held(list.lock);
    return list.sizes;
}

}  // namespace vex
