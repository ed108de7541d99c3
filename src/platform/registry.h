// The class part of the system registry (HKEY_CLASSES_ROOT) and the filter mapper.
//
// On Windows both are the system's own. Elsewhere they are kept as one text file, `registry.txt`, in the directory that
// VEX_REGISTRY_DIR names (default: $XDG_DATA_HOME/vex or ~/.local/share/vex), rewritten whole at each change.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/types.h"

namespace vex {

// Keys are paths below the classes root with '\' between the parts; names and keys compare without case (outside
// Windows: without ASCII case). A key that is empty or has an empty part is E_INVALIDARG, never the root itself. Any
// thread; a change is seen whole by other processes or not at all.
class GClassesRoot {
public:
    // Creates the key (and its parents) if absent and sets a string value; an empty name is the default value.
    static HRESULT SetString(WStringView key, WStringView name, WStringView value);
    static std::optional<WString> GetString(WStringView key, WStringView name);
    // Deletes the key with everything below it; a missing key is S_OK.
    static HRESULT DeleteTree(WStringView key);
    static std::vector<WString> SubKeys(WStringView key);
};

// What the mapper keeps of one pin.
struct GPinRegistration {
    const WCHAR* name;
    bool rendered;
    bool output;
    bool zeroInstances;
    bool manyInstances;
};

struct GFilterRegistration {
    CLSID clsid;
    const WCHAR* name;
    std::uint32_t merit;
    std::span<const GPinRegistration> pins;
};

// An open connection to the filter mapper (COM is initialised on the calling thread while it lives).
class GFilterMapper {
public:
    GFilterMapper();
    ~GFilterMapper();
    GFilterMapper(const GFilterMapper&) = delete;
    GFilterMapper& operator=(const GFilterMapper&) = delete;

    // Why the mapper cannot be used, or S_OK.
    HRESULT Status() const { return status; }
    HRESULT Register(const GFilterRegistration& filter);
    // A filter that is not registered is S_OK.
    HRESULT Unregister(REFCLSID clsid);

private:
    HRESULT status;
    [[maybe_unused]] bool initialised = false;
    [[maybe_unused]] void* mapper2 = nullptr;  // IFilterMapper2, or null
    [[maybe_unused]] void* mapper1 = nullptr;  // the older IFilterMapper, or null
};

// Full path of the module that holds this code; fails when it does not fit 260 characters in the ANSI code page.
HRESULT GetOwnModulePath(WString& path);

}  // namespace vex
