#include "platform/posix/curl_library.h"

#include <dlfcn.h>

namespace vex {
namespace {

template <class Function>
bool Find(void* library, const char* name, Function& function)
{
    function = reinterpret_cast<Function>(::dlsym(library, name));
    return function != nullptr;
}

GCurl Load()
{
    GCurl curl;
    void* library = ::dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!library) {
        curl.error = "libcurl.so.4 cannot be loaded (Debian package libcurl4)";
        return curl;
    }
    decltype(&::curl_global_init) globalInit = nullptr;
    decltype(&::curl_version_info) versionInfo = nullptr;
    const bool complete =
        Find(library, "curl_global_init", globalInit) && Find(library, "curl_version_info", versionInfo) &&
        Find(library, "curl_easy_init", curl.easyInit) && Find(library, "curl_easy_setopt", curl.easySetOption) &&
        Find(library, "curl_easy_getinfo", curl.easyGetInfo) && Find(library, "curl_easy_strerror", curl.easyError) &&
        Find(library, "curl_easy_cleanup", curl.easyCleanup) && Find(library, "curl_multi_init", curl.multiInit) &&
        Find(library, "curl_multi_add_handle", curl.multiAdd) &&
        Find(library, "curl_multi_remove_handle", curl.multiRemove) &&
        Find(library, "curl_multi_perform", curl.multiPerform) && Find(library, "curl_multi_poll", curl.multiPoll) &&
        Find(library, "curl_multi_wakeup", curl.multiWakeup) &&
        Find(library, "curl_multi_info_read", curl.multiInfoRead) &&
        Find(library, "curl_multi_cleanup", curl.multiCleanup) && Find(library, "curl_slist_append", curl.listAppend) &&
        Find(library, "curl_slist_free_all", curl.listFree);
    // Without it a name look-up would block the transfer, and Abort with it.
    constexpr int kNeeded = CURL_VERSION_ASYNCHDNS;
    if (!complete)
        curl.error = "libcurl is too old";
    else if ((versionInfo(CURLVERSION_NOW)->features & kNeeded) == 0)
        curl.error = "libcurl was built without asynchronous name look-up";
    else if (globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK)
        curl.error = "libcurl cannot be initialised";
    return curl;
}

}  // namespace

const GCurl& Curl()
{
    static const GCurl curl = Load();
    return curl;
}

}  // namespace vex
