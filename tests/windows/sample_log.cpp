#include "windows/sample_log.h"

#include "windows/support.h"

namespace vex::wintest {

namespace {

std::string JsonTime(const std::optional<LONGLONG>& time) { return time ? std::to_string(*time) : "null"; }

std::string JsonFlag(const char* key, bool set) { return std::string(",\"") + key + "\":" + (set ? "true" : "false"); }

GSampleRecord Record(const GSampleView& view, GKept kept)
{
    const auto known = [](LONGLONG time) { return time != kNoTime ? std::optional(time) : std::nullopt; };
    GSampleRecord record{.start = known(view.start),
                         .stop = known(view.stop),
                         .mediaStart = known(view.mediaStart),
                         .mediaStop = known(view.mediaStop),
                         .size = static_cast<long>(view.data.size()),
                         .sync = view.sync,
                         .discontinuity = view.discontinuity,
                         .preroll = view.preroll,
                         .md5 = GMd5::Of(view.data),
                         .bytes = {}};
    if (kept == GKept::Bytes)
        record.bytes.assign(view.data.begin(), view.data.end());
    return record;
}

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
    ++arrived;
    if (kept == GKept::First)
        all.Update(sample.data);
    if (kept != GKept::First || arrived <= kFirst)
        samples.push_back(Record(sample, kept));
    changed.notify_all();
}

void GPinLog::AddSegment(REFERENCE_TIME start)
{
    const GMutexLock held(lock);
    segmentStart = start;
}

void GPinLog::AddEndOfStream()
{
    const GMutexLock held(lock);
    ++endsOfStream;
    changed.notify_all();
}

void GPinLog::Clear()
{
    const GMutexLock held(lock);
    samples.clear();
    all = {};
    arrived = 0;
    segmentStart.reset();
    endsOfStream = 0;
}

void GPinLog::WaitForSamples(std::size_t count)
{
    GMutexLock held(lock);
    const auto deadline = GSteadyClock::now() + std::chrono::milliseconds(kPatienceMs);
    const auto ready = [&] { return arrived >= count || endsOfStream > 0; };
    while (!ready() && held.WaitUntil(changed, deadline)) {}
    Require(arrived >= count, "pin \"" + name + "\": " + std::to_string(arrived) + " of " + std::to_string(count) +
                                  " samples came");
}

std::vector<GSampleRecord> GPinLog::Samples() const
{
    const GMutexLock held(lock);
    return samples;
}

std::size_t GPinLog::Arrived() const
{
    const GMutexLock held(lock);
    return arrived;
}

std::optional<REFERENCE_TIME> GPinLog::SegmentStart() const
{
    const GMutexLock held(lock);
    return segmentStart;
}

std::size_t GPinLog::EndsOfStream() const
{
    const GMutexLock held(lock);
    return endsOfStream;
}

GMd5Digest GPinLog::Digest() const
{
    const GMutexLock held(lock);
    return GMd5(all).Finish();
}

}  // namespace vex::wintest
