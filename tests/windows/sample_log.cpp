#include "windows/sample_log.h"

#include "windows/support.h"

namespace vex::wintest {

namespace {

std::string JsonTime(LONGLONG time) { return time != kNoTime ? std::to_string(time) : "null"; }

std::string JsonFlag(const char* key, bool set) { return std::string(",\"") + key + "\":" + (set ? "true" : "false"); }

}  // namespace

std::string ToJson(std::size_t pin, const GSampleRecord& sample)
{
    return "{\"pin\":" + std::to_string(pin) + ",\"start\":" + JsonTime(sample.start) +
           ",\"stop\":" + JsonTime(sample.stop) + ",\"mediaStart\":" + JsonTime(sample.mediaStart) +
           ",\"mediaStop\":" + JsonTime(sample.mediaStop) + ",\"size\":" + std::to_string(sample.size) +
           JsonFlag("sync", sample.sync) + JsonFlag("discontinuity", sample.discontinuity) +
           JsonFlag("preroll", sample.preroll) + ",\"md5\":\"" + HexText(sample.md5) + "\"}";
}

void GPinLog::Add(const GSampleView& sample)
{
    const GMutexLock held(lock);
    ++arrived.count;
    if (kept == GKept::First)
        arrived.all.Update(sample.data);
    if (kept != GKept::First || arrived.count <= kFirst) {
        GSampleRecord record{sample, sample.data.size(), GMd5::Of(sample.data), {}};
        if (kept == GKept::Bytes)
            record.bytes.assign(sample.data.begin(), sample.data.end());
        record.data = {};
        arrived.samples.push_back(std::move(record));
    }
    changed.notify_all();
}

void GPinLog::AddSegment(REFERENCE_TIME start)
{
    const GMutexLock held(lock);
    arrived.segment = start;
}

void GPinLog::AddEndOfStream()
{
    const GMutexLock held(lock);
    ++arrived.endsOfStream;
    changed.notify_all();
}

void GPinLog::Clear()
{
    const GMutexLock held(lock);
    arrived = {};
}

void GPinLog::WaitForSamples(std::size_t count)
{
    GMutexLock held(lock);
    const auto deadline = GSteadyClock::now() + std::chrono::milliseconds(kPatienceMs);
    const auto ready = [&] { return arrived.count >= count || arrived.endsOfStream > 0; };
    while (!ready() && held.WaitUntil(changed, deadline)) {}
    Require(arrived.count >= count, "pin \"" + name + "\": " + std::to_string(arrived.count) + " of " +
                                        std::to_string(count) + " samples came");
}

GArrival GPinLog::Arrived() const
{
    const GMutexLock held(lock);
    return arrived;
}

}  // namespace vex::wintest
