#include "platform/dynamic_library.h"

#include <utility>

#include "platform/file.h"
#include "platform/text.h"

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
    handle = LoadLibraryW(WString(path).c_str());
    if (handle)
        return true;
    lastError = Utf8FromWide(path) + ": " + DescribeOsError(GetLastError());
    return false;
}

void GDynamicLibrary::Close()
{
    if (void* old = std::exchange(handle, nullptr))
        FreeLibrary(static_cast<HMODULE>(old));
}

GDynamicLibrary::GAddress GDynamicLibrary::Address(const char* name) const
{
    return handle ? reinterpret_cast<GAddress>(GetProcAddress(static_cast<HMODULE>(handle), name)) : nullptr;
}

}  // namespace vex
