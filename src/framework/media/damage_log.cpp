#include "framework/media/damage_log.h"

#include <string>

#include "platform/trace.h"

namespace vex {

void GDamageLog::Add(const char* what, std::int64_t position, std::uint64_t bytes)
{
    const GMutexLock held(lock);
    if (places.contains(position))
        return;
    if (places.size() < kMaxPlaces)
        places.insert(position);
    Trace("Damage: %s at byte %lld\n", what, static_cast<long long>(position));
    if (report.count++ == 0)
        report.first = std::string(what) + " at byte " + std::to_string(position);
    report.bytes += bytes;
}

GDamageReport GDamageLog::Report() const
{
    const GMutexLock held(lock);
    return report;
}

void GDamageLog::Clear()
{
    const GMutexLock held(lock);
    places.clear();
    report = {};
}

}  // namespace vex
