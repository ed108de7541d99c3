#include "formats/mkv/mkv_element.h"

#include <algorithm>
#include <limits>

namespace vex {
namespace {

constexpr std::uint64_t kNoBudget = std::numeric_limits<std::uint64_t>::max();

// Bytes that passing over one element counts for: what the reader fetches to see the next header.
constexpr std::uint64_t kStepCost = GMkvReader::kDefaultBufferCapacity;

}  // namespace

void GMkvSeekIndex::Add(std::uint32_t id, std::int64_t position)
{
    const auto found = std::lower_bound(mkv_id::kLevel1.begin(), mkv_id::kLevel1.end(), id);
    if (found == mkv_id::kLevel1.end() || *found != id || position < 0)
        return;
    auto& slot = positions[static_cast<std::size_t>(found - mkv_id::kLevel1.begin())];
    if (!slot)
        slot = position;
}

std::optional<std::int64_t> GMkvSeekIndex::PositionOf(std::uint32_t id) const
{
    const auto found = std::lower_bound(mkv_id::kLevel1.begin(), mkv_id::kLevel1.end(), id);
    if (found == mkv_id::kLevel1.end() || *found != id)
        return std::nullopt;
    return positions[static_cast<std::size_t>(found - mkv_id::kLevel1.begin())];
}

GMkvElement::GMkvElement(GMkvReader& source) : reader(&source), id(0)
{
    size.value = static_cast<std::uint64_t>(source.FileSize());
    size.valid = 1;
}

HRESULT GMkvElement::ReadHeader()
{
    headerPos = reader->Tell();
    searchPos = kNotSearching;
    if (id.Read(*this) == S_OK && size.Read(*this) == S_OK) {
        dataPos = reader->Tell();
        return S_OK;
    }
    id = CID();
    size = CLength();
    dataPos = headerPos;
    return E_FAIL;
}

std::optional<GMkvElement> GMkvElement::FirstChild(std::uint32_t childId, GMkvScan scan) &
{
    if (size.value == 0)
        return std::nullopt;
    GMkvElement child(this);
    reader->Seek(dataPos);
    if (child.ReadHeader() != S_OK) {
        if (id.value != mkv_id::kSegment) {
            if (size.unknown)
                child.EndParentHere();
            child.ReportUnreadable();
            return std::nullopt;
        }
        if (child.SearchFor(GWanted::Level1, kNoBudget) != GMkvStep::Moved)
            return std::nullopt;
    } else if (child.dataPos > End()) {
        return std::nullopt;  // what looks like a header belongs to whatever follows the parent
    }
    if (child.EndsParent()) {
        child.EndParentHere();
        return std::nullopt;
    }
    if (childId != 0 && !child.Find(childId, scan))
        return std::nullopt;
    return child;
}

bool GMkvElement::Find(std::uint32_t wanted, GMkvScan scan)
{
    if (IsChildOf(mkv_id::kSegment) && parent->seekIndex != nullptr) {
        if (const auto position = parent->seekIndex->PositionOf(wanted)) {
            reader->Seek(*position);
            return ReadHeader() == S_OK && id.value == wanted;
        }
    }
    while (scan == GMkvScan::Yes && id.value != wanted)
        if (!NextSibling())
            return false;
    return id.value == wanted;
}

bool GMkvElement::NextSibling(GMkvKind kind)
{
    const std::uint32_t previous = id.value;
    for (;;) {
        const GStep step = StepOver();
        if (step == GStep::End)
            return false;
        if (step == GStep::Damaged) {
            if (!IsChildOf(mkv_id::kSegment)) {
                ReportUnreadable();
                return false;
            }
            if (SearchFor(GWanted::Level1, kNoBudget) != GMkvStep::Moved)
                return false;
        }
        if (kind == GMkvKind::Any || id.value == previous)
            return true;
        if (mkv_id::IsBlock(id.value) && mkv_id::IsBlock(previous))
            return true;
        if (mkv_id::IsLevel1(id.value))
            return false;
    }
}

bool GMkvElement::NextCluster() { return StepToCluster(kNoBudget) == GMkvStep::Moved; }

GMkvStep GMkvElement::StepToCluster(std::uint64_t budget)
{
    while (searchPos == kNotSearching) {
        if (size.unknown && id.value == mkv_id::kCluster)
            FindRealEnd();
        const GStep step = StepOver();
        if (step == GStep::End)
            return GMkvStep::End;
        if (step == GStep::Damaged) {
            if (!IsChildOf(mkv_id::kSegment))
                return GMkvStep::End;
            break;
        }
        if (id.value == mkv_id::kCluster)
            return GMkvStep::Moved;
        if (budget < kStepCost)
            return GMkvStep::Searching;
        budget -= kStepCost;
    }
    return SearchFor(GWanted::Cluster, budget);
}

std::int64_t GMkvElement::End() const
{
    const auto room = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() - dataPos);
    return size.value > room ? std::numeric_limits<std::int64_t>::max()
                             : dataPos + static_cast<std::int64_t>(size.value);
}

std::uint64_t GMkvElement::Available() const
{
    std::int64_t end = reader->FileSize();
    for (const GMkvElement* element = this; element != nullptr; element = element->parent)
        end = std::min(end, element->End());
    return end > dataPos ? static_cast<std::uint64_t>(end - dataPos) : 0;
}

GMkvElement::GStep GMkvElement::StepOver()
{
    if (parent == nullptr)
        return GStep::End;
    const std::int64_t end = End();
    if (end > reader->FileSize() && parent->End() <= reader->FileSize())  // of those that are cut, the outermost one
        reader->Damage().Add("an element runs past the end of the file", headerPos);
    else if (end > parent->End())
        reader->Damage().Add("an element runs past the end of its parent", headerPos);
    if (end >= parent->End() || end > reader->FileSize())
        return GStep::End;
    reader->Seek(end);
    if (ReadHeader() != S_OK) {
        if (parent->size.unknown)
            EndParentHere();
        return GStep::Damaged;
    }
    if (dataPos > parent->End())
        return GStep::End;
    if (EndsParent()) {
        EndParentHere();
        return GStep::End;
    }
    return GStep::Moved;
}

// A Cluster of unknown size ends before the next element of its own level, a Segment before the next file appended to
// it.
bool GMkvElement::EndsParent() const
{
    if (!parent->size.unknown)
        return false;
    if (id.value == mkv_id::kSegment || id.value == mkv_id::kEbml)
        return parent->parent != nullptr;
    return mkv_id::IsLevel1(id.value) && parent->IsChildOf(mkv_id::kSegment);
}

void GMkvElement::EndParentHere()
{
    if (parent->id.value == mkv_id::kSegment && !EndsParent())
        return;  // damage in a Segment is searched past, so it does not end there
    parent->size.value = static_cast<std::uint64_t>(std::max<std::int64_t>(headerPos - parent->dataPos, 0));
    parent->size.unknown = false;
}

void GMkvElement::FindRealEnd()
{
    if (auto child = FirstChild()) {
        while (child->StepOver() == GStep::Moved) {}
    }
    size.unknown = false;
}

// Looks for a four-byte ID at any byte from the unreadable header on, and reads the header there.
GMkvStep GMkvElement::SearchFor(GWanted wanted, std::uint64_t budget)
{
    const std::int64_t damagePos = headerPos;
    const auto isWanted = [wanted](std::uint32_t candidate) {
        return wanted == GWanted::Cluster ? candidate == mkv_id::kCluster : mkv_id::IsLevel1(candidate);
    };
    budget = std::max(budget, kStepCost);  // always gets somewhere
    reader->Seek(searchPos == kNotSearching ? damagePos : searchPos);
    std::uint32_t window = 0;
    std::uint8_t byte = 0;
    for (std::uint64_t seen = 0; reader->ReadByte(byte) == S_OK; ++seen) {
        window = window << 8 | byte;
        if (isWanted(window)) {
            const std::int64_t found = reader->Tell() - 4;
            reader->Seek(found);
            if (ReadHeader() == S_OK) {
                reader->Damage().Add("an unreadable element header", damagePos,
                                     static_cast<std::uint64_t>(found - damagePos));
                return GMkvStep::Moved;
            }
            headerPos = dataPos = damagePos;
            reader->Seek(found + 1);
            window = 0;
        } else if (seen >= budget) {
            searchPos = reader->Tell() - 3;
            return GMkvStep::Searching;
        }
    }
    searchPos = kNotSearching;
    ReportUnreadable();
    return GMkvStep::End;
}

void GMkvElement::ReportUnreadable() const
{
    // Neither a walk that reaches the end of the file nor a Cluster cut here, which is searched past later, loses
    // anything.
    const std::int64_t end = std::min(parent->End(), reader->FileSize());
    if (headerPos < end)
        reader->Damage().Add("an unreadable element header", headerPos, static_cast<std::uint64_t>(end - headerPos));
}

}  // namespace vex
