#include <dlfcn.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "platform/posix/os_error.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace vex {
namespace {

struct GFree {
    void operator()(char* text) const { ::free(text); }
};

}  // namespace

HRESULT GetOwnModulePath(WString& path)
{
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&GetOwnModulePath), &info) == 0 || !info.dli_fname)
        return HResultFromOsError(kErrorModNotFound);
    // For a program the loader only knows what it was called by, which need not be a path.
    std::unique_ptr<char, GFree> full(::realpath(info.dli_fname, nullptr));
    if (!full)
        full.reset(::realpath("/proc/self/exe", nullptr));
    if (!full)
        return HResultFromErrno(errno);
    const std::string_view found(full.get());
    if (found.size() >= MAX_PATH)
        return HResultFromOsError(kErrorInsufficientBuffer);
    path = WideFromNarrowPath(found);
    return S_OK;
}

}  // namespace vex
