#include <string_view>

#include "platform/text.h"
#include "platform/threads.h"

namespace vex {

void SetCurrentThreadName(const char* name)
{
    using GSetThreadDescription = HRESULT(WINAPI*)(HANDLE thread, const WCHAR* description);
    // By name: kernel32.dll has it since Windows 10 only. Looked up every time: the guard of a static would enter the
    // toolchain's thread layer (see thread_primitives.h).
    const auto setDescription = reinterpret_cast<GSetThreadDescription>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "SetThreadDescription")));
    if (setDescription)
        setDescription(GetCurrentThread(), WideFromAnsi(std::string_view(name).substr(0, 15)).c_str());
}

}  // namespace vex
