// The module whose filters a host creates: linked into the program, or loaded from its file.
#pragma once

#include <memory>
#include <string>

#include "platform/com.h"
#include "platform/dynamic_library.h"

namespace vex {

// The entry points a host needs. Copies share the loaded library, which stays loaded while one of them lives.
struct GModule {
    using GGetClassObject = HRESULT(STDMETHODCALLTYPE*)(REFCLSID, REFIID, LPVOID*);
    using GCanUnloadNow = HRESULT(STDMETHODCALLTYPE*)();

    GGetClassObject getClassObject = nullptr;
    GCanUnloadNow canUnloadNow = nullptr;
    std::shared_ptr<GDynamicLibrary> library;

    bool IsUsable() const { return getClassObject && canUnloadNow; }
};

// The functions that are linked into this program.
GModule LinkedModule();

// The functions of the module at `path`; unusable, with the reason in `error` (UTF-8), when it cannot be loaded.
GModule LoadModule(WStringView path, std::string& error);

}  // namespace vex
