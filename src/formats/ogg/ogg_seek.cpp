#include "formats/ogg/ogg_seek.h"

#include <algorithm>
#include <limits>

namespace vex {
namespace {

constexpr std::uint32_t kReadSize = 4096;
constexpr std::int64_t kTail = 1'048'576;  // bytes in which the last granule is looked for first
constexpr int kTails = 32;                 // a later link of a chained file may fill some of them
constexpr std::int64_t kCloseEnough = 8192;
// Interpolation can creep along a file of uneven bit rate. After so many steps that leave more than half of the range,
// the range is halved.
constexpr int kMaxSlowSteps = 3;

struct GRange {
    std::int64_t begin = 0;  // bytes
    std::int64_t end = 0;
    REFERENCE_TIME beginTime = 0;  // 100 ns
    REFERENCE_TIME endTime = 0;

    std::int64_t Size() const { return end - begin; }
};

std::int64_t Interpolate(const GRange& range, float target)
{
    const double span = static_cast<double>(range.endTime) - static_cast<double>(range.beginTime);
    const double share = span != 0 ? (target - static_cast<double>(range.beginTime)) / span : 0;
    const double offset = std::clamp(static_cast<double>(range.Size()) * share, 0.0, static_cast<double>(range.Size()));
    return range.begin + static_cast<std::int64_t>(offset);
}

// At least one read from both ends.
std::int64_t Inside(const GRange& range, std::int64_t probe)
{
    if (range.end - probe < kReadSize)
        return std::max<std::int64_t>(range.end - kReadSize, 0);
    return probe - range.begin < kReadSize ? range.begin + kReadSize : probe;
}

// The time of the first page with a granule that starts before `end`; negative when there is none.
REFERENCE_TIME TimeFrom(GOggPageSource& pages, const GOggStreams& streams, std::int64_t end,
                        const std::atomic<bool>& interrupted)
{
    GOggPage page;
    while (!interrupted.load(std::memory_order_acquire)) {
        std::int64_t budget = kTail;
        if (!pages.Next(page, budget)) {
            if (budget > 0)
                break;
            continue;
        }
        if (page.offset >= end)
            break;
        const GOGG2ReadStream* const stream = FindStream(streams, page.Serial());
        if (stream && page.Granule() >= 0)
            return std::max<REFERENCE_TIME>(stream->GranuleToTime(page.Granule()), 0);
    }
    return -1;
}

// Of the last page in [begin, end) with a granule above 0; negative when there is none.
REFERENCE_TIME LastTime(GOggPageSource& pages, const GOggStreams& streams, std::int64_t end,
                        const std::atomic<bool>& interrupted)
{
    REFERENCE_TIME last = -1;
    GOggPage page;
    std::int64_t budget = 4 * kTail;
    while (!interrupted.load(std::memory_order_acquire) && pages.Next(page, budget) && page.offset < end) {
        const GOGG2ReadStream* const stream = FindStream(streams, page.Serial());
        if (stream && page.Granule() > 0)
            last = std::max<REFERENCE_TIME>(stream->GranuleToTime(page.Granule()), 0);
    }
    return last;
}

}  // namespace

REFERENCE_TIME FindOggDuration(GFileBase& source, const GOggStreams& streams, const std::atomic<bool>& interrupted)
{
    GOggPageSource pages(source, nullptr, 16 * kReadSize);
    std::int64_t end = source.GetSize();
    for (int tail = 0; tail < kTails && end > 0; ++tail) {
        const std::int64_t begin = std::max<std::int64_t>(end - kTail, 0);
        pages.MoveTo(begin, end + GOggPageSource::kMaxPageSize);
        const REFERENCE_TIME last = LastTime(pages, streams, end, interrupted);
        if (last >= 0)
            return last;
        end = begin;
    }
    return 0;
}

std::int64_t FindOggPosition(GFileBase& source, const GOggStreams& streams, REFERENCE_TIME time,
                             REFERENCE_TIME duration, const std::atomic<bool>& interrupted)
{
    const auto target = static_cast<float>(std::max<REFERENCE_TIME>(time, 0));
    GOggPageSource pages(source, nullptr, kReadSize);
    GRange range{.end = source.GetSize(), .endTime = duration};
    int slowSteps = 0;
    while (range.Size() > kCloseEnough) {
        const std::int64_t before = range.Size();
        const bool halve = slowSteps >= kMaxSlowSteps;
        const std::int64_t probe = Inside(range, halve ? range.begin + before / 2 : Interpolate(range, target));
        pages.MoveTo(probe, range.end + GOggPageSource::kMaxPageSize);
        const REFERENCE_TIME found = TimeFrom(pages, streams, range.end, interrupted);
        if (interrupted.load(std::memory_order_acquire))
            return 0;
        if (found < 0 || static_cast<double>(found) >= static_cast<double>(target)) {
            range.end = probe;
            range.endTime = found < 0 ? duration : found;
        } else {
            range.begin = pages.PageEnd();
            range.beginTime = found;
        }
        slowSteps = range.Size() > before / 2 ? slowSteps + 1 : 0;
    }
    return range.begin;
}

}  // namespace vex
