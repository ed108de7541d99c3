#include <pthread.h>
#include <unistd.h>

#include <cstring>

#include "platform/threads.h"

namespace vex {

void SetCurrentThreadName(const char* name)
{
    // The system refuses a longer name altogether.
    char kept[16] = {};
    std::strncpy(kept, name, sizeof(kept) - 1);
    pthread_setname_np(pthread_self(), kept);
}

void LowerCurrentThreadPriority()
{
    // Of the calling thread alone on Linux. The lowest still gets a share of a busy processor.
    constexpr int kToTheLowest = 19;
    static_cast<void>(!nice(kToTheLowest));
}

}  // namespace vex
