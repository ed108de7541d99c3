// COM on a thread of the module.
#pragma once

#include "platform/com.h"

namespace vex {

#ifdef _WIN32

// Puts the calling thread into the multithreaded apartment for a scope: a peer that is called on it may create objects.
// To live on the stack of the thread's outermost function.
class GComApartment {
public:
    GComApartment() : entered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~GComApartment()
    {
        if (entered)
            CoUninitialize();
    }
    GComApartment(const GComApartment&) = delete;
    GComApartment& operator=(const GComApartment&) = delete;

private:
    const bool entered;
};

#else

// Threads need no preparation for COM here.
class [[maybe_unused]] GComApartment {};

#endif

}  // namespace vex
