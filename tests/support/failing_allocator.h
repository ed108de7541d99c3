// Makes memory run short at a chosen moment.
#pragma once

namespace vex::test {

// While it lives, one allocation of the calling thread fails: the one with `index` allocations before it. Operator new
// throws or gives null, CoTaskMemAlloc gives null. The program has to be linked with failing_allocator.cpp.
class GFailingAllocation {
public:
    explicit GFailingAllocation(int index) { Arm(index); }
    ~GFailingAllocation() { Disarm(); }
    GFailingAllocation(const GFailingAllocation&) = delete;
    GFailingAllocation& operator=(const GFailingAllocation&) = delete;

    // Without an object, for a thread that only passes by.
    static void Arm(int index);
    static void Disarm();
    // Whether an allocation has failed since the last call. Any thread.
    static bool HasFailed();
};

}  // namespace vex::test
