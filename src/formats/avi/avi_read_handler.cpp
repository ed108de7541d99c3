#include "formats/avi/avi_read_handler.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "formats/avi/avi_parser.h"
#include "formats/avi/pin_names.h"
#include "io/checked_math.h"
#include "io/limits.h"
#include "platform/trace.h"

namespace vex {
namespace {

// Chunks that ReadPacket passes over in one call: some milliseconds' worth of a file that lost its end.
constexpr int kMaxSkipped = 4096;

constexpr std::uint64_t kMaxDuration = std::numeric_limits<std::int64_t>::max() / 4;

REFERENCE_TIME DeclaredDuration(const GAviLayout& layout)
{
    const std::uint64_t microseconds = std::uint64_t{layout.microSecPerFrame} * layout.totalFrames;
    const auto units = CheckedMul(microseconds, 10);
    return static_cast<REFERENCE_TIME>(std::min(units.value_or(kMaxDuration), kMaxDuration));
}

const char* NameOf(GAviIndex index)
{
    switch (index) {
    case GAviIndex::OpenDml:
        return "OpenDML";
    case GAviIndex::Idx1:
        return "idx1";
    case GAviIndex::None:
        break;
    }
    return "none";
}

}  // namespace

GAvi2ReadHandler::GAvi2ReadHandler(std::unique_ptr<GFileBase> file, GAviScanPauses scanPauses)
    : GReadHandler(std::move(file), "AVI Handler Error, Do not open file!\n"), pauses(scanPauses)
{
}

GStatus GAvi2ReadHandler::OpenContainer()
{
    {
        G_TRY(layout, GAviParser(*source, damage).Parse());
    }
    Seek(0, GSeekMode::Independent);
    duration = DeclaredDuration(layout);
    for (const auto& stream : layout.streams)
        duration = std::max(duration, stream->DurationAtOpen());
    const auto seconds = static_cast<int>(std::min<REFERENCE_TIME>(duration / kUnitsPerSecond, 359'999));
    Trace("Duration %d:%02d:%02d\n", seconds / 3600, seconds / 60 % 60, seconds % 60);
    DescribeStreams();

    if (layout.index == GAviIndex::None && !layout.moviRanges.empty()) {
        scanner = std::make_unique<GAviIndexScanner>(layout, damage, pauses);
        if (!scanner->Start(source->NewInstance(), Path()))
            damage.Add("no thread to index the data", layout.moviRanges.front().start);
    }
    return {};
}

void GAvi2ReadHandler::CloseContainer()
{
    scanner.reset();
    layout = {};
    infos.clear();
    duration = 0;
    announced = {};
    sizeSeen = 0;
}

void GAvi2ReadHandler::DescribeStreams()
{
    for (const auto& stream : layout.streams) {
        GStreamInfo info;
        info.number = stream->Digits();
        if (CMediaType type = stream->Format().MediaType(); type.IsValid()) {
            info.pinName = AviPinName(type.majortype, infos.size());
            info.mediaTypes.push_back(std::move(type));
        }
        infos.push_back(std::move(info));
    }
}

REFERENCE_TIME GAvi2ReadHandler::LongestStreamDuration() const
{
    REFERENCE_TIME longest = 0;
    for (const auto& stream : layout.streams)
        longest = std::max(longest, stream->Duration());
    return longest;
}

// Ties go to the stream that comes first.
GAvi2ReadStream* GAvi2ReadHandler::EarliestStream() const
{
    GAvi2ReadStream* earliest = nullptr;
    REFERENCE_TIME earliestDue = 0;
    for (const auto& stream : layout.streams) {
        const auto due = stream->DueTime();
        if (due && (!earliest || *due < earliestDue)) {
            earliest = stream.get();
            earliestDue = *due;
        }
    }
    return earliest;
}

GReadStatus GAvi2ReadHandler::ReadPacket(GNextPacket& next)
{
    for (int skipped = 0; skipped < kMaxSkipped; ++skipped) {
        // Asked before the tables: what the scanner adds meanwhile is met by the next call.
        const bool scanning = scanner && scanner->IsScanning();
        const std::uint64_t progress = scanning ? scanner->Progress() : 0;
        GAvi2ReadStream* const stream = EarliestStream();
        if (!stream) {
            if (!scanning)
                return GReadStatus::End;
            scanner->WaitForProgress(progress);
            return GReadStatus::Again;
        }
        const auto timed = stream->NextChunk();
        stream->Advance();
        if (!timed)
            continue;
        if (source->Seek(timed->chunk.position) != timed->chunk.position) {
            damage.Add("chunk lies beyond the end of the file", timed->chunk.position, timed->chunk.size);
            continue;
        }
        announced = timed->chunk;
        next = {};
        next.stream = stream->Digits();
        next.size = timed->chunk.size;
        next.keyFrame = timed->chunk.keyFrame;
        next.start = timed->start;
        next.stop = timed->stop;
        return GReadStatus::Packet;
    }
    return GReadStatus::Again;
}

// False when less than what the file should hold of the chunk can be read. The size is asked for only where it matters:
// doing so for each chunk costs as much as reading a small one.
bool GAvi2ReadHandler::ReadAnnounced(GBuffer& data)
{
    if (announced.position + announced.size > sizeSeen)
        sizeSeen = source->GetSize();
    const std::int64_t there = std::clamp<std::int64_t>(sizeSeen - announced.position, 0, announced.size);
    const auto wanted = static_cast<std::uint32_t>(there);
    data.Resize(wanted);
    source->Seek(announced.position);
    return wanted == 0 || source->ReadBulk(data.Data(), wanted) == wanted;
}

bool GAvi2ReadHandler::ReadPayload(GPacket2& packet)
{
    packet.data.Clear();
    if (announced.size > kMaxPacketSize) {
        damage.Add("chunk is too large", announced.position, announced.size);
        return false;
    }
    if (!ReadAnnounced(packet.data)) {
        sizeSeen = 0;  // the file may have shrunk
        if (!ReadAnnounced(packet.data)) {
            // The bytes before the ones that could not be read are there.
            const std::int64_t got = source->Tell() - announced.position;
            packet.data.Truncate(static_cast<std::size_t>(std::clamp<std::int64_t>(got, 0, announced.size)));
        }
    }
    const std::size_t got = packet.data.Size();
    if (got < announced.size)
        damage.Add("chunk is cut off", announced.position, announced.size - got);
    return got != 0 || announced.size == 0;
}

bool GAvi2ReadHandler::LeaveAnnounced(GPacket2& packet)
{
    if (announced.size > kMaxPacketSize || announced.position + announced.size > sizeSeen)
        return false;
    packet.position = announced.position;
    packet.unread = announced.size;
    return true;
}

std::size_t GAvi2ReadHandler::CutLeft(const GPacket2& packet, std::size_t there)
{
    damage.Add("chunk is cut off", packet.position, packet.unread - there);
    return there;
}

std::optional<REFERENCE_TIME> GAvi2ReadHandler::Seek(REFERENCE_TIME time, GSeekMode mode)
{
    GAvi2ReadStream* const reference = layout.FindStream(layout.referenceVideoStream);
    if (mode == GSeekMode::Independent || time <= 0 || !reference) {
        Trace("AVI2 SEEK %lld\n", static_cast<long long>(time));
        for (const auto& stream : layout.streams)
            stream->SeekTo(time);
        return time;
    }
    const REFERENCE_TIME reached = reference->SeekToKeyFrameFrom(time);
    for (const auto& stream : layout.streams) {
        if (stream.get() != reference)
            stream->SeekTo(reached);
    }
    return reached;
}

std::vector<GProperty> GAvi2ReadHandler::Properties() const
{
    std::vector<GProperty> properties{{.name = "index", .type = GProperty::Type::Text, .value = NameOf(layout.index)}};
    if (layout.unnamedBytes > 0)
        properties.push_back({.name = "unindexed_bytes",
                              .type = GProperty::Type::Integer,
                              .value = std::to_string(layout.unnamedBytes)});
    return properties;
}

}  // namespace vex
