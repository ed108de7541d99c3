// libcurl, loaded when it is first used: a program that plays local files does without it and the thirty libraries that
// come with it, which would double the time and the memory of a start.
#pragma once

#include <curl/curl.h>

namespace vex {

// Constant once it was loaded; any thread.
struct GCurl {
    const char* error = nullptr;  // why there is no libcurl that will do; the functions are null then
    decltype(&::curl_easy_init) easyInit = nullptr;
    decltype(&::curl_easy_setopt) easySetOption = nullptr;
    decltype(&::curl_easy_getinfo) easyGetInfo = nullptr;
    decltype(&::curl_easy_strerror) easyError = nullptr;
    decltype(&::curl_easy_cleanup) easyCleanup = nullptr;
    decltype(&::curl_multi_init) multiInit = nullptr;
    decltype(&::curl_multi_add_handle) multiAdd = nullptr;
    decltype(&::curl_multi_remove_handle) multiRemove = nullptr;
    decltype(&::curl_multi_perform) multiPerform = nullptr;
    decltype(&::curl_multi_poll) multiPoll = nullptr;
    decltype(&::curl_multi_wakeup) multiWakeup = nullptr;
    decltype(&::curl_multi_info_read) multiInfoRead = nullptr;
    decltype(&::curl_multi_cleanup) multiCleanup = nullptr;
    decltype(&::curl_slist_append) listAppend = nullptr;
    decltype(&::curl_slist_free_all) listFree = nullptr;
};

// It stays loaded for the rest of the process, because an abandoned name look-up may still run in it.
const GCurl& Curl();

}  // namespace vex
