#include "formats/mpeg/mpeg_navigation.h"

#include <algorithm>

#include "formats/mpeg/mpeg_pes.h"
#include "io/byte_reader.h"

namespace vex {
namespace {

constexpr std::uint8_t kSearchInformation = 1;  // sub-stream number
constexpr std::int64_t kMargin = 90'000;        // ticks by which the times of a part may leave what its entry says
constexpr std::int64_t kLook = 1 << 20;         // bytes: packs come every half second
constexpr std::int64_t kMostLooked = 96 << 20;  // bytes of one file
constexpr std::size_t kMostParts = 64;

bool IsSearchPacket(GBytes bytes)
{
    return bytes.size() == kNavigationBytes && HasStartCode(bytes) && bytes[3] == mpeg_code::kPrivate2 &&
           bytes[6] == kSearchInformation;
}

std::optional<GNavigationEntry> EntryAt(GScanWindow& window, const GScanResult& result)
{
    if (!result.Found())
        return std::nullopt;
    return ReadNavigationEntry(window.At(result.position, kNavigationBytes), result.position);
}

// The first pack in [from, until), as far as one may be looked for. `budget`: less what was passed.
std::optional<GNavigationEntry> FindEntry(GScanWindow& window, std::int64_t from, std::int64_t until,
                                          std::int64_t& budget)
{
    until = std::min(until, from + kLook);
    const auto entry = EntryAt(window, window.FindForward(from, until, kNavigationBytes, IsSearchPacket));
    budget -= (entry ? entry->position : until) - from + static_cast<std::int64_t>(kNavigationBytes);
    return entry;
}

std::optional<GNavigationEntry> FindLastEntry(GScanWindow& window, std::int64_t fileSize)
{
    return EntryAt(window, window.FindBackward(fileSize - kLook, fileSize, kNavigationBytes, IsSearchPacket));
}

}  // namespace

std::optional<GNavigationEntry> ReadNavigationEntry(GBytes packet, std::int64_t position)
{
    if (!IsSearchPacket(packet.first(std::min(packet.size(), kNavigationBytes))))
        return std::nullopt;
    GNavigationEntry entry;
    entry.position = position;
    GByteReader reader(packet);
    reader.Skip(7);
    entry.systemClock = reader.U32BE();
    reader.Skip(31 - reader.Pos());
    entry.vob = reader.U16BE();
    reader.Skip(35 - reader.Pos());
    entry.cellElapsed = reader.U32BE();
    reader.Skip(51 - reader.Pos());
    entry.startPts = reader.U32BE();
    entry.endPts = reader.U32BE();
    constexpr REFERENCE_TIME kPeriods[]{0, 400'000, 0, 333'666};
    entry.framePeriod = kPeriods[entry.cellElapsed & 3];
    return entry;
}

bool GMpegNavigation::Append(const GNavigationEntry& entry)
{
    if (!entries.empty() && (entry.vob != entries.back().vob + 1 || entries.size() >= kMostParts))
        return false;
    entries.push_back(entry);
    return true;
}

void GMpegNavigation::Extend(GScanWindow& window, std::int64_t fileSize)
{
    const auto last = entries.empty() ? std::nullopt : FindLastEntry(window, fileSize);
    std::int64_t budget = kMostLooked;
    while (last && budget > 0 && entries.back().vob < last->vob) {
        const unsigned wanted = entries.back().vob + 1u;
        std::int64_t low = entries.back().position + 1;
        GNavigationEntry high = *last;
        // The first pack of the part lies in [low, high.position].
        while (low < high.position && budget > 0) {
            const std::int64_t middle = low + (high.position - low) / 2;
            auto entry = FindEntry(window, middle, high.position, budget);
            if (!entry && middle > low)  // none between: look at what comes before
                entry = FindEntry(window, low, middle, budget);
            if (!entry)
                break;
            if (entry->vob >= wanted)
                high = *entry;
            else
                low = entry->position + 1;
        }
        if (!Append(high))
            return;
    }
}

std::size_t GMpegNavigation::PartOf(std::uint64_t pts, std::int64_t position) const
{
    const auto ticks = static_cast<std::int64_t>(pts);
    const auto contains = [&](std::size_t part) {
        return ticks >= entries[part].startPts - kMargin && ticks <= entries[part].endPts + kMargin;
    };
    const auto behind = std::ranges::upper_bound(entries, position, {}, &GNavigationEntry::position);
    const auto here = static_cast<std::size_t>(std::max<std::ptrdiff_t>(behind - entries.begin(), 1) - 1);
    // Sound may trail into the next part.
    if (!contains(here) && here > 0 && contains(here - 1))
        return here - 1;
    if (!contains(here) && here + 1 < entries.size() && contains(here + 1))
        return here + 1;
    return here;
}

std::uint64_t GMpegNavigation::Continuous(std::uint64_t pts, std::int64_t position) const
{
    if (entries.size() < 2)
        return pts;
    const std::size_t part = PartOf(pts, position);
    std::int64_t base = entries.front().startPts;
    for (std::size_t i = 0; i < part; ++i)
        base += std::max<std::int64_t>(std::int64_t{entries[i].endPts} - entries[i].startPts, 0);
    const std::int64_t ticks = base + static_cast<std::int64_t>(pts) - entries[part].startPts;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(ticks, 0));
}

}  // namespace vex
