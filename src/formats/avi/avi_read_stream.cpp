#include "formats/avi/avi_read_stream.h"

#include <algorithm>

#include "formats/avi/riff_walker.h"

namespace vex {
namespace {

// Audio is read this far ahead of video, so that a decoder never waits for it.
constexpr REFERENCE_TIME kAudioLead = kUnitsPerSecond;

constexpr std::uint32_t kCompressedVideo = 'd' << 16 | 'c' << 24;
constexpr std::uint32_t kUncompressedVideo = 'd' << 16 | 'b' << 24;
constexpr std::uint32_t kAudio = 'w' << 16 | 'b' << 24;

}  // namespace

void GAvi2ReadStream::SetNumber(std::size_t index)
{
    digits = '0' + static_cast<std::uint32_t>(index / 10) + (('0' + static_cast<std::uint32_t>(index % 10)) << 8);
    if (format.IsVideo())
        chunkId = digits | (format.Compression() != 0 ? kCompressedVideo : kUncompressedVideo);
    else if (format.IsAudio())
        chunkId = digits | kAudio;
}

REFERENCE_TIME GAvi2ReadStream::DurationAtOpen() const
{
    if (!announcedLength)
        return Duration();
    return format.TimeAt(*announcedLength, *announcedLength);
}

bool GAvi2ReadStream::Append(std::int64_t position, std::uint32_t size, bool keyFrame, GAviAppend rule)
{
    const GMutexLock held(lock);
    if (!table.empty()) {
        const std::int64_t last = table.back().position;
        if (position < last || (position == last && rule == GAviAppend::Beyond))
            return false;
    }
    table.push_back({position, size, keyFrame, BytesLocked()});
    return true;
}

bool GAvi2ReadStream::IsEmpty() const
{
    const GMutexLock held(lock);
    return table.empty();
}

void GAvi2ReadStream::Clear()
{
    const GMutexLock held(lock);
    table.clear();
    cursor = 0;
}

std::int64_t GAvi2ReadStream::NamedBytes() const
{
    const GMutexLock held(lock);
    return static_cast<std::int64_t>(BytesLocked() + table.size() * kRiffHeaderSize);
}

void GAvi2ReadStream::AddExtents(std::vector<GAviExtent>& extents) const
{
    const GMutexLock held(lock);
    for (const GAviChunk& chunk : table)
        extents.push_back({chunk.position - kRiffHeaderSize, chunk.position + chunk.size});
}

REFERENCE_TIME GAvi2ReadStream::Duration() const
{
    const GMutexLock held(lock);
    return table.empty() ? 0 : format.TimeAt(table.size(), BytesLocked());
}

std::optional<REFERENCE_TIME> GAvi2ReadStream::DueTime() const
{
    const GMutexLock held(lock);
    if (cursor >= table.size())
        return std::nullopt;
    return StartTimeLocked() - (format.IsAudio() ? kAudioLead : 0);
}

std::optional<GAviTimedChunk> GAvi2ReadStream::NextChunk() const
{
    const GMutexLock held(lock);
    if (cursor >= table.size())
        return std::nullopt;
    const GAviChunk& chunk = table[cursor];
    return GAviTimedChunk{chunk, StartTimeLocked(), format.TimeAt(cursor + 1, chunk.bytesBefore + chunk.size)};
}

void GAvi2ReadStream::Advance()
{
    const GMutexLock held(lock);
    if (cursor < table.size())
        ++cursor;
}

void GAvi2ReadStream::SeekTo(REFERENCE_TIME time)
{
    const GMutexLock held(lock);
    cursor = PlaceOfLocked(time);
    if (!format.IsVideo())
        return;
    for (std::size_t i = cursor; i < table.size(); --i) {  // wraps past the start
        if (table[i].keyFrame) {
            cursor = i;
            return;
        }
    }
}

REFERENCE_TIME GAvi2ReadStream::SeekToKeyFrameFrom(REFERENCE_TIME time)
{
    const GMutexLock held(lock);
    cursor = PlaceOfLocked(time);
    if (format.IsVideo()) {
        while (cursor < table.size() && !table[cursor].keyFrame)
            ++cursor;
    }
    return StartTimeLocked();
}

std::size_t GAvi2ReadStream::PlaceOfLocked(REFERENCE_TIME time) const
{
    if (table.empty() || time <= 0)
        return 0;
    const std::uint64_t target = format.PositionAt(static_cast<std::uint64_t>(time / kUnitsPerSecond));
    const std::size_t place = target < table.size() ? static_cast<std::size_t>(target) : table.size() - 1;
    return format.CountsBytes() ? PlaceOfByteLocked(target, place) : place;
}

// Chunks at and before `target` are told apart from those behind it by a guess at the average chunk size: from the
// guess the search goes forward to the chunk that holds the byte, or back to the last one that begins before it. The
// two differ where a chunk begins exactly at the byte.
std::size_t GAvi2ReadStream::PlaceOfByteLocked(std::uint64_t target, std::size_t otherwise) const
{
    const std::size_t last = table.size() - 1;
    std::size_t guess = last;
    if (const std::uint64_t bytes = table[last].bytesBefore; bytes > 0) {
        const double share = static_cast<double>(target) / static_cast<double>(bytes);
        const double index = share * static_cast<double>(table.size());
        guess = index < static_cast<double>(last) ? static_cast<std::size_t>(index) : last;
    }
    const auto startsBefore = [](const GAviChunk& chunk, std::uint64_t byte) { return chunk.bytesBefore < byte; };
    const auto startsAfter = [](std::uint64_t byte, const GAviChunk& chunk) { return byte < chunk.bytesBefore; };
    const auto behind = table[guess].bytesBefore <= target
                            ? std::upper_bound(table.begin(), table.end(), target, startsAfter)
                            : std::lower_bound(table.begin(), table.end(), target, startsBefore);
    const bool ranOff = behind == table.begin() || behind == table.end();
    return ranOff ? otherwise : static_cast<std::size_t>(behind - table.begin()) - 1;
}

std::uint64_t GAvi2ReadStream::BytesLocked() const
{
    return table.empty() ? 0 : table.back().bytesBefore + table.back().size;
}

REFERENCE_TIME GAvi2ReadStream::StartTimeLocked() const
{
    if (cursor == 0)
        return 0;
    return format.TimeAt(cursor, cursor < table.size() ? table[cursor].bytesBefore : BytesLocked());
}

}  // namespace vex
