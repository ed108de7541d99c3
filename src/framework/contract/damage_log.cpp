#include "framework/contract/damage_log.h"

#include <new>
#include <string>

#include "platform/trace.h"

namespace vex {

void GDamageLog::Add(const char* what, std::int64_t position, std::uint64_t bytes)
{
    const GMutexLock held(lock);
    if (places.contains(position))
        return;
    Trace("Damage: %s at byte %lld\n", what, static_cast<long long>(position));
    ++report.count;
    report.bytes += bytes;
    try {
        if (report.first.empty())
            report.first = std::string(what) + " at byte " + std::to_string(position);
        if (places.size() < kMaxPlaces)
            places.insert(position);
    } catch (const std::bad_alloc&) {
        // Counted all the same: who reports that memory ran short cannot be told that there is none.
    }
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
