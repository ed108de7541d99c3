#include "windows/sample_log.h"

#include "host/sink_pin.h"
#include "windows/support.h"

namespace vex::wintest {

namespace {

std::string JsonTime(const std::optional<LONGLONG>& time) { return time ? std::to_string(*time) : "null"; }

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

GSampleRecord ReadSample(IMediaSample& sample, GKept kept)
{
    const char* violation = nullptr;
    const GSampleView view = DescribeSample(sample, &violation);
    Require(!violation, violation ? violation : "");
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

void GPinLog::Add(IMediaSample& sample)
{
    GSampleRecord record = ReadSample(sample, kept);
    const GMutexLock held(lock);
    ++arrived;
    if (kept == GKept::OneDigest && !samples.empty()) {
        const std::string both = HexText(samples.front().md5) + ToJson(0, record);
        record.md5 = GMd5::Of({reinterpret_cast<const std::uint8_t*>(both.data()), both.size()});
        samples.clear();
    }
    samples.push_back(std::move(record));
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
    arrived = 0;
    segmentStart.reset();
    endsOfStream = 0;
}

void GPinLog::WaitForSamples(std::size_t count)
{
    GMutexLock held(lock);
    const auto deadline = GSteadyClock::now() + std::chrono::milliseconds(kPatienceMs);
    const auto ready = [&] { return samples.size() >= count || endsOfStream > 0; };
    while (!ready() && held.WaitUntil(changed, deadline)) {}
    Require(samples.size() >= count, "pin \"" + name + "\": " + std::to_string(samples.size()) + " of " +
                                         std::to_string(count) + " samples came");
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

}  // namespace vex::wintest
