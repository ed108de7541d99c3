#include "support/failing_allocator.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace vex::test {

namespace {

thread_local int allocationsLeft = -1;  // below 0: none fails
std::atomic<bool> failed{false};

bool FailsNow()
{
    if (allocationsLeft < 0 || allocationsLeft-- > 0)
        return false;
    failed = true;
    return true;
}

void* Allocate(std::size_t bytes) { return FailsNow() ? nullptr : std::malloc(bytes > 0 ? bytes : 1); }

void* AllocateOrThrow(std::size_t bytes)
{
    void* const memory = Allocate(bytes);
    return memory ? memory : throw std::bad_alloc();
}

}  // namespace

void GFailingAllocation::Arm(int index) { allocationsLeft = index; }

void GFailingAllocation::Disarm() { allocationsLeft = -1; }

bool GFailingAllocation::HasFailed() { return failed.exchange(false); }

}  // namespace vex::test

using vex::test::Allocate;
using vex::test::AllocateOrThrow;

void* operator new(std::size_t bytes) { return AllocateOrThrow(bytes); }
void* operator new[](std::size_t bytes) { return AllocateOrThrow(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

// Task memory outside Windows is this program's own: the linker sends the calls of all others here (--wrap).
#ifndef _WIN32

#if __SIZEOF_SIZE_T__ == 8
#define VEX_TASK_MEM_ALLOC "_Z14CoTaskMemAllocm"
#else
#define VEX_TASK_MEM_ALLOC "_Z14CoTaskMemAllocj"
#endif

void* RealTaskMemAlloc(std::size_t cb) asm("__real_" VEX_TASK_MEM_ALLOC);
void* FailingTaskMemAlloc(std::size_t cb) asm("__wrap_" VEX_TASK_MEM_ALLOC);

void* FailingTaskMemAlloc(std::size_t cb) { return vex::test::FailsNow() ? nullptr : RealTaskMemAlloc(cb); }

#endif
