#include "platform/trace.h"

#if defined(VEX_TRACE)

#include <cstdarg>
#include <cstdio>

namespace vex {

void Trace(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}

}  // namespace vex

#endif
