// The class factory shared by all filters of the module, over a table of templates, and its registration routine.
#pragma once

#include <span>

#include "dshow/unknown.h"
#include "platform/registry.h"

namespace vex {

// Creates an object: its non-delegating unknown with no reference, or null with `*result` saying why.
using GCreateFunction = CUnknown* (*)(IUnknown* outer, HRESULT* result);

struct CFactoryTemplate {
    const WCHAR* name;
    CLSID clsid;
    GCreateFunction create;
    GFilterRegistration setup;
};

// The four exports over a table; the table outlives all objects.
HRESULT GetClassObject(std::span<const CFactoryTemplate> table, REFCLSID rclsid, REFIID riid, void** ppv);
HRESULT CanUnloadNow();
// Writes ("CLSID\{...}" with "InprocServer32") or removes the registration of every template; the first failure ends
// it. Removing deletes the keys only when the filter mapper let go of every filter.
HRESULT RegisterServer(std::span<const CFactoryTemplate> table, bool install);

}  // namespace vex
