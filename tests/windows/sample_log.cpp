#include "windows/sample_log.h"

#include <algorithm>

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
    GSampleRecord record;
    REFERENCE_TIME start = 0, stop = 0;
    const HRESULT timed = sample.GetTime(&start, &stop);
    if (SUCCEEDED(timed)) {
        record.start = start;
        if (timed != VFW_S_NO_STOP_TIME)
            record.stop = stop;
    }
    LONGLONG mediaStart = 0, mediaStop = 0;
    if (SUCCEEDED(sample.GetMediaTime(&mediaStart, &mediaStop))) {
        record.mediaStart = mediaStart;
        record.mediaStop = mediaStop;
    }
    record.size = sample.GetActualDataLength();
    record.sync = sample.IsSyncPoint() == S_OK;
    record.discontinuity = sample.IsDiscontinuity() == S_OK;
    record.preroll = sample.IsPreroll() == S_OK;
    BYTE* bytes = nullptr;
    Check(sample.GetPointer(&bytes), "GetPointer of a sample");
    const std::span payload(bytes, static_cast<std::size_t>(record.size));
    if (kept == GKept::Bytes)
        record.bytes.assign(payload.begin(), payload.end());
    else
        record.md5 = GMd5::Of(payload);
    return record;
}

void GPinLog::Add(IMediaSample& sample)
{
    GSampleRecord record = ReadSample(sample, kept);
    const GMutexLock held(lock);
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
    segmentStart.reset();
    endsOfStream = 0;
}

void GPinLog::WaitForSamples(std::size_t count)
{
    GMutexLock held(lock);
    const auto deadline = GSteadyClock::now() + std::chrono::milliseconds(kPatienceMs);
    const auto arrived = [&] { return samples.size() >= count || endsOfStream > 0; };
    while (!arrived() && held.WaitUntil(changed, deadline)) {}
    Require(samples.size() >= count, "pin \"" + name + "\": " + std::to_string(samples.size()) + " of " +
                                         std::to_string(count) + " samples came");
}

std::vector<GSampleRecord> GPinLog::Samples() const
{
    const GMutexLock held(lock);
    return samples;
}

std::vector<GSampleRecord> GPinLog::LastSegment() const
{
    const GMutexLock held(lock);
    const auto last = std::find_if(samples.rbegin(), samples.rend(), [](const auto& s) { return s.discontinuity; });
    if (last == samples.rend())
        return {};
    return {last.base() - 1, samples.end()};
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
