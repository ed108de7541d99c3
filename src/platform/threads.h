// Locks, events and the worker thread with its request/reply handshake.
// Clang checks the annotations (-Wthread-safety); other compilers ignore them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>

#include "platform/thread_primitives.h"
#include "platform/types.h"

#if defined(__clang__)
#define G_ATTRIBUTE(x) __attribute__((x))
#else
#define G_ATTRIBUTE(x)
#endif
#define G_CAPABILITY(name) G_ATTRIBUTE(capability(name))
#define G_SCOPED_CAPABILITY G_ATTRIBUTE(scoped_lockable)
#define G_GUARDED_BY(lock) G_ATTRIBUTE(guarded_by(lock))
#define G_REQUIRES(...) G_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define G_EXCLUDES(...) G_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define G_ACQUIRE(...) G_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define G_RELEASE(...) G_ATTRIBUTE(release_capability(__VA_ARGS__))
#define G_NO_THREAD_SAFETY_ANALYSIS G_ATTRIBUTE(no_thread_safety_analysis)

namespace vex {

// A plain mutex that the analysis understands.
class G_CAPABILITY("mutex") GMutex {
public:
    void Lock() G_ACQUIRE() { mutex.lock(); }
    void Unlock() G_RELEASE() { mutex.unlock(); }
    GNativeMutex& Native() { return mutex; }

private:
    GNativeMutex mutex;
};

// Holds a GMutex for a scope; Wait gives it up while waiting.
class G_SCOPED_CAPABILITY GMutexLock {
public:
    explicit GMutexLock(GMutex& guarded) G_ACQUIRE(guarded) : held(guarded.Native()) {}
    ~GMutexLock() G_RELEASE() {}
    GMutexLock(const GMutexLock&) = delete;
    GMutexLock& operator=(const GMutexLock&) = delete;

    // Also returns without cause, as every wait may.
    void Wait(GCondition& changed) { changed.wait(held); }
    // False when the time-out passed first; a wake-up without cause counts as a change.
    bool WaitFor(GCondition& changed, std::chrono::milliseconds timeout)
    {
        return changed.wait_for(held, timeout) == GWaitStatus::no_timeout;
    }
    bool WaitUntil(GCondition& changed, GSteadyClock::time_point deadline)
    {
        return changed.wait_until(held, deadline) == GWaitStatus::no_timeout;
    }

private:
    std::unique_lock<GNativeMutex> held;
};

// Critical section: the owner may enter again.
class G_CAPABILITY("critical section") CCritSec {
public:
    void Lock() G_ACQUIRE() { mutex.lock(); }
    void Unlock() G_RELEASE() { mutex.unlock(); }

private:
    GNativeRecursiveMutex mutex;
};

class G_SCOPED_CAPABILITY CAutoLock {
public:
    explicit CAutoLock(CCritSec* guarded) G_ACQUIRE(guarded) : lock(guarded) { lock->Lock(); }
    ~CAutoLock() G_RELEASE() { lock->Unlock(); }
    CAutoLock(const CAutoLock&) = delete;
    CAutoLock& operator=(const CAutoLock&) = delete;

private:
    CCritSec* lock;
};

// Event. An auto-reset event lets one waiter through per Set; a manual-reset event stays set until Reset.
class CAMEvent {
public:
    explicit CAMEvent(bool stayUntilReset = false) : manualReset(stayUntilReset) {}
    void Set();
    void Reset();
    // Waits at most `timeoutMs` (INFINITE: for ever); true when the event was set.
    bool Wait(DWORD timeoutMs = INFINITE);
    bool Check() { return Wait(0); }

private:
    const bool manualReset;
    GMutex lock;
    GCondition changed;
    bool signalled G_GUARDED_BY(lock) = false;
};

// A worker thread that answers requests. The host side calls CallWorker, which waits for the worker's Reply; the
// worker side (ThreadProc) uses GetRequest, CheckRequest and Reply. One request is outstanding at a time: callers are
// serialised. A worker that returns without replying releases its caller with kNoWorker.
class CAMThread {
public:
    CAMThread() = default;
    virtual ~CAMThread();  // a derived class must Close (after making ThreadProc return) before its own members die
    CAMThread(const CAMThread&) = delete;
    CAMThread& operator=(const CAMThread&) = delete;

    // Starts ThreadProc, with COM initialised for it; false when there is a thread that was not closed, the system
    // refuses one or memory is short. Never throws.
    bool Create();
    // Waits for ThreadProc to return; requests are still accepted meanwhile. Does nothing without a thread.
    // Each of several callers returns only when the thread has ended. Not to be called from the worker itself.
    void Close();
    // From Create until Close: also true for a worker whose ThreadProc has returned.
    bool ThreadExists() const { return exists.load(std::memory_order_acquire); }
    // True on the worker thread itself.
    bool IsWorker() const;

    // Sends `request` and waits for the reply. Returns kNoWorker if no thread exists, if it ends without a reply, or if
    // the worker calls itself.
    DWORD CallWorker(DWORD request);
    static constexpr DWORD kNoWorker = 0xFFFFFFFFu;

    // A request is waiting for its reply; cheap, any thread.
    bool RequestPending() const { return pending.load(std::memory_order_acquire); }

protected:
    // An exception that leaves it ends the worker like a return.
    virtual DWORD ThreadProc() = 0;

    // Worker side. A request stays visible to all three until its Reply.
    DWORD GetRequest();
    // Waits for a request, at most `timeoutMs`; false on time-out.
    bool WaitRequest(DWORD timeoutMs);
    // The waiting request, if any, without taking it; `request` may be null.
    bool CheckRequest(DWORD* request);
    // Answers the request last seen; without one outstanding it does nothing.
    void Reply(DWORD result);

private:
    void Run();
    void ReplyLocked(DWORD result) G_REQUIRES(lock);

    GNativeMutex callerLock;  // one caller at a time; taken before `lock`
    GMutex lock;
    GCondition changed;
    DWORD requestCode G_GUARDED_BY(lock) = 0;
    DWORD replyCode G_GUARDED_BY(lock) = 0;
    bool replied G_GUARDED_BY(lock) = false;
    bool ended G_GUARDED_BY(lock) = true;
    std::uint32_t closed G_GUARDED_BY(lock) = 0;  // threads that are gone, so that a closer knows its own
    GNativeThread thread G_GUARDED_BY(lock);      // empty while a closer joins it
    std::atomic<bool> pending{false};             // written under `lock`
    std::atomic<bool> exists{false};              // written under `lock`
    std::atomic<GThreadId> workerId{};
};

// The name under which debuggers and `ps` show the calling thread: ASCII, at most 15 characters are kept. Never throws.
void SetCurrentThreadName(const char* name);

// Other threads that have work to do go first, until the calling thread ends. Best effort; never throws.
void LowerCurrentThreadPriority();

}  // namespace vex
