// The two ways to reach a filter: through its registration, or through the exports of the module file.
#pragma once

#include <string>

#include "platform/com.h"

namespace vex::wintest {

class GModuleAccess {
public:
    // A path loads that file and asks its exports; "registered" leaves all to CoCreateInstance.
    explicit GModuleAccess(const std::wstring& pathOrRegistered);
    ~GModuleAccess();
    GModuleAccess(const GModuleAccess&) = delete;
    GModuleAccess& operator=(const GModuleAccess&) = delete;

    HRESULT Create(REFCLSID clsid, REFIID iid, void** out) const;
    // DllCanUnloadNow of the loaded module; of a registered one, once it was created from.
    HRESULT CanUnloadNow() const;

private:
    HMODULE Module() const;
    HMODULE module = nullptr;  // null: registered
};

}  // namespace vex::wintest
