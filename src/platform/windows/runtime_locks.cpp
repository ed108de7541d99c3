// The locks of the compiler's runtime (exceptions, guarded statics, locales), made so that the module can be unloaded.
//
// libgcc makes each of its locks out of a semaphore, and keeps what a thread throws under an index of the thread local
// storage. A module that is loaded and unloaded leaves both behind, every time. So the module brings the functions that
// libstdc++ locks with (all of them: the linker then leaves libgcc's out), made of slim locks, which hold nothing. The
// unwinder and the thread local storage of libgcc call the system directly; what they get is given back on unload.

// The declarations of the functions, as libstdc++ itself is compiled with them.
#define __GTHREAD_HIDE_WIN32API 1
#include <bits/gthr.h>

#include <array>
#include <atomic>

#include "platform/types.h"

// The pointers through which code calls an imported function. Who defines one takes the calls of the whole module.
#ifdef _WIN64
#define VEX_IMPORT(name, bytes) asm("__imp_" name)
#else
#define VEX_IMPORT(name, bytes) asm("__imp__" name "@" #bytes)
#endif

namespace {

// What the runtime took from the system. It takes one of each kind, or two; `kRoom` is beyond that.
template <class Value>
class GTaken {
public:
    void Add(Value value)
    {
        const std::size_t at = count.fetch_add(1);
        if (at < kRoom)
            values[at] = value;
    }
    template <class GiveBack>
    void Empty(GiveBack&& giveBack)
    {
        const std::size_t taken = count.exchange(0);
        for (std::size_t i = 0; i < taken && i < kRoom; ++i)
            giveBack(values[i]);
    }

private:
    static constexpr std::size_t kRoom = 8;
    std::atomic<std::size_t> count = 0;
    std::array<Value, kRoom> values{};
};

// Both serve the constructors of the module, so they have none of their own.
constinit GTaken<HANDLE> semaphores;
constinit GTaken<DWORD> storageIndexes;

HANDLE WINAPI CreateRuntimeSemaphore(SECURITY_ATTRIBUTES* security, LONG initial, LONG maximum, const WCHAR* name)
{
    const HANDLE semaphore = CreateSemaphoreExW(security, initial, maximum, name, 0, SEMAPHORE_ALL_ACCESS);
    if (semaphore)
        semaphores.Add(semaphore);
    return semaphore;
}

DWORD WINAPI AllocateRuntimeStorage()
{
    const auto allocate = reinterpret_cast<DWORD(WINAPI*)()>(
        reinterpret_cast<void (*)()>(GetProcAddress(GetModuleHandleA("kernel32.dll"), "TlsAlloc")));
    const DWORD index = allocate();
    if (index != TLS_OUT_OF_INDEXES)
        storageIndexes.Add(index);
    return index;
}

// Destroyed after every other static of the module.
class GUnload {
public:
    ~GUnload()
    {
        semaphores.Empty([](HANDLE semaphore) { CloseHandle(semaphore); });
        storageIndexes.Empty([](DWORD index) { TlsFree(index); });
    }
};
[[gnu::init_priority(101)]] const GUnload unload;

SRWLOCK* LockIn(void*& storage)
{
    static_assert(sizeof(SRWLOCK) == sizeof(void*));
    return reinterpret_cast<SRWLOCK*>(&storage);
}

bool Enter(__gthread_recursive_mutex_t& mutex, bool wait)
{
    const DWORD self = GetCurrentThreadId();
    // Only the owner can find itself here.
    if (std::atomic_ref(mutex.owner).load(std::memory_order_relaxed) != self) {
        if (wait)
            AcquireSRWLockExclusive(LockIn(mutex.sema));
        else if (!TryAcquireSRWLockExclusive(LockIn(mutex.sema)))
            return false;
        std::atomic_ref(mutex.owner).store(self, std::memory_order_relaxed);
    }
    ++mutex.depth;
    return true;
}

}  // namespace

extern "C" {

extern HANDLE(WINAPI* const importedCreateSemaphore)(SECURITY_ATTRIBUTES*, LONG, LONG, const WCHAR*)
    VEX_IMPORT("CreateSemaphoreW", 16);
HANDLE(WINAPI* const importedCreateSemaphore)(SECURITY_ATTRIBUTES*, LONG, LONG, const WCHAR*) = CreateRuntimeSemaphore;

extern DWORD(WINAPI* const importedTlsAlloc)() VEX_IMPORT("TlsAlloc", 0);
DWORD(WINAPI* const importedTlsAlloc)() = AllocateRuntimeStorage;

int __gthr_win32_once(__gthread_once_t* once, void (*function)())
{
    const std::atomic_ref done(once->done);
    if (done.load(std::memory_order_acquire))
        return 0;
    if (std::atomic_ref(once->started).fetch_add(1) == -1) {
        function();
        done.store(1, std::memory_order_release);
    } else {
        while (!done.load(std::memory_order_acquire))
            Sleep(0);
    }
    return 0;
}

int __gthr_win32_key_create(__gthread_key_t* key, void (*destroy)(void*))
{
    *key = TlsAlloc();
    if (*key == TLS_OUT_OF_INDEXES)
        return static_cast<int>(GetLastError());
    return destroy ? __mingwthr_key_dtor(*key, destroy) : 0;
}

// The index itself is given back on unload.
int __gthr_win32_key_delete(__gthread_key_t) { return 0; }

void* __gthr_win32_getspecific(__gthread_key_t key)
{
    const DWORD error = GetLastError();  // TlsGetValue clears it
    void* const value = TlsGetValue(key);
    SetLastError(error);
    return value;
}

int __gthr_win32_setspecific(__gthread_key_t key, const void* value)
{
    return TlsSetValue(key, const_cast<void*>(value)) ? 0 : static_cast<int>(GetLastError());
}

void __gthr_win32_mutex_init_function(__gthread_mutex_t* mutex) { *mutex = {}; }
void __gthr_win32_mutex_destroy(__gthread_mutex_t*) {}
int __gthr_win32_mutex_lock(__gthread_mutex_t* mutex) { return AcquireSRWLockExclusive(LockIn(mutex->sema)), 0; }
int __gthr_win32_mutex_trylock(__gthread_mutex_t* mutex)
{
    return TryAcquireSRWLockExclusive(LockIn(mutex->sema)) ? 0 : 1;
}
int __gthr_win32_mutex_unlock(__gthread_mutex_t* mutex) { return ReleaseSRWLockExclusive(LockIn(mutex->sema)), 0; }

void __gthr_win32_recursive_mutex_init_function(__gthread_recursive_mutex_t* mutex) { *mutex = {}; }
int __gthr_win32_recursive_mutex_destroy(__gthread_recursive_mutex_t*) { return 0; }
int __gthr_win32_recursive_mutex_lock(__gthread_recursive_mutex_t* mutex) { return Enter(*mutex, true) ? 0 : 1; }
int __gthr_win32_recursive_mutex_trylock(__gthread_recursive_mutex_t* mutex) { return Enter(*mutex, false) ? 0 : 1; }
int __gthr_win32_recursive_mutex_unlock(__gthread_recursive_mutex_t* mutex)
{
    if (--mutex->depth == 0) {
        std::atomic_ref(mutex->owner).store(0, std::memory_order_relaxed);
        ReleaseSRWLockExclusive(LockIn(mutex->sema));
    }
    return 0;
}

}  // extern "C"
