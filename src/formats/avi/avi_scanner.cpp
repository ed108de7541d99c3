#include "formats/avi/avi_scanner.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "io/byte_reader.h"
#include "media/codec_tags.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint32_t kMoviType = FourCC("movi");
constexpr std::uint32_t kIdx1Code = FourCC("idx1");
constexpr std::uint32_t kKeyFrameBytes = 8;  // enough for every rule that tells key frames
constexpr std::size_t kSearchBlock = 0x40000;
constexpr std::uint32_t kCodeSize = 4;
// Reads that fail in a row before the reader is told that there is nothing more for now. The scan tries on.
constexpr int kPatience = 20;

// Chunks in the data that carry none and may be of any size.
bool IsFiller(std::uint32_t code) { return code == kJunkCode || (code & 0xFFFF) == ('i' | 'x' << 8); }

std::uint32_t LargestBuffer(const GAviLayout& layout)
{
    std::uint32_t largest = 0;
    for (const auto& stream : layout.streams)
        largest = std::max(largest, stream->Format().BufferSize());
    return largest;
}

}  // namespace

std::uint32_t GFaultNotingSource::Read(void* buffer, std::uint32_t count)
{
    const std::int64_t from = source.Tell();
    const std::uint32_t got = source.Read(buffer, count);
    fault = fault || (got < count && source.GetSize() - from > got);
    return got;
}

GAviIndexScanner::GAviIndexScanner(const GAviLayout& fileLayout, GDamageLog& damageLog, GAviScanPauses scanPauses)
    : GIndexThread("avi index"),
      layout(fileLayout),
      damage(damageLog),
      pauses(scanPauses),
      maxChunk(LargestBuffer(fileLayout))
{
}

void GAviIndexScanner::Build(GFileBase& openSource)
{
    GFaultNotingSource noting(openSource);
    source = &noting;
    window.emplace(noting, &StopFlag(), kSearchBlock);
    sizeSeen = source->GetSize();
    range = layout.moviRanges.front();
    riffEnd = layout.firstRiffEnd;
    position = range.start + kCodeSize;
    while (!StopRequested() && ScanOne() == GStep::Again) {
        if (faults > 0 && position != faultAt) {
            faults = 0;
            SetCaughtUp(false);
        }
    }
    window.reset();
    source = nullptr;
    Trace("End of IndexMaking\n");
}

GAviIndexScanner::GStep GAviIndexScanner::ScanOne()
{
    const std::int64_t aligned = position + ((position ^ phase) & 1);
    if (aligned >= range.end)
        return NextRange();
    GRiffChunk chunk;
    if (!ReadRiffHeader(*source, aligned, chunk))
        return WaitForGrowth(pauses.withinData);
    if (EndsGuessedRange(chunk)) {
        range.end = aligned;
        return NextRange();
    }
    return chunk.code == kListCode ? ScanList(chunk) : ScanChunk(chunk);
}

GAviIndexScanner::GStep GAviIndexScanner::ScanList(const GRiffChunk& list)
{
    std::uint32_t type = 0;
    if (!ReadListType(*source, list, type))
        return WaitForGrowth(pauses.withinData);
    if (type != FourCC("rec "))
        return GStep::Done;
    position = list.position + kRiffListHeaderSize;  // its chunks are read as if they stood outside
    return GStep::Again;
}

GAviIndexScanner::GStep GAviIndexScanner::ScanChunk(const GRiffChunk& chunk)
{
    GVerdict verdict = chunk.size > maxChunk ? JudgeOversize(chunk) : GVerdict::Take;
    GAvi2ReadStream* const stream = layout.FindStream(chunk.code);
    if (stream && verdict == GVerdict::Take)
        verdict = JudgePayload(chunk);
    if (verdict == GVerdict::Wait)
        return WaitForGrowth(pauses.withinData);
    if (verdict == GVerdict::LookAgain)
        return GStep::Again;

    const bool keyFrame = stream && IsKeyFrameChunk(*stream, chunk);
    if (source->HasFault())
        return ReadAgain();
    if (stream && stream->Append(chunk.Body(), chunk.size, keyFrame, GAviAppend::Beyond))
        Advanced();
    position = chunk.BodyEnd();
    return GStep::Again;
}

// A size that no stream can need is taken for damage, unless the chunk lies where one is expected and fits there.
GAviIndexScanner::GVerdict GAviIndexScanner::JudgeOversize(const GRiffChunk& chunk)
{
    const bool fits = chunk.BodyEnd() <= std::min(range.end, source->GetSize());
    if (fits && IsFiller(chunk.code))
        return GVerdict::Take;
    Trace("WARNING too large chunk %d\n", static_cast<int>(chunk.size));
    // A writer that leaves out pad bytes puts the next chunk where the last one ended.
    std::int64_t found = FindFrame(position);
    if (found == chunk.position && !fits)
        found = FindFrame(chunk.position + 1);
    if (found < 0)
        return GVerdict::Wait;
    if (found == chunk.position)
        return GVerdict::Take;
    damage.Add("no chunk in the data", chunk.position, static_cast<std::uint64_t>(found - position));
    position = found;
    phase = found & 1;
    return GVerdict::LookAgain;
}

// The last chunk of a file that is being written is taken once the file has stopped growing for a pause.
GAviIndexScanner::GVerdict GAviIndexScanner::JudgePayload(const GRiffChunk& chunk)
{
    if (source->Seek(chunk.BodyEnd()) == chunk.BodyEnd())
        return GVerdict::Take;
    const std::int64_t before = source->GetSize();
    if (before <= chunk.Body())
        return GVerdict::Wait;
    const bool stopped = !Pause(pauses.withinData);
    return stopped || source->GetSize() != before ? GVerdict::LookAgain : GVerdict::Take;
}

bool GAviIndexScanner::IsKeyFrameChunk(const GAvi2ReadStream& stream, const GRiffChunk& chunk)
{
    if (!stream.Format().IsVideo())
        return true;
    if (chunk.size <= kKeyFrameBytes)
        return false;
    std::array<std::uint8_t, kKeyFrameBytes> bytes{};
    source->Seek(chunk.Body());
    const std::uint32_t count = source->Read(bytes.data(), kKeyFrameBytes);
    return IsKeyFrame(stream.Format().Compression(), std::span(bytes).first(count));
}

// Damage comes in runs: what the last search read serves the next one as well.
std::int64_t GAviIndexScanner::FindFrame(std::int64_t from)
{
    const auto isFrame = [this](GBytes bytes) {
        if (bytes[0] < '0' || bytes[0] > ':' || bytes.size() < kCodeSize)
            return false;
        const std::uint32_t code = GByteReader(bytes).FourCC();
        const GAvi2ReadStream* const stream = layout.FindStream(code);
        return stream && stream->ChunkId() == code;
    };
    const GScanResult found = window->FindForward(from, std::numeric_limits<std::int64_t>::max(), kCodeSize, isFrame);
    Trace("GAviReadHandler::FindFrame() : %lld\n", static_cast<long long>(found.position));
    return found.position;
}

bool GAviIndexScanner::EndsGuessedRange(const GRiffChunk& chunk) const
{
    return range.endGuessed && (chunk.code == kIdx1Code || chunk.code == kRiffCode);
}

GAviIndexScanner::GStep GAviIndexScanner::NextRange()
{
    const std::int64_t behind = range.end + (range.end & 1);
    if (FindMovi(behind, riffEnd, GWhere::InsideRiff) == GSearch::Found)
        return GStep::Again;
    if (source->HasFault())
        return ReadAgain();
    // Until the file is longer than the RIFF it is taken to be still in the making.
    if (riffEnd == kRiffEndUnknown || source->GetSize() <= riffEnd)
        return WaitForGrowth(pauses.betweenParts);
    switch (FindMovi(riffEnd, kRiffEndUnknown, GWhere::BetweenRiffs)) {
    case GSearch::Found:
        return GStep::Again;
    case GSearch::CutOff:
        return WaitForGrowth(pauses.betweenParts);
    case GSearch::NotFound:
        break;
    }
    if (source->HasFault())
        return ReadAgain();
    return layout.expectedEnd > range.end ? WaitForGrowth(pauses.betweenParts) : GStep::Done;
}

// Goes on in the first "movi" list behind the present one among the chunks of [from, until): in the RIFF that they lie
// in, or in a continuation.
GAviIndexScanner::GSearch GAviIndexScanner::FindMovi(std::int64_t from, std::int64_t until, GWhere where)
{
    GRiffWalker walker(*source, from, until);
    GRiffChunk chunk;
    while (walker.Next(chunk)) {
        std::uint32_t type = 0;
        const bool hasType = chunk.code == kListCode || chunk.code == kRiffCode;
        if (StopRequested() || chunk.code == 0 || (hasType && !ReadListType(*source, chunk, type)))
            return GSearch::CutOff;
        if (chunk.code == kListCode && type == kMoviType && where == GWhere::InsideRiff && chunk.Body() > range.start) {
            range = MoviRangeOf(*source, chunk, until);
            riffEnd = until;
            position = range.start + kCodeSize;
            phase = 0;
            return GSearch::Found;
        }
        const bool mayContinue = until == kRiffEndUnknown;
        if (chunk.code == kRiffCode && type == FourCC("AVIX") && mayContinue && chunk.position > range.start) {
            const std::int64_t end = RiffEnd(chunk.position, chunk.size);
            if (end == kRiffEndUnknown) {
                // Not by recursion: such a part has all later ones in it, and there may be a million.
                walker.Enter(chunk);
                where = GWhere::InsideRiff;
                continue;
            }
            const GSearch inside = FindMovi(chunk.Body() + kCodeSize, end, GWhere::InsideRiff);
            if (inside != GSearch::NotFound)
                return inside;
        }
    }
    const std::int64_t size = source->GetSize();
    return walker.Position() < until && walker.Position() != size ? GSearch::CutOff : GSearch::NotFound;
}

GAviIndexScanner::GStep GAviIndexScanner::WaitForGrowth(std::chrono::milliseconds pause)
{
    if (source->HasFault())
        return ReadAgain();
    window->Forget();  // what is there now may be filled in meanwhile
    for (;;) {
        // Compared with the size before the attempt that failed, so that growth since then is not waited for.
        const std::int64_t size = source->GetSize();
        if (size != sizeSeen) {
            sizeSeen = size;
            SetCaughtUp(false);
            return GStep::Again;
        }
        SetCaughtUp(true);
        if (!Pause(pause))
            return GStep::Done;
    }
}

// A disk or a network that fails may work again in a moment.
GAviIndexScanner::GStep GAviIndexScanner::ReadAgain()
{
    source->TakeFault();
    window->Forget();
    faults = position == faultAt ? faults + 1 : 1;
    faultAt = position;
    SetCaughtUp(faults >= kPatience);
    return Pause(pauses.withinData) ? GStep::Again : GStep::Done;
}

}  // namespace vex
