#include <iterator>

#include "platform/threads.h"

namespace vex {

void SetCurrentThreadName(const char* name)
{
    using GSetThreadDescription = HRESULT(WINAPI*)(HANDLE thread, const WCHAR* description);
    // By name: kernel32.dll has it since Windows 10 only.
    const auto setDescription = reinterpret_cast<GSetThreadDescription>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "SetThreadDescription")));
    if (!setDescription)
        return;
    WCHAR wide[16] = {};
    for (std::size_t i = 0; i + 1 < std::size(wide) && name[i] != 0; ++i)
        wide[i] = static_cast<unsigned char>(name[i]);
    setDescription(GetCurrentThread(), wide);
}

void LowerCurrentThreadPriority() { SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL); }

}  // namespace vex
