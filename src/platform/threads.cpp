#include "platform/threads.h"

#include <new>
#include <system_error>

#include "platform/com_apartment.h"
#include "platform/trace.h"

namespace vex {
namespace {

GSteadyClock::time_point DeadlineAfter(DWORD timeoutMs)
{
    return GSteadyClock::now() + std::chrono::milliseconds(timeoutMs);
}

}  // namespace

// Notified with the lock held: the waiter may destroy the event as soon as it has the lock.
void CAMEvent::Set()
{
    const GMutexLock held(lock);
    signalled = true;
    if (manualReset)
        changed.notify_all();
    else
        changed.notify_one();
}

void CAMEvent::Reset()
{
    const GMutexLock held(lock);
    signalled = false;
}

bool CAMEvent::Wait(DWORD timeoutMs)
{
    GMutexLock held(lock);
    if (timeoutMs == INFINITE) {
        while (!signalled)
            held.Wait(changed);
    } else if (!signalled && timeoutMs != 0) {
        const auto deadline = DeadlineAfter(timeoutMs);
        while (!signalled && held.WaitUntil(changed, deadline)) {}
    }
    const bool passed = signalled;
    if (!manualReset)
        signalled = false;
    return passed;
}

CAMThread::~CAMThread() { Close(); }

bool CAMThread::Create()
{
    const GMutexLock held(lock);
    if (exists)
        return false;
    try {
        thread = GNativeThread([this] { Run(); });
    } catch (const std::system_error&) {
        return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    // The new thread cannot end before this: its end needs the lock.
    ended = false;
    exists = true;
    return true;
}

void CAMThread::Close()
{
    GNativeThread own;
    {
        GMutexLock held(lock);
        if (!exists)
            return;
        if (!thread.joinable()) {
            const std::uint32_t before = closed;
            while (closed == before)
                held.Wait(changed);
            return;
        }
        own = std::move(thread);
    }
    own.join();

    const GMutexLock held(lock);
    ++closed;
    exists = false;
    changed.notify_all();
}

bool CAMThread::IsWorker() const { return workerId.load(std::memory_order_relaxed) == ThisThreadId(); }

void CAMThread::Run()
{
    workerId.store(ThisThreadId(), std::memory_order_relaxed);
    try {
        const GComApartment apartment;
        ThreadProc();
    } catch (...) {
        Trace("A worker thread ended by an exception\n");
    }
    workerId.store({}, std::memory_order_relaxed);

    const GMutexLock held(lock);
    ended = true;
    // Answered here and not by the caller's noticing `ended`: before it wakes a new thread may have been created.
    ReplyLocked(kNoWorker);
}

DWORD CAMThread::CallWorker(DWORD request)
{
    if (IsWorker())
        return kNoWorker;
    const std::lock_guard<GNativeMutex> oneCaller(callerLock);
    GMutexLock held(lock);
    if (ended)
        return kNoWorker;
    requestCode = request;
    replied = false;
    pending.store(true, std::memory_order_release);
    changed.notify_all();
    while (!replied)
        held.Wait(changed);
    return replyCode;
}

DWORD CAMThread::GetRequest()
{
    GMutexLock held(lock);
    while (!pending)
        held.Wait(changed);
    return requestCode;
}

bool CAMThread::WaitRequest(DWORD timeoutMs)
{
    GMutexLock held(lock);
    if (timeoutMs == INFINITE) {
        while (!pending)
            held.Wait(changed);
        return true;
    }
    const auto deadline = DeadlineAfter(timeoutMs);
    while (!pending && held.WaitUntil(changed, deadline)) {}
    return pending;
}

bool CAMThread::CheckRequest(DWORD* request)
{
    if (!RequestPending())
        return false;
    const GMutexLock held(lock);
    if (!pending)
        return false;
    if (request)
        *request = requestCode;
    return true;
}

void CAMThread::Reply(DWORD result)
{
    const GMutexLock held(lock);
    ReplyLocked(result);
}

void CAMThread::ReplyLocked(DWORD result)
{
    if (!pending)
        return;
    replyCode = result;
    replied = true;
    pending.store(false, std::memory_order_release);
    changed.notify_all();
}

}  // namespace vex
