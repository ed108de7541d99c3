#include "formats/mkv/mkv_file.h"

#include <cmath>
#include <string>
#include <utility>

#include "formats/mkv/mkv_parsers.h"
#include "io/checked_math.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint32_t kMagic = mkv_id::kEbml;

// Info, SeekHead and Tracks: with so many of them met, the rest is asked of the index.
constexpr int kHeadElements = 3;

// Duration * TimecodeScale * 0.01 towards zero. Zero, negative and not-a-number durations count as none.
std::int64_t DurationFrom(const GMkvInfo& info)
{
    const double time = info.duration.value * static_cast<double>(info.timecodeScale.value) * 0.01;
    if (!std::isfinite(info.duration.value) || time <= 0)
        return 0;
    return time < static_cast<double>(kMaxMkvTime) ? static_cast<std::int64_t>(time) : kMaxMkvTime;
}

}  // namespace

std::int64_t MkvTime(std::int64_t ticks, std::uint64_t timecodeScale)
{
    constexpr std::uint64_t kNsPerUnit = 100;
    const auto magnitude = MulDivU64(detail::Magnitude(ticks), timecodeScale, kNsPerUnit);
    const auto time = static_cast<std::int64_t>(std::min<std::uint64_t>(magnitude.value_or(kMaxMkvTime), kMaxMkvTime));
    return ticks < 0 ? -time : time;
}

GStatus GMkvFile::Open(GFileBase& source, GDamageLog& damage)
{
    Close();
    reader = std::make_unique<GMkvReader>(source, damage);
    GStatus status = Load();
    if (!status.Ok())
        Close();
    return status;
}

void GMkvFile::Close()
{
    startBlock.reset();
    cluster.reset();
    segment.reset();
    root.reset();
    header = {};
    info = {};
    seekHeads.clear();
    seekIndex.Clear();
    segmentDataPos = 0;
    tracks.clear();
    cues.clear();
    chapters.clear();
    attachments.clear();
    firstClusterTime = 0;
    duration = 0;
    reader.reset();
}

GStatus GMkvFile::Load()
{
    std::uint32_t magic = 0;
    const HRESULT read = reader->ReadBigEndian(&magic, sizeof magic);
    if (read < 0)
        return GError{GErrorKind::Io, "the first bytes cannot be read", 0};
    if (read != S_OK || magic != kMagic)
        return GError{GErrorKind::Malformed, "the file does not begin as a Matroska file", 0};
    G_TRY_STATUS(FindSegment());
    LoadSegment();
    duration = DurationFrom(info);
    Trace("MKV duration : %lld\n", static_cast<long long>(duration));
    cluster = FirstCluster();
    if (cluster)
        firstClusterTime = ToTime(ClusterTicks(*cluster));
    return {};
}

// The first Segment is the file: one appended to it would count its positions from elsewhere.
GStatus GMkvFile::FindSegment()
{
    root.emplace(*reader);
    auto element = root->FirstChild();
    bool found = false;
    while (element && !found) {
        if (element->id.value == mkv_id::kEbml)
            ParseMkvHeader(*element, header);
        found = element->id.value == mkv_id::kSegment;
        if (!found && !element->NextSibling())
            element.reset();
    }
    if (!element)
        return GError{GErrorKind::Malformed, "the file has no Segment", static_cast<std::uint64_t>(reader->FileSize())};
    segment = element;
    segment->seekIndex = &seekIndex;
    segmentDataPos = segment->dataPos;
    if (segment->End() > reader->FileSize())
        reader->Damage().Add("the Segment runs past the end of the file", segment->headerPos);
    return {};
}

void GMkvFile::LoadSegment()
{
    int headElements = 0;
    auto child = segment->FirstChild();
    while (child && headElements < kHeadElements) {
        const std::uint32_t id = child->id.value;
        if (id == mkv_id::kInfo || id == mkv_id::kSeekHead || id == mkv_id::kTracks)
            ++headElements;
        LoadChild(*child);
        if (headElements < kHeadElements && !child->NextSibling())
            break;
    }
    if (headElements == kHeadElements)
        LoadFromIndex();
}

void GMkvFile::LoadChild(GMkvElement& child)
{
    switch (child.id.value) {
    case mkv_id::kInfo:
        ParseMkvInfo(child, info);
        break;
    case mkv_id::kSeekHead:
        LoadSeekHead(child);
        break;
    case mkv_id::kTracks:
        ParseMkvTracks(child, tracks);
        break;
    case mkv_id::kCues:
        ParseMkvCues(child, cues);
        break;
    case mkv_id::kChapters:
        if (chapters.empty())
            ParseMkvChapters(child, chapters);
        break;
    case mkv_id::kAttachments:
        ParseMkvAttachments(child, attachments);
        break;
    default:
        break;
    }
}

void GMkvFile::LoadSeekHead(GMkvElement& child)
{
    GMkvSeekHead& seekHead = seekHeads.emplace_back();
    ParseMkvSeekHead(child, seekHead);
    for (const GMkvSeekHead::Entry& entry : seekHead.entries)
        AddToIndex(entry);
}

void GMkvFile::AddToIndex(const GMkvSeekHead::Entry& entry)
{
    if (const auto position = FromSegment(entry.seekPosition))
        seekIndex.Add(entry.seekId, *position);
}

// The absolute position of what a SeekHead or a cue names, when that is in the file.
std::optional<std::int64_t> GMkvFile::FromSegment(std::uint64_t relativePos) const
{
    const auto position = CheckedAdd<std::uint64_t>(relativePos, static_cast<std::uint64_t>(segmentDataPos));
    if (!position || *position >= static_cast<std::uint64_t>(reader->FileSize()))
        return std::nullopt;
    return static_cast<std::int64_t>(*position);
}

void GMkvFile::LoadFromIndex()
{
    if (!seekIndex.PositionOf(mkv_id::kCues))
        FollowSeekHead();
    // Head elements met twice have stopped the walk before the last of them.
    if (tracks.empty())
        if (auto element = FromIndex(mkv_id::kTracks))
            ParseMkvTracks(*element, tracks);
    if (info.duration.valid == 0 && info.muxingApp.empty())
        if (auto element = FromIndex(mkv_id::kInfo))
            ParseMkvInfo(*element, info);
    if (cues.empty())
        if (auto element = FromIndex(mkv_id::kCues)) {
            do
                ParseMkvCues(*element, cues);
            while (element->NextSibling(GMkvKind::Same));
        }
    if (chapters.empty())
        if (auto element = FromIndex(mkv_id::kChapters))
            ParseMkvChapters(*element, chapters);
    if (attachments.empty())
        if (auto element = FromIndex(mkv_id::kAttachments))
            ParseMkvAttachments(*element, attachments);
}

// Older writers list what they wrote last, the Cues above all, in a second SeekHead at the end of the file, and only
// that one in the first. It is followed once, so a SeekHead that names itself costs one more look at it. What it says
// of Clusters is left alone: the first entry of such a list need not be the first Cluster.
void GMkvFile::FollowSeekHead()
{
    auto element = FromIndex(mkv_id::kSeekHead);
    if (!element)
        return;
    GMkvSeekHead further;
    ParseMkvSeekHead(*element, further);
    std::erase_if(further.entries, [](const GMkvSeekHead::Entry& e) { return e.seekId == mkv_id::kCluster; });
    for (const GMkvSeekHead::Entry& entry : further.entries)
        AddToIndex(entry);
    seekHeads.push_back(std::move(further));
}

std::optional<GMkvElement> GMkvFile::FromIndex(std::uint32_t id)
{
    const auto position = seekIndex.PositionOf(id);
    if (!position)
        return std::nullopt;
    GMkvElement element(&*segment);
    if (!element.Find(id, GMkvScan::No)) {
        reader->Damage().Add("an index entry points at something else", *position);
        return std::nullopt;
    }
    return element;
}

std::optional<GMkvElement> GMkvFile::FirstCluster()
{
    if (!segment)
        return std::nullopt;
    if (seekIndex.PositionOf(mkv_id::kCluster))
        if (auto listed = FromIndex(mkv_id::kCluster))
            return listed;
    auto element = segment->FirstChild();
    while (element && element->id.value != mkv_id::kCluster)
        if (!element->NextSibling())
            element.reset();
    return element;
}

std::optional<GMkvElement> GMkvFile::ClusterAt(std::uint64_t cueClusterPosition)
{
    if (!segment)
        return std::nullopt;
    const auto position = FromSegment(cueClusterPosition);
    if (!position)
        return std::nullopt;
    GMkvElement element(&*segment);
    reader->Seek(*position);
    if (element.ReadHeader() != S_OK || element.id.value != mkv_id::kCluster)
        return std::nullopt;
    return element;
}

std::int64_t GMkvFile::ClusterTicks(GMkvElement& clusterElement)
{
    CUInt timecode;
    if (const auto element = clusterElement.FirstChild(mkv_id::kTimecode, GMkvScan::Yes))
        timecode.Read(*element);
    return MkvTicks(timecode.value);
}

}  // namespace vex
