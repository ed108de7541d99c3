#include "formats/avi/avi_scanner.h"

#include <algorithm>
#include <array>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "framework/media/codec_tags.h"
#include "io/byte_reader.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr DWORD kStopRequest = 0;
constexpr std::uint32_t kMoviType = FourCC("movi");
constexpr std::uint32_t kIdx1Code = FourCC("idx1");
constexpr std::uint32_t kKeyFrameBytes = 8;  // enough for every rule that tells key frames
constexpr std::uint32_t kSearchBlock = 0x40000;
constexpr std::uint32_t kCodeSize = 4;

// Chunks in the data that carry none and may be of any size.
bool IsFiller(std::uint32_t code) { return code == kJunkCode || (code & 0xFFFF) == ('i' | 'x' << 8); }

DWORD Milliseconds(std::chrono::milliseconds pause) { return static_cast<DWORD>(pause.count()); }

}  // namespace

GAviIndexScanner::GAviIndexScanner(std::unique_ptr<GFileBase> file, const GAviLayout& fileLayout, GDamageLog& damageLog,
                                   GAviScanPauses scanPauses)
    : layout(fileLayout), damage(damageLog), pauses(scanPauses), source(std::move(file))
{
}

GAviIndexScanner::~GAviIndexScanner() { Stop(); }

bool GAviIndexScanner::Start(const char* filePath)
{
    path = filePath;
    for (const auto& stream : layout.streams)
        maxChunk = std::max(maxChunk, stream->Format().BufferSize());
    // Before the thread runs: a reader that finds the tables empty must not take that for the end.
    state.store(GState::Scanning, std::memory_order_release);
    if (source && Create())
        return true;
    state.store(GState::Finished, std::memory_order_release);
    return false;
}

void GAviIndexScanner::Stop()
{
    CallWorker(kStopRequest);
    Close();
}

std::uint64_t GAviIndexScanner::Progress() const
{
    const GMutexLock held(lock);
    return progress;
}

void GAviIndexScanner::WaitForProgress(std::uint64_t seen) const
{
    GMutexLock held(lock);
    if (progress == seen)
        held.WaitFor(advanced, std::chrono::milliseconds(1));
}

void GAviIndexScanner::CountProgress()
{
    const GMutexLock held(lock);
    ++progress;
    advanced.notify_all();
}

void GAviIndexScanner::SetState(GState next)
{
    if (state.exchange(next, std::memory_order_acq_rel) != next)
        CountProgress();
}

DWORD GAviIndexScanner::ThreadProc()
{
    SetCurrentThreadName("avi index");
    try {
        Scan();
    } catch (const std::bad_alloc&) {
        damage.Add("out of memory for the index", position);
    }
    source->Close();
    SetState(GState::Finished);
    Trace("End of IndexMaking\n");
    Reply(0);
    return 0;
}

void GAviIndexScanner::Scan()
{
    if (source->Open(path.c_str()) == 0)
        return;
    sizeSeen = source->GetSize();
    range = layout.moviRanges.front();
    riffEnd = layout.firstRiffEnd;
    position = range.start + kCodeSize;
    while (!RequestPending() && ScanOne() == GStep::Again) {}
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

    if (stream && stream->Append(chunk.Body(), chunk.size, IsKeyFrameChunk(*stream, chunk), GAviAppend::Beyond))
        CountProgress();
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
    const bool stopped = WaitRequest(Milliseconds(pauses.withinData));
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
std::span<const std::uint8_t> GAviIndexScanner::SearchBlockAt(std::int64_t from)
{
    const std::int64_t inside = from - searchStart;
    if (inside >= 0 && inside + kCodeSize <= static_cast<std::int64_t>(searchBlock.size()))
        return std::span(searchBlock).subspan(static_cast<std::size_t>(inside));
    searchBlock.clear();
    if (source->Seek(from) != from)
        return {};
    searchBlock.resize(kSearchBlock);
    searchBlock.resize(source->ReadBulk(searchBlock.data(), kSearchBlock));
    searchStart = from;
    return searchBlock;
}

std::int64_t GAviIndexScanner::FindFrame(std::int64_t from)
{
    while (!RequestPending()) {
        const std::span<const std::uint8_t> block = SearchBlockAt(from);
        if (block.size() < kCodeSize)
            break;
        for (std::size_t i = 0; i + kCodeSize <= block.size(); ++i) {
            if (block[i] < '0' || block[i] > ':')
                continue;
            const std::uint32_t code = GByteReader(block.subspan(i, kCodeSize)).FourCC();
            const GAvi2ReadStream* const stream = layout.FindStream(code);
            if (stream && stream->ChunkId() == code) {
                const std::int64_t found = from + static_cast<std::int64_t>(i);
                Trace("GAviReadHandler::FindFrame() : %lld\n", static_cast<long long>(found));
                return found;
            }
        }
        Trace("GAviReadHandler::FindFrame() : %d\n", -1);
        from += static_cast<std::int64_t>(block.size() - (kCodeSize - 1));  // a code may lie across two blocks
    }
    return -1;
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
    return layout.expectedEnd > range.end ? WaitForGrowth(pauses.betweenParts) : GStep::Done;
}

// Goes on in the first "movi" list behind the present one among the chunks of [from, until): in the RIFF that they lie in,
// or in a continuation.
GAviIndexScanner::GSearch GAviIndexScanner::FindMovi(std::int64_t from, std::int64_t until, GWhere where)
{
    GRiffWalker walker(*source, from, until);
    GRiffChunk chunk;
    while (walker.Next(chunk)) {
        std::uint32_t type = 0;
        const bool hasType = chunk.code == kListCode || chunk.code == kRiffCode;
        if (RequestPending() || chunk.code == 0 || (hasType && !ReadListType(*source, chunk, type)))
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
    searchBlock.clear();  // what is there now may be filled in meanwhile
    for (;;) {
        // Compared with the size before the attempt that failed, so that growth since then is not waited for.
        const std::int64_t size = source->GetSize();
        if (size != sizeSeen) {
            sizeSeen = size;
            SetState(GState::Scanning);
            return GStep::Again;
        }
        SetState(GState::WaitingForGrowth);
        if (WaitRequest(Milliseconds(pause)))
            return GStep::Done;
    }
}

}  // namespace vex
