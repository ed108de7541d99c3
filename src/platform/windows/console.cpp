#include "platform/console.h"

#include "platform/types.h"

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <utility>

#include "platform/text.h"
#include "platform/threads.h"

namespace vex {
namespace {

// How long the end of a console window, of a session or of the system waits for a program is up to the system: about
// five seconds, less when many programs end.
constexpr DWORD kEndWaitMs = 4000;

std::atomic<bool> noted{false};

GNativeMutex watchLock;
std::function<void()>* watching = nullptr;  // guarded by watchLock; null without a watch
CAMEvent watchEnded{true};

BOOL WINAPI OnControl(DWORD event)
{
    if (noted.exchange(true))
        return FALSE;
    {
        const std::lock_guard held(watchLock);
        if (watching)
            (*watching)();
    }
    // After any other event the system ends the program as soon as this returns.
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        watchEnded.Wait(kEndWaitMs);
    return TRUE;
}

}  // namespace

GInterruptWatch::GInterruptWatch(std::function<void()> onInterrupt)
{
    {
        const std::lock_guard held(watchLock);
        watching = new std::function<void()>(std::move(onInterrupt));
    }
    watchEnded.Reset();
    SetConsoleCtrlHandler(OnControl, TRUE);
}

GInterruptWatch::~GInterruptWatch()
{
    SetConsoleCtrlHandler(OnControl, FALSE);
    {
        const std::lock_guard held(watchLock);
        delete std::exchange(watching, nullptr);
    }
    watchEnded.Set();
}

bool WasInterrupted() { return noted; }

void EndIfInterrupted()
{
    constexpr UINT kControlCExit = 0xC000013A;
    if (noted)
        ExitProcess(kControlCExit);
}

std::vector<std::string> CommandLineArguments(int argc, const char* const* argv)
{
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!wide)
        return {argv, argv + argc};
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i)
        arguments.push_back(Utf8FromWide(wide[i]));
    LocalFree(wide);
    return arguments;
}

void PrepareStandardOutput()
{
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
}

bool StandardErrorIsTerminal() { return _isatty(_fileno(stderr)) != 0; }

}  // namespace vex
