#include "windows/resources.h"

#include "windows/support.h"

#include <tlhelp32.h>

namespace vex::wintest {

namespace {

// GetProcessHandleCount is an empty shell under Wine, and reading the system's table of all handles makes Wine's server
// crash now and then when another program starts or ends. So every value is tried that a handle may have: the system
// gives the lowest that is free.
unsigned long CountHandles()
{
    constexpr ULONG_PTR kStep = 4, kMostHandles = 2'000;
    unsigned long count = 0;
    for (ULONG_PTR value = kStep; value <= kStep * kMostHandles; value += kStep) {
        DWORD flags;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) ? 1 : 0;
    }
    return count;
}

unsigned long CountThreads()
{
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    Require(snapshot != INVALID_HANDLE_VALUE, "threads cannot be listed");
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    unsigned long count = 0;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    CloseHandle(snapshot);
    return count;
}

}  // namespace

std::string GResources::Text() const
{
    return std::to_string(handles) + " handles, " + std::to_string(threads) + " threads";
}

GResources CountResources() { return {CountHandles(), CountThreads()}; }

GResources SettledResources(const GResources& limit)
{
    constexpr ULONGLONG kQuietMs = 1'000;
    GResources now = CountResources();
    ULONGLONG since = GetTickCount64();
    while (!now.Within(limit) && GetTickCount64() - since < kQuietMs) {
        Sleep(20);
        const GResources next = CountResources();
        if (next.handles != now.handles || next.threads != now.threads)
            since = GetTickCount64();
        now = next;
    }
    return now;
}

namespace {

DWORD WINAPI WaitFor(void* event) { return WaitForSingleObject(event, INFINITE); }

GResources DuringAThreadsLife()
{
    // The system's own thread: the C++ library keeps handles of the first few of its own for the next ones.
    const HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE thread = CreateThread(nullptr, 0, WaitFor, go, 0, nullptr);
    const GResources during = CountResources();
    SetEvent(go);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    CloseHandle(go);
    return during;
}

}  // namespace

void ProveTheCounters()
{
    const GResources before = CountResources();
    const GResources during = DuringAThreadsLife();
    Require(during.handles > before.handles && during.threads == before.threads + 1,
            "the counters do not see a new event and a new thread (" + before.Text() + " -> " + during.Text() + ")");
    const GResources after = SettledResources(before);
    Require(after.Within(before), "the counters do not see them go (" + before.Text() + " -> " + after.Text() + ")");
}

}  // namespace vex::wintest
