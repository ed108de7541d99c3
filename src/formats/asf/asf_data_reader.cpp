#include "formats/asf/asf_data_reader.h"

#include <algorithm>

#include "io/limits.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::size_t kBlock = 128u << 10;  // bytes read at once
// A search looks at places a packet size apart: of large packets it reads the headers alone.
constexpr std::uint32_t kLargePacket = 16u << 10;    // bytes
constexpr std::size_t kLargePacketBlock = 2u << 10;  // bytes
constexpr std::uint64_t kWorkPerCall = 1u << 20;     // bytes
constexpr std::uint64_t kWorkPerStep = 64;           // counted for a header, in bytes
constexpr std::uint64_t kTriesPerCall = 8u << 10;    // positions of a search for a packet
constexpr std::uint64_t kTriesInPackets = 3;         // after so many packet sizes a search gives up
constexpr REFERENCE_TIME kUnitsPerMillisecond = 10'000;

}  // namespace

GAsfDataReader::GAsfDataReader(GFileBase& byteSource, const GAsfHeader& fileHeader, GDamageLog& damageLog,
                               const std::atomic<bool>& interruptFlag)
    : source(byteSource),
      header(fileHeader),
      damage(damageLog),
      interrupted(interruptFlag),
      window(byteSource, &interruptFlag, kBlock),
      probe(byteSource, &interruptFlag, fileHeader.packetSize > kLargePacket ? kLargePacketBlock : kBlock),
      fileSize(byteSource.GetSize())
{
    for (const auto& stream : header.streams)
        if (stream->enabled && stream->selected)
            selected[stream->number] = stream.get();
    wanted = selected;
    limits = {header.packetSize, header.DataSize(fileSize)};
    const auto first = ReadAsfPacket(window.At(header.dataStart, kAsfPacketHeaderMax), limits);
    corrections = first && first->correction;
    MoveTo(header.dataStart);
}

void GAsfDataReader::Want(std::span<const std::uint32_t> numbers)
{
    wanted = {};
    for (const std::uint32_t number : numbers)
        if (number < wanted.size())
            wanted[number] = selected[number];
}

void GAsfDataReader::MoveTo(std::int64_t packetPosition)
{
    for (const auto& stream : header.streams)
        stream->Drop();
    walk.reset();
    compressed.reset();
    appending.reset();
    resync.reset();
    complete = nullptr;
    suspect = gaveUp = false;
    position = packetPosition;
    window.Forget();
    probe.Forget();
}

// Of the file as it is now: asked for again when a read would pass the end known.
std::int64_t GAsfDataReader::DataEnd(std::int64_t needed)
{
    const std::int64_t now = needed > fileSize ? source.GetSize() : fileSize;
    if (now != fileSize) {
        fileSize = now;
        limits.dataSize = header.DataSize(now);
        window.Forget();
        probe.Forget();
    }
    return header.DataEnd(fileSize);
}

GAsfStep GAsfDataReader::Next()
{
    if (complete)
        complete->Drop();
    complete = nullptr;
    workDone = 0;
    while (workDone < kWorkPerCall && !interrupted.load(std::memory_order_acquire)) {
        workDone += kWorkPerStep;
        const GAsfStep step = Step();
        if (step == GAsfStep::End)
            return step;
        if (complete)
            return GAsfStep::Object;
    }
    return GAsfStep::Again;
}

// Again: something was done, or an object is complete.
GAsfStep GAsfDataReader::Step()
{
    if (gaveUp)
        return GAsfStep::End;
    if (resync)
        return Resync();
    if (appending) {
        AppendBytes();
        return GAsfStep::Again;
    }
    if (compressed) {
        ReadSubPayload();
        return GAsfStep::Again;
    }
    if (!walk)
        return BeginPacket();
    if (const auto payload = walk->Next(window)) {
        if (!TakePayload(*payload))
            suspect = true;
        return GAsfStep::Again;
    }
    FinishPacket();
    return GAsfStep::Again;
}

GAsfStep GAsfDataReader::BeginPacket()
{
    const std::int64_t end = DataEnd(position + limits.packetSize);
    const std::int64_t left = end - position;
    if (left < kAsfSmallestPacket) {
        if (end < header.dataEnd && header.dataEnd != kAsfUntilFileEnd)
            damage.Add("the file ends inside its data", end);
        return GAsfStep::End;
    }
    const auto count = static_cast<std::size_t>(std::min<std::int64_t>(left, kAsfPacketHeaderMax));
    const auto packet = ReadAsfPacket(window.At(position, count), limits);
    if (!packet) {
        damage.Add("not a data packet", position, limits.packetSize);
        BeginResync();
        return GAsfStep::Again;
    }
    suspect = false;
    packetEnd = position + static_cast<std::int64_t>(std::max(packet->length, limits.packetSize));
    walk.emplace(*packet, position, end);
    return GAsfStep::Again;
}

// A packet in which something is wrong may not be one: then the next one is where one makes sense.
void GAsfDataReader::FinishPacket()
{
    // A packet that reaches beyond the data only by what it says of itself is not cut off, it lies.
    const bool cutOff = walk->CutOff() && position + limits.packetSize > DataEnd(0);
    if (walk->Broken() || (walk->CutOff() && !cutOff)) {
        suspect = true;
        damage.Add("a data packet contradicts itself", position);
    }
    walk.reset();
    if (cutOff) {
        damage.Add("the last data packet is cut off", position);
        position = DataEnd(0);
    } else if (!suspect) {
        position = packetEnd;
    } else if (FollowsOn(position + limits.packetSize)) {
        position += limits.packetSize;
    } else if (FollowsOn(packetEnd)) {
        position = packetEnd;
    } else {
        BeginResync();
    }
}

void GAsfDataReader::BeginResync()
{
    resync = GResync{.next = position + 1, .triesLeft = std::uint64_t{limits.packetSize} * kTriesInPackets};
}

// A packet makes sense there, or the data ends there.
bool GAsfDataReader::FollowsOn(std::int64_t next)
{
    const std::int64_t end = DataEnd(next);
    if (next >= end)
        return next == end;
    const GBytes first = probe.At(next, 1);
    return !first.empty() && (first[0] >> 7 != 0) == corrections && IsSoundAsfPacket(probe, next, end, limits);
}

// Whether whole packets lie between an earlier find and a later one.
bool GAsfDataReader::OnSameGrid(std::optional<std::int64_t> earlier, std::int64_t later) const
{
    return earlier && (later - *earlier) % limits.packetSize == 0;
}

GAsfStep GAsfDataReader::Resync()
{
    workDone = kWorkPerCall;
    for (std::uint64_t tries = std::min(resync->triesLeft, kTriesPerCall);
         tries > 0 && !interrupted.load(std::memory_order_acquire); --tries) {
        const std::int64_t end = DataEnd(resync->next);
        if (end - resync->next < kAsfSmallestPacket)
            break;
        --resync->triesLeft;
        if (FollowsOn(resync->next)) {
            if (FollowsOn(resync->next + limits.packetSize))
                return EndResync(OnSameGrid(resync->lonely, resync->next) ? resync->lonely : resync->next);
            if (!resync->lonely)
                resync->lonely = resync->next;
        }
        ++resync->next;
    }
    if (resync->triesLeft > 0 && DataEnd(resync->next) - resync->next >= kAsfSmallestPacket)
        return GAsfStep::Again;
    return EndResync(resync->lonely);
}

GAsfStep GAsfDataReader::EndResync(std::optional<std::int64_t> found)
{
    resync.reset();
    if (found) {
        position = *found;
        return GAsfStep::Again;
    }
    Trace("No data packet within three packet sizes\n");
    gaveUp = true;
    return GAsfStep::End;
}

// False when it is malformed.
bool GAsfDataReader::TakePayload(const GAsfPayload& payload)
{
    if (payload.replicatedLength >= 2 && !payload.DescribesObject()) {
        damage.Add("a payload has 2 to 7 replicated bytes", payload.dataPosition, payload.dataSize);
        return false;
    }
    if (payload.DescribesObject()) {
        if (payload.objectSize > limits.dataSize || payload.objectSize > kMaxPacketSize) {
            Trace("%d - %d", static_cast<int>(payload.objectSize), static_cast<int>(limits.dataSize));
            damage.Add("a media object is larger than the data", payload.dataPosition, payload.dataSize);
            return false;
        }
        const REFERENCE_TIME time = payload.presentationMs * kUnitsPerMillisecond;
        if (header.playDuration > 0 && time > header.preroll + header.playDuration) {
            damage.Add("a media object lies behind the duration", payload.dataPosition, payload.dataSize);
            return false;
        }
    }
    GAsfEXReadStream* const stream = wanted[payload.stream];
    return !stream || JoinPayload(payload, *stream);
}

bool GAsfDataReader::JoinPayload(const GAsfPayload& payload, GAsfEXReadStream& stream)
{
    if (payload.IsCompressed()) {
        compressed = GCompressed{
            &stream,        payload.dataPosition, payload.dataPosition + static_cast<std::int64_t>(payload.dataSize),
            payload.offset, payload.deltaMs,      payload.keyFrame};
        return true;
    }
    GAsfJoin joined{};
    if (payload.DescribesObject())
        joined = stream.Begin({payload.keyFrame, payload.objectSize,
                               payload.hasOffset ? std::optional(payload.offset) : std::nullopt,
                               payload.presentationMs * kUnitsPerMillisecond + stream.timeOffset},
                              payload.dataSize);
    else
        joined = stream.Continue(payload.dataSize);
    if (joined == GAsfJoin::Malformed) {
        damage.Add("a payload does not fit its media object", payload.dataPosition, payload.dataSize);
        return false;
    }
    if (joined == GAsfJoin::Joined)
        BeginAppending(stream, payload.dataPosition, payload.dataSize);
    return true;
}

void GAsfDataReader::ReadSubPayload()
{
    GCompressed& inside = *compressed;
    if (inside.position >= inside.end) {
        compressed.reset();
        return;
    }
    const GBytes length = window.At(inside.position, 1);
    const std::int64_t data = inside.position + 1;
    if (length.empty() || length[0] > inside.end - data) {
        damage.Add("a sub-payload is longer than its payload", inside.position,
                   static_cast<std::uint64_t>(inside.end - inside.position));
        suspect = true;
        compressed.reset();
        return;
    }
    const std::uint32_t size = length[0];
    GAsfEXReadStream& stream = *inside.stream;
    stream.Drop();
    const REFERENCE_TIME time =
        static_cast<REFERENCE_TIME>(inside.presentationMs) * kUnitsPerMillisecond + stream.timeOffset;
    inside.position = data + size;
    inside.presentationMs += inside.deltaMs;
    if (stream.Begin({inside.keyFrame, size, 0, time}, size) == GAsfJoin::Joined)
        BeginAppending(stream, data, size);
}

void GAsfDataReader::BeginAppending(GAsfEXReadStream& stream, std::int64_t from, std::uint64_t size)
{
    appending = GAppending{&stream, from, size};
    AppendBytes();
}

// A part of the payload: one may be as large as the file.
void GAsfDataReader::AppendBytes()
{
    GAppending& part = *appending;
    GAsfEXReadStream& stream = *part.stream;
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(part.left, kBlock / 2));
    const GBytes bytes = window.At(part.position, count);
    if (bytes.empty() && part.left > 0) {
        stream.Drop();
        damage.Add("a payload cannot be read", part.position, part.left);
        part.left = 0;
    } else if (!stream.Append(bytes)) {
        part.left = 0;
    }
    workDone += bytes.size();
    part.position += static_cast<std::int64_t>(bytes.size());
    part.left -= std::min<std::uint64_t>(bytes.size(), part.left);
    if (part.left > 0)
        return;
    appending.reset();
    if (stream.IsComplete())
        SetComplete(stream);
}

// Objects of no bytes are passed over.
void GAsfDataReader::SetComplete(GAsfEXReadStream& stream)
{
    if (stream.objectSize == 0)
        stream.Drop();
    else
        complete = &stream;
}

}  // namespace vex
