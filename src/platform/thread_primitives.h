// The locks, conditions, threads and the clock that threads.h is built on.
//
// On Windows they are the system's own, under the standard's names. The C++ library there has none (threading variant
// `win32` of the toolchain), or takes them from a pthread emulation (variant `posix`), which keeps handles of every
// host thread that it meets and cannot be unloaded without leaving them behind.
#pragma once

#include <chrono>
#include <mutex>

#include "platform/types.h"

#ifdef _WIN32

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

namespace vex {

// Monotonic, starts with the system. The library's steady_clock follows the wall clock in this variant.
struct GSteadyClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<GSteadyClock>;
    static constexpr bool is_steady = true;

    static time_point now()
    {
        LARGE_INTEGER ticks, perSecond;
        QueryPerformanceCounter(&ticks);
        QueryPerformanceFrequency(&perSecond);
        constexpr std::int64_t kNanoseconds = 1'000'000'000;
        const std::int64_t seconds = ticks.QuadPart / perSecond.QuadPart;
        const std::int64_t rest = ticks.QuadPart % perSecond.QuadPart;
        return time_point(duration(seconds * kNanoseconds + rest * kNanoseconds / perSecond.QuadPart));
    }
};

enum class GWaitStatus { no_timeout, timeout };

class GNativeMutex {
public:
    void lock() { AcquireSRWLockExclusive(&guard); }
    void unlock() { ReleaseSRWLockExclusive(&guard); }
    bool try_lock() { return TryAcquireSRWLockExclusive(&guard) != 0; }
    SRWLOCK* Handle() { return &guard; }

private:
    SRWLOCK guard = SRWLOCK_INIT;
};

class GNativeRecursiveMutex {
public:
    GNativeRecursiveMutex() { InitializeCriticalSection(&section); }
    ~GNativeRecursiveMutex() { DeleteCriticalSection(&section); }
    GNativeRecursiveMutex(const GNativeRecursiveMutex&) = delete;
    GNativeRecursiveMutex& operator=(const GNativeRecursiveMutex&) = delete;
    void lock() { EnterCriticalSection(&section); }
    void unlock() { LeaveCriticalSection(&section); }
    bool try_lock() { return TryEnterCriticalSection(&section) != 0; }

private:
    CRITICAL_SECTION section;
};

class GCondition {
public:
    GCondition() = default;
    GCondition(const GCondition&) = delete;
    GCondition& operator=(const GCondition&) = delete;

    void notify_one() { WakeConditionVariable(&condition); }
    void notify_all() { WakeAllConditionVariable(&condition); }
    void wait(std::unique_lock<GNativeMutex>& held) { Sleep(held, INFINITE); }
    template <class Predicate>
    void wait(std::unique_lock<GNativeMutex>& held, Predicate done)
    {
        while (!done())
            wait(held);
    }
    GWaitStatus wait_until(std::unique_lock<GNativeMutex>& held, GSteadyClock::time_point deadline)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - GSteadyClock::now());
        if (left > left.zero())
            Sleep(held, left < kLongest ? static_cast<DWORD>(left.count()) : static_cast<DWORD>(kLongest.count()));
        return GSteadyClock::now() < deadline ? GWaitStatus::no_timeout : GWaitStatus::timeout;
    }
    GWaitStatus wait_for(std::unique_lock<GNativeMutex>& held, std::chrono::milliseconds timeout)
    {
        return wait_until(held, GSteadyClock::now() + timeout);
    }
    template <class Predicate>
    bool wait_for(std::unique_lock<GNativeMutex>& held, std::chrono::milliseconds timeout, Predicate done)
    {
        const auto deadline = GSteadyClock::now() + timeout;
        while (!done()) {
            if (wait_until(held, deadline) == GWaitStatus::timeout)
                return done();
        }
        return true;
    }

private:
    static constexpr std::chrono::milliseconds kLongest{0x7FFFFFFF};

    void Sleep(std::unique_lock<GNativeMutex>& held, DWORD timeoutMs)
    {
        SleepConditionVariableSRW(&condition, held.mutex()->Handle(), timeoutMs, 0);
    }

    CONDITION_VARIABLE condition = CONDITION_VARIABLE_INIT;
};

// Must be joined or detached before it is destroyed or assigned to.
class GNativeThread {
public:
    GNativeThread() = default;
    // Throws std::system_error when the system refuses a thread.
    explicit GNativeThread(std::function<void()> body)
    {
        auto passed = std::make_unique<std::function<void()>>(std::move(body));
        handle = CreateThread(nullptr, 0, Start, passed.get(), 0, nullptr);
        if (!handle)
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThread");
        static_cast<void>(passed.release());
    }
    GNativeThread(GNativeThread&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}
    GNativeThread& operator=(GNativeThread&& other) noexcept
    {
        std::swap(handle, other.handle);
        return *this;
    }
    ~GNativeThread()
    {
        if (handle)
            std::terminate();
    }
    bool joinable() const { return handle != nullptr; }
    void join()
    {
        WaitForSingleObject(handle, INFINITE);
        CloseHandle(std::exchange(handle, nullptr));
    }
    void detach() { CloseHandle(std::exchange(handle, nullptr)); }

private:
    static DWORD WINAPI Start(void* passed)
    {
        const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(passed));
        (*body)();
        return 0;
    }

    HANDLE handle = nullptr;
};

using GThreadId = DWORD;
inline GThreadId ThisThreadId() { return GetCurrentThreadId(); }

}  // namespace vex

#else

#include <condition_variable>
#include <thread>

namespace vex {

using GSteadyClock = std::chrono::steady_clock;
using GWaitStatus = std::cv_status;

using GNativeMutex = std::mutex;
using GNativeRecursiveMutex = std::recursive_mutex;
using GCondition = std::condition_variable;
using GNativeThread = std::thread;

using GThreadId = std::thread::id;
inline GThreadId ThisThreadId() { return std::this_thread::get_id(); }

}  // namespace vex

#endif
