// What the locks, conditions and threads of threads.h are made of.
//
// The C++ library of the Windows toolchain brings a thread layer of its own, which keeps an event and a handle for every
// thread of the host that entered a recursive mutex (until that thread ends, or for ever when the module is unloaded
// first) and never frees a recursive mutex. So the system's own primitives serve there, under the standard's names.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/types.h"

#ifdef _WIN32

#include <exception>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

namespace vex {

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
    std::cv_status wait_until(std::unique_lock<GNativeMutex>& held, std::chrono::steady_clock::time_point deadline)
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left > left.zero())
            Sleep(held, left < kLongest ? static_cast<DWORD>(left.count()) : static_cast<DWORD>(kLongest.count()));
        return std::chrono::steady_clock::now() < deadline ? std::cv_status::no_timeout : std::cv_status::timeout;
    }
    std::cv_status wait_for(std::unique_lock<GNativeMutex>& held, std::chrono::milliseconds timeout)
    {
        return wait_until(held, std::chrono::steady_clock::now() + timeout);
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

namespace vex {

using GNativeMutex = std::mutex;
using GNativeRecursiveMutex = std::recursive_mutex;
using GCondition = std::condition_variable;
using GNativeThread = std::thread;

using GThreadId = std::thread::id;
inline GThreadId ThisThreadId() { return std::this_thread::get_id(); }

}  // namespace vex

#endif
