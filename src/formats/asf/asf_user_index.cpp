#include "formats/asf/asf_user_index.h"

#include <algorithm>
#include <iterator>

namespace vex {
namespace {

constexpr std::uint8_t kPlainCorrection = 0x82;
constexpr std::uint8_t kSequenceTypeMask = 0x06;
constexpr std::uint8_t kStreamNumberTypeMask = 0xC0;
constexpr std::uint8_t kStreamNumberOneByte = 0x40;
constexpr std::uint8_t kPayloadLengthTypeMask = 0xC0;
constexpr std::uint8_t kPayloadLengthTwoBytes = 0x80;

constexpr std::int64_t kPacketsPassed = 10;  // behind a match
constexpr std::size_t kMaxEntries = 1u << 20;
constexpr REFERENCE_TIME kUnitsPerMillisecond = 10'000;

// Many small packets are read at once, but not behind a leap: often there is another one. Of large packets the payload
// headers alone are read.
constexpr std::uint32_t kLargePacket = 16u << 10;    // bytes
constexpr std::size_t kBlock = 64u << 10;            // bytes
constexpr std::size_t kLandingBlock = 8u << 10;      // bytes
constexpr std::size_t kLargePacketBlock = 2u << 10;  // bytes
constexpr std::int64_t kLeap = 16 << 10;             // bytes, at least
constexpr std::int64_t kPacketsBehindLeap = 3;       // the next object may begin a little later
constexpr std::uint64_t kMostPassed = 1u << 20;      // bytes of one object; its size may be a lie

// Where the scan is, and the bytes there.
class GScanPlace {
public:
    GScanPlace(GFileBase& source, const std::atomic<bool>& stop, std::int64_t start, std::int64_t sizeOfPackets)
        : position(start),
          packetSize(sizeOfPackets),
          blocks(source, &stop, packetSize > kLargePacket ? kLargePacketBlock : kBlock),
          landing(source, &stop, packetSize > kLargePacket ? kLargePacketBlock : kLandingBlock),
          landed(start - reach)
    {
    }

    GScanWindow& Window() { return position - landed < reach ? landing : blocks; }
    void PassPackets(std::int64_t count)
    {
        position += count * packetSize;
        if (count * packetSize >= kLeap)
            landed = position;
    }
    void Forget()
    {
        blocks.Forget();
        landing.Forget();
    }

    std::int64_t position;
    const std::int64_t packetSize;

private:
    // Bytes behind a leap for which little is read.
    const std::int64_t reach = std::max<std::int64_t>(kPacketsBehindLeap * packetSize, kLandingBlock);
    GScanWindow blocks;
    GScanWindow landing;
    std::int64_t landed = 0;  // behind the last leap
};

// How many packets on the stream's next object begins at the earliest: `rest` bytes of the last one fill those before.
std::int64_t PacketsToNext(std::uint64_t rest, std::int64_t packetSize)
{
    const auto bytes = static_cast<std::int64_t>(std::min(rest, kMostPassed));
    return std::max<std::int64_t>((bytes + packetSize - 1) / packetSize, 1);
}

// Stricter than a reader: what it takes for a packet by mistake would send seeks astray.
bool IsUsual(const GAsfPacket& packet)
{
    return packet.correction && (packet.lengthFlags & kSequenceTypeMask) == 0 &&
           (packet.propertyFlags & kStreamNumberTypeMask) == kStreamNumberOneByte &&
           (!packet.IsMultiple() || (packet.payloadFlags & kPayloadLengthTypeMask) == kPayloadLengthTwoBytes);
}

}  // namespace

GAsfUserIndex::GScanned GAsfUserIndex::ScanPacket(GScanWindow& window, std::int64_t position, std::int64_t end,
                                                  GFound& found) const
{
    const auto count = static_cast<std::size_t>(std::min<std::int64_t>(end - position, kAsfPacketHeaderMax));
    const GBytes bytes = window.At(position, count);
    if (bytes.empty())
        return GScanned::Missing;
    if (bytes[0] != kPlainCorrection)
        return GScanned::Unreadable;
    const auto packet = ReadAsfPacket(bytes, plan.limits);
    if (!packet || !IsUsual(*packet))
        return GScanned::Unreadable;
    GAsfPayloadWalk walk(*packet, position, end);
    while (const auto payload = walk.Next(window)) {
        if (payload->replicatedLength >= 2 && !payload->DescribesObject())
            return GScanned::Unreadable;
        if (payload->stream != plan.stream || !payload->DescribesObject())
            continue;
        const std::uint64_t held = payload->offset + payload->dataSize;
        const bool lacks =
            payload->hasOffset && payload->objectSize > held && payload->objectSize <= plan.limits.dataSize;
        found.rest = lacks ? payload->objectSize - held : 0;
        if (payload->offset != 0 || (plan.video && !payload->keyFrame))
            continue;
        found.time = payload->presentationMs * kUnitsPerMillisecond;
        if (found.time > 0 && (plan.latest == 0 || found.time <= plan.latest))
            return GScanned::Match;
    }
    return walk.Broken() ? GScanned::Unreadable : GScanned::Nothing;
}

void GAsfUserIndex::MakeUserIndex(GFileBase& source)
{
    LowerCurrentThreadPriority();  // the reader of the same file goes first
    const std::int64_t packetSize = plan.limits.packetSize;
    GScanPlace place(source, StopFlag(), plan.dataStart, packetSize);
    std::int64_t fileSize = source.GetSize();
    while (!StopRequested() && packetSize <= plan.dataEnd - place.position) {
        const std::int64_t end = std::min(plan.dataEnd, fileSize);
        GFound found;
        GScanned scanned = GScanned::Missing;
        if (packetSize <= end - place.position)
            scanned = ScanPacket(place.Window(), place.position, end, found);
        switch (scanned) {
        case GScanned::Missing:
            SetCaughtUp(true);
            if (!Pause(plan.growthPause))
                return;
            fileSize = source.GetSize();
            place.Forget();
            if (packetSize <= std::min(plan.dataEnd, fileSize) - place.position)
                SetCaughtUp(false);
            break;
        case GScanned::Unreadable:
            ++place.position;
            break;
        case GScanned::Nothing:
            place.PassPackets(PacketsToNext(found.rest, packetSize));
            break;
        case GScanned::Match:
            if (!Append({found.time, place.position}))
                return;
            place.PassPackets(std::max(kPacketsPassed, PacketsToNext(found.rest, packetSize)));
            break;
        }
    }
}

// False when the index is as large as it may be.
bool GAsfUserIndex::Append(const GEntry& entry)
{
    {
        const GMutexLock held(lock);
        if (entries.size() >= kMaxEntries)
            return false;
        if (!entries.empty() && entry.time <= entries.back().time)
            return true;
        entries.push_back(entry);
        upTo.store(std::max<REFERENCE_TIME>(entry.time - plan.preroll, 0), std::memory_order_release);
    }
    Advanced();
    return true;
}

std::optional<std::int64_t> GAsfUserIndex::Find(REFERENCE_TIME time) const
{
    const REFERENCE_TIME target = time + plan.preroll;
    const GMutexLock held(lock);
    if (entries.empty() || (plan.latest != 0 && target > plan.latest))
        return std::nullopt;
    const auto behind = std::ranges::upper_bound(entries, target, {}, &GEntry::time);
    return behind == entries.begin() ? behind->offset : std::prev(behind)->offset;
}

}  // namespace vex
