#include "formats/ogg/ogg_index.h"

#include <algorithm>

#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::int64_t kAudioStep = 1'048'576;    // bytes between the entries of an audio stream
constexpr std::uint32_t kAudioReadSize = 4096;    // a page or two are wanted at each step
constexpr std::uint32_t kVideoReadSize = 65'536;  // everything is read
constexpr std::int64_t kStopEvery = 1'048'576;    // bytes between looks at the stop flag

}  // namespace

GOggIndex::GOggIndex(const GOGG2ReadStream& referenceStream, GOggIndexPauses growthPauses)
    : GIndexThread("ogg index"), reference(referenceStream), pauses(growthPauses)
{
}

void GOggIndex::Build(GFileBase& source)
{
    Trace("************************************ INDEX ************************************\n");
    if (reference.IsVideo())
        twin = reference.Twin();
    GOggPageSource pages(source, nullptr, twin ? kVideoReadSize : kAudioReadSize);
    pages.MoveTo(0);
    Append({});
    auto pause = pauses.shortest;
    while (!StopRequested()) {
        GOggPage page;
        std::int64_t budget = kStopEvery;
        const std::int64_t before = pages.ReadPosition();
        if (pages.Next(page, budget)) {
            SetCaughtUp(false);
            if (page.BeginsStream() || page.Serial() != reference.Serial())
                continue;
            if (twin)
                AddVideo(page);
            else
                AddAudio(pages, page);
        } else if (budget > 0) {
            if (pages.ReadPosition() != before)
                pause = pauses.shortest;
            SetCaughtUp(true);
            if (!Pause(pause))
                break;
            pause = std::min(2 * pause, pauses.longest);
        }
    }
    twin.reset();
    Trace("********************************* END OF INDEX *********************************\n");
}

void GOggIndex::AddAudio(GOggPageSource& pages, const GOggPage& page)
{
    if (page.Granule() <= 0)
        return;
    const REFERENCE_TIME time = reference.GranuleToTime(page.Granule());
    Append({page.offset, time});
    Reached(time);
    pages.MoveTo(pages.ReadPosition() + kAudioStep);
}

void GOggIndex::AddVideo(GOggPage& page)
{
    twin->PageIn(page);
    GOggPacket packet;
    for (;;) {
        const auto peeked = twin->Peek(packet);
        if (peeked == GOGG2ReadStream::GPeek::Hole)
            continue;
        if (peeked != GOGG2ReadStream::GPeek::Packet)
            return;
        twin->Pop();
        const REFERENCE_TIME time = twin->PacketTime(packet);
        if (twin->IsKeyFrame(packet))
            Append({packet.pageOffset, time});
        Reached(time);
    }
}

void GOggIndex::Reached(REFERENCE_TIME time)
{
    if (time > upTo.load(std::memory_order_relaxed))
        upTo.store(time, std::memory_order_release);
}

// Times that go back, as damage and spliced files have them, get no entry.
void GOggIndex::Append(const GEntry& entry)
{
    {
        const GMutexLock held(lock);
        if (!entries.empty() && (entry.time < entries.back().time || entry.offset < entries.back().offset))
            return;
        entries.push_back(entry);
    }
    Advanced();
}

std::optional<GOggIndex::GEntry> GOggIndex::Find(REFERENCE_TIME time) const
{
    const GMutexLock held(lock);
    if (time >= IndexedUpTo() || entries.empty())
        return std::nullopt;
    const auto behind = std::ranges::upper_bound(entries, time, {}, &GEntry::time);
    return behind == entries.begin() ? entries.front() : *std::prev(behind);
}

}  // namespace vex
