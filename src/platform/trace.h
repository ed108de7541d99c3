// The one trace function. A normal build discards the line without evaluating how it would look; a developer build
// (VEX_TRACE defined by the build) writes it to stderr.
#pragma once

#if defined(VEX_TRACE)

namespace vex {
[[gnu::format(printf, 1, 2)]] void Trace(const char* format, ...);
}

#else

namespace vex {
template <class... Args>
inline void Trace(const char*, const Args&...)
{
}
}  // namespace vex

#endif
