#include "framework/contract/index_thread.h"

#include <new>

namespace vex {

namespace {

constexpr DWORD kStopRequest = 0;

}  // namespace

bool GIndexThread::Start(std::unique_ptr<GFileBase> closedSource, const std::string& path)
{
    file = std::move(closedSource);
    filePath = path;
    stopping.store(false, std::memory_order_release);
    // Before the thread runs: a reader that finds the index empty must not take that for the end.
    state.store(GState::Scanning, std::memory_order_release);
    if (file && Create())
        return true;
    state.store(GState::Finished, std::memory_order_release);
    return false;
}

void GIndexThread::Stop()
{
    stopping.store(true, std::memory_order_release);
    CallWorker(kStopRequest);
    Close();
}

DWORD GIndexThread::ThreadProc()
{
    SetCurrentThreadName(name);
    try {
        if (file->Open(filePath.c_str()) != 0)
            Build(*file);
    } catch (const std::bad_alloc&) {
        OutOfMemory();
    }
    file->Close();
    SetState(GState::Finished);
    Reply(0);
    return 0;
}

std::uint64_t GIndexThread::Progress() const
{
    const GMutexLock held(lock);
    return progress;
}

void GIndexThread::WaitForProgress(std::uint64_t seen, std::chrono::milliseconds longest) const
{
    GMutexLock held(lock);
    const auto deadline = GSteadyClock::now() + longest;
    while (progress == seen && held.WaitUntil(advanced, deadline)) {}
}

void GIndexThread::Advanced()
{
    const GMutexLock held(lock);
    ++progress;
    advanced.notify_all();
}

void GIndexThread::SetState(GState next)
{
    if (state.exchange(next, std::memory_order_acq_rel) != next)
        Advanced();
}

}  // namespace vex
