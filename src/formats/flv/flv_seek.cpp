// Seeks of GFlvReader. FLV has no index that can be relied on: a position is estimated from the time, narrowed down by
// the times of the tags found there, and the rest of the way is walked.

#include <algorithm>
#include <limits>

#include "formats/flv/flv_reader.h"
#include "io/checked_math.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr auto kUnit = static_cast<std::int64_t>(kFlvUnitSize);
constexpr std::int64_t kNoEnd = std::numeric_limits<std::int64_t>::max();

constexpr std::int64_t kSmallFile = 1 << 20;  // bytes; a smaller file is walked from its first tag
constexpr std::int64_t kMaxSearch = 5 << 20;  // bytes looked at for one tag: the largest keyframes are below that

// Where walking the tags costs less than another estimate.
constexpr REFERENCE_TIME kNearTime = 20'000'000;  // 100 ns
constexpr std::int64_t kNearBytes = 256 << 10;

// Every other estimate halves what is left to search, so this is enough for any file.
constexpr int kMaxEstimates = 2 * 48;
// Each candidate needs a read elsewhere; a file made of nothing else must not take for ever.
constexpr int kMaxChecks = 4096;

// The first step back for a key frame; each further one is twice as long.
constexpr std::int64_t kFirstStepBack = 1 << 20;  // bytes

}  // namespace

GFlvLanding GFlvReader::SeekFlvTag(REFERENCE_TIME target)
{
    if (target <= 0) {
        if (position != firstTagPos && source.Seek(firstTagPos) != firstTagPos) {
            Trace("===== ERROR (SeekFlvTag) : the first tag cannot be reached\n");
            return GFlvLanding::Error;
        }
        Restart();
        return GFlvLanding::FirstTag;
    }
    if (target >= duration) {
        Trace("===== ERROR (SeekFlvTag) : %lld is beyond the end\n", static_cast<long long>(target));
        return GFlvLanding::Error;
    }
    const std::int64_t positionBefore = position;
    const FlvTag tagBefore = tag;
    resync.active = false;  // starts anew should the seek fail
    checksLeft = kMaxChecks;
    const GFlvLanding landing = Search(target);
    if (landing == GFlvLanding::Error) {
        position = positionBefore;
        tag = tagBefore;
    }
    Trace("SeekFlvTag %lld: outcome %d at %llx\n", static_cast<long long>(target), static_cast<int>(landing),
          static_cast<long long>(position));
    return landing;
}

GFlvLanding GFlvReader::Search(REFERENCE_TIME target)
{
    std::int64_t estimate = firstTagPos;
    if (fileSize >= kSmallFile) {
        estimate = MulDiv64(target, fileSize, duration).value_or(0);
        estimate = std::max(std::min(estimate, fileSize - kUnit - 1), firstTagPos);
    }
    if (source.Seek(estimate) != estimate) {
        Trace("===== ERROR (SeekFlvTag) : position %llx cannot be reached\n", static_cast<long long>(estimate));
        return GFlvLanding::Error;
    }
    const std::int64_t walkFrom = fileSize < kSmallFile ? firstTagPos : FindStart(estimate, target);
    std::optional<std::int64_t> keyFrame = Walk(walkFrom, kNoEnd, target);
    if (hasVideo != 0) {
        const std::int64_t reached = position;
        if (!keyFrame)
            keyFrame = KeyFrameBefore(walkFrom, target);
        position = keyFrame.value_or(reached);
    }
    if (IsInterrupted()) {
        Trace("===== ERROR (SeekFlvTag) : interrupted\n");
        return GFlvLanding::Error;
    }
    if (!keyFrame || hasVideo == 0)
        return WalkOn(target);
    return FillFlvTag() ? GFlvLanding::KeyFrameBefore : GFlvLanding::Error;
}

// A tag before the target, near it as far as the times of the file rise; the first tag when none is found.
std::int64_t GFlvReader::FindStart(std::int64_t estimate, REFERENCE_TIME target)
{
    GHit low{firstTagPos, 0};
    GHit high{fileSize, duration};
    std::int64_t from = estimate;
    for (int i = 1; i <= kMaxEstimates && !IsInterrupted(); ++i) {
        const std::optional<GHit> hit = FindTag(from, high.unitPos);
        if (hit && hit->time < target) {
            low = *hit;
            if (target - low.time <= kNearTime)
                break;
        } else {
            high = {from, hit ? std::min(hit->time, high.time) : high.time};
        }
        const std::int64_t left = high.unitPos - low.unitPos;
        if (left <= kNearBytes)
            break;
        const REFERENCE_TIME span = std::max<REFERENCE_TIME>(high.time - low.time, 1);
        const std::int64_t ahead = i % 2 == 0 ? left / 2 : MulDiv64(target - low.time, left, span).value_or(left / 2);
        from = low.unitPos + std::clamp<std::int64_t>(ahead, 1, left - 1);
    }
    return low.unitPos;
}

// The first tag of audio or video in [from, until) that leads on to another one. Script tags often have no time.
std::optional<GFlvReader::GHit> GFlvReader::FindTag(std::int64_t from, std::int64_t until)
{
    until = std::min(until, from + kMaxSearch);
    for (; checksLeft > 0; --checksLeft) {
        const GScanResult result = window.FindForward(from, until, kFlvUnitSize, [](GBytes bytes) {
            if (!IsWellFormedFlvUnit(bytes))
                return false;
            const GFlvUnit found = ReadFlvUnit(bytes);
            return found.IsMedia() && found.dataSize != 0;
        });
        if (!result.Found())
            break;
        const GFlvUnit found = ReadFlvUnit(window.At(result.position, kFlvUnitSize));
        if (LeadsOn(result.position, found))
            return GHit{result.position, found.Time()};
        from = result.position + 1;
    }
    return std::nullopt;
}

// From the unit at `from` to the first audio or video at or after the target, to `until` or to the end of the file,
// where the reader stays. Gives the last video key frame passed.
std::optional<std::int64_t> GFlvReader::Walk(std::int64_t from, std::int64_t until, REFERENCE_TIME target)
{
    std::optional<std::int64_t> keyFrame;
    position = from;
    while (position < until && FillFlvTag()) {
        if ((tag.IsAudio() || tag.IsVideo()) && tag.time >= target)
            break;
        if (tag.IsVideoKey())
            keyFrame = tag.unitPos;
        GotoNextTag();
    }
    return keyFrame;
}

// The last video key frame before the target and before `until`, looked for in steps back that double.
std::optional<std::int64_t> GFlvReader::KeyFrameBefore(std::int64_t until, REFERENCE_TIME target)
{
    for (std::int64_t back = kFirstStepBack; until > firstTagPos && !IsInterrupted(); back *= 2) {
        std::int64_t from = firstTagPos;
        if (until - firstTagPos > back) {
            const std::optional<GHit> hit = FindTag(until - back, until);
            if (!hit)
                continue;
            from = hit->unitPos;
        }
        if (const auto keyFrame = Walk(from, until, target))
            return keyFrame;
        until = from;
    }
    return std::nullopt;
}

// On to the first video key frame; without video, to the first audio at or after the target.
GFlvLanding GFlvReader::WalkOn(REFERENCE_TIME target)
{
    for (; FillFlvTag(); GotoNextTag()) {
        if (hasVideo != 0 && tag.IsVideoKey())
            return GFlvLanding::KeyFrameAfter;
        if (hasVideo == 0 && tag.IsAudio() && tag.time >= target)
            return GFlvLanding::AudioAfter;
    }
    return IsInterrupted() ? GFlvLanding::Error : GFlvLanding::EndOfFile;
}

}  // namespace vex
