// A shared library loaded at run time.
#pragma once

#include <string>

#include "platform/types.h"

namespace vex {

// Stays loaded from Open until Close or destruction. One thread at a time.
class GDynamicLibrary {
public:
    GDynamicLibrary() = default;
    ~GDynamicLibrary() { Close(); }
    GDynamicLibrary(GDynamicLibrary&& other) noexcept;
    GDynamicLibrary& operator=(GDynamicLibrary&& other) noexcept;
    GDynamicLibrary(const GDynamicLibrary&) = delete;
    GDynamicLibrary& operator=(const GDynamicLibrary&) = delete;

    // False, with the reason in LastError, when the system cannot load the file.
    bool Open(WStringView path);
    void Close();
    bool IsOpen() const { return handle != nullptr; }

    // Address of an exported function; null when the library has none of that name.
    template <class Function>
    Function Symbol(const char* name) const
    {
        return reinterpret_cast<Function>(Address(name));
    }

    // Why the last Open failed, UTF-8.
    const std::string& LastError() const { return lastError; }

private:
    using GAddress = void (*)();
    GAddress Address(const char* name) const;

    void* handle = nullptr;
    std::string lastError;
};

}  // namespace vex
