#include "formats/avi/avi_damage.h"

#include "platform/trace.h"

namespace vex {

void GAviDamage::Add(const char* what, std::int64_t position, std::uint64_t bytes)
{
    Trace("AVI damage: %s at byte %lld\n", what, static_cast<long long>(position));
    const GMutexLock held(lock);
    ++report.count;
    report.bytes += bytes;
    if (report.first.empty())
        report.first = std::string(what) + " at byte " + std::to_string(position);
}

GDamageReport GAviDamage::Report() const
{
    const GMutexLock held(lock);
    return report;
}

void GAviDamage::Clear()
{
    const GMutexLock held(lock);
    report = {};
}

}  // namespace vex
