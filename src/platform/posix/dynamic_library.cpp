#include "platform/dynamic_library.h"

#include <dlfcn.h>

#include <utility>

#include "platform/text_detail.h"

namespace vex {

GDynamicLibrary::GDynamicLibrary(GDynamicLibrary&& other) noexcept
    : handle(std::exchange(other.handle, nullptr)), lastError(std::move(other.lastError))
{
}

GDynamicLibrary& GDynamicLibrary::operator=(GDynamicLibrary&& other) noexcept
{
    std::swap(handle, other.handle);
    std::swap(lastError, other.lastError);
    return *this;
}

bool GDynamicLibrary::Open(WStringView path)
{
    Close();
    lastError.clear();
    handle = dlopen(detail::WithoutMark(NarrowPathFromWide(path).c_str()), RTLD_NOW | RTLD_LOCAL);
    if (handle)
        return true;
    const char* reason = dlerror();
    lastError = reason ? reason : "the library cannot be loaded";
    return false;
}

void GDynamicLibrary::Close()
{
    if (void* old = std::exchange(handle, nullptr))
        dlclose(old);
}

GDynamicLibrary::GAddress GDynamicLibrary::Address(const char* name) const
{
    return handle ? reinterpret_cast<GAddress>(dlsym(handle, name)) : nullptr;
}

}  // namespace vex
