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

// Many small packets are read at once; of large ones the payload headers alone.
constexpr std::uint32_t kLargePacket = 16u << 10;    // bytes
constexpr std::size_t kBlock = 64u << 10;            // bytes
constexpr std::size_t kLargePacketBlock = 2u << 10;  // bytes

// Stricter than a reader: what it takes for a packet by mistake would send seeks astray.
bool IsUsual(const GAsfPacket& packet)
{
    return packet.correction && (packet.lengthFlags & kSequenceTypeMask) == 0 &&
           (packet.propertyFlags & kStreamNumberTypeMask) == kStreamNumberOneByte &&
           (!packet.IsMultiple() || (packet.payloadFlags & kPayloadLengthTypeMask) == kPayloadLengthTwoBytes);
}

}  // namespace

GAsfUserIndex::GScanned GAsfUserIndex::ScanPacket(GScanWindow& window, std::int64_t position, std::int64_t end,
                                                  REFERENCE_TIME& time) const
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
        if (payload->stream != plan.stream || !payload->DescribesObject() || payload->offset != 0 ||
            (plan.video && !payload->keyFrame))
            continue;
        time = payload->presentationMs * kUnitsPerMillisecond;
        if (time > 0 && (plan.latest == 0 || time <= plan.latest))
            return GScanned::Match;
    }
    return walk.Broken() ? GScanned::Unreadable : GScanned::Nothing;
}

void GAsfUserIndex::MakeUserIndex(GFileBase& source)
{
    const std::int64_t packetSize = plan.limits.packetSize;
    GScanWindow window(source, &StopFlag(), packetSize > kLargePacket ? kLargePacketBlock : kBlock);
    std::int64_t position = plan.dataStart;
    std::int64_t fileSize = source.GetSize();
    while (!StopRequested() && packetSize <= plan.dataEnd - position) {
        const std::int64_t end = std::min(plan.dataEnd, fileSize);
        REFERENCE_TIME time = 0;
        GScanned scanned = GScanned::Missing;
        if (packetSize <= end - position)
            scanned = ScanPacket(window, position, end, time);
        switch (scanned) {
        case GScanned::Missing:
            SetCaughtUp(true);
            if (!Pause(plan.growthPause))
                return;
            fileSize = source.GetSize();
            window.Forget();
            if (packetSize <= std::min(plan.dataEnd, fileSize) - position)
                SetCaughtUp(false);
            break;
        case GScanned::Unreadable:
            ++position;
            break;
        case GScanned::Nothing:
            position += packetSize;
            break;
        case GScanned::Match:
            if (!Append({time, position}))
                return;
            position += kPacketsPassed * packetSize;
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
