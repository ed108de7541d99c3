#include "platform/registry.h"
#include "platform/text.h"

namespace vex {

HRESULT GetOwnModulePath(WString& path)
{
    HMODULE module = nullptr;
    if (!GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<const char*>(&GetOwnModulePath), &module))
        return HResultFromOsError(GetLastError());
    // The result goes into the registry and is loaded from there, so it is the ANSI form even where another exists.
    char ansi[MAX_PATH] = {};
    SetLastError(ERROR_SUCCESS);
    const DWORD length = GetModuleFileNameA(module, ansi, MAX_PATH);
    if (length == 0)
        return HResultFromOsError(GetLastError());
    if (length >= MAX_PATH)  // cut off, which the oldest systems do not count as an error
        return HResultFromOsError(ERROR_INSUFFICIENT_BUFFER);
    path = WideFromAnsi({ansi, length});
    return S_OK;
}

}  // namespace vex
