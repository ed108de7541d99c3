#include <pthread.h>

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

}  // namespace vex
