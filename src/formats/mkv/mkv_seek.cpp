#include "formats/mkv/mkv_seek.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <unordered_set>
#include <vector>

#include "platform/trace.h"

namespace vex {
namespace {

// Elements that one seek looks at inside Clusters. Normally it is those of one Cluster; a file whose Cues all lead
// nowhere is played from its start rather than searched for more than a second or two.
constexpr std::uint32_t kMaxElements = 1u << 20;

// Clusters that a scan can go back over, without Cues, to a key frame.
constexpr std::size_t kMaxKeptClusters = 4096;

struct GStartPoint {
    GMkvElement block;
    std::int64_t time;  // 100 ns, the file's clock
};

class GMkvSeeker {
public:
    GMkvSeeker(GMkvFile& loaded, const GMkvBlockStats& stats, std::int64_t fileTime)
        : file(loaded), track(MkvSeekTrack(loaded)), time(fileTime), byFlags(stats.FlagsTellKeyFrames())
    {
    }

    // Whether one was found; if not, the file's cursors are as before.
    bool CueSearch();
    // The time of the key frame found, 100 ns of the file's clock.
    std::optional<std::int64_t> KeyFrameSearch();
    void ClusterScan();

private:
    enum class GWanted : std::uint8_t {
        LastUpToTime,
        FirstBehindTime,
    };

    bool SearchPoint(const GMkvCuePoint& point, GWanted wanted);
    bool SearchCluster(GMkvElement cluster, GWanted wanted);
    std::optional<GStartPoint> ScanCluster(GMkvElement& cluster, GWanted wanted);
    std::optional<GMkvElement> ClusterAtHeader(std::int64_t position);
    std::int64_t CueTime(const GMkvCuePoint& point) const { return file.ToTime(MkvTicks(point.cueTime)); }
    bool IsKeyFrame(const GMkvBlock& block) const
    {
        return byFlags ? (block.flags & GMkvBlock::kKeyFlag) != 0 : !block.reference.valid;
    }

    GMkvFile& file;
    const std::uint64_t track;
    const std::int64_t time;  // 100 ns, the file's clock
    const bool byFlags;
    std::unordered_set<std::uint64_t> tried;  // CueClusterPositions
    std::uint32_t elements = 0;               // looked at so far
    std::int64_t found = 0;                   // time of the start block, after a search gave true
};

// Calls `visit` with every CuePoint from the last to the first, until it gives false.
template <class Visit>
void VisitBackwards(const std::vector<GMkvCues>& cues, Visit&& visit)
{
    for (std::size_t list = cues.size(); list-- > 0;)
        for (std::size_t point = cues[list].points.size(); point-- > 0;)
            if (!visit(list, point))
                return;
}

bool GMkvSeeker::CueSearch()
{
    bool done = false;
    VisitBackwards(file.cues, [&](std::size_t list, std::size_t index) {
        const GMkvCuePoint& point = file.cues[list].points[index];
        const std::int64_t cueTime = CueTime(point);
        if (cueTime > time) {
            Trace("CUE Time  %lld SKIP\n", static_cast<long long>(cueTime));
            return true;
        }
        Trace("CUE Time  %lld\n", static_cast<long long>(cueTime));
        done = SearchPoint(point, GWanted::LastUpToTime);
        return !done && elements < kMaxElements;
    });
    return done;
}

std::optional<std::int64_t> GMkvSeeker::KeyFrameSearch()
{
    std::size_t list = file.cues.size();
    std::size_t index = 0;
    VisitBackwards(file.cues, [&](std::size_t someList, std::size_t someIndex) {
        const std::int64_t cueTime = CueTime(file.cues[someList].points[someIndex]);
        if (cueTime > time) {
            Trace("CUE Time  %lld SKIP\n", static_cast<long long>(cueTime));
            return true;
        }
        list = someList;
        index = someIndex;
        return false;
    });
    for (; list < file.cues.size(); ++list, index = 0) {
        for (; index < file.cues[list].points.size(); ++index) {
            const GMkvCuePoint& point = file.cues[list].points[index];
            Trace("CUE Time  %lld\n", static_cast<long long>(CueTime(point)));
            if (SearchPoint(point, GWanted::FirstBehindTime))
                return found;
            if (elements >= kMaxElements)
                return std::nullopt;
        }
    }
    return std::nullopt;
}

bool GMkvSeeker::SearchPoint(const GMkvCuePoint& point, GWanted wanted)
{
    for (const GMkvCueTrackPositions& at : point.positions) {
        if (at.cueTrack != track || !tried.insert(at.cueClusterPosition).second)
            continue;
        ++elements;
        auto cluster = file.ClusterAt(at.cueClusterPosition);
        if (cluster && SearchCluster(*cluster, wanted))
            return true;
    }
    return false;
}

bool GMkvSeeker::SearchCluster(GMkvElement cluster, GWanted wanted)
{
    const auto start = ScanCluster(cluster, wanted);
    if (!start)
        return false;
    found = start->time;
    file.cluster = cluster;
    file.startBlock = start->block;
    file.startBlock->parent = &*file.cluster;
    return true;
}

std::optional<GStartPoint> GMkvSeeker::ScanCluster(GMkvElement& cluster, GWanted wanted)
{
    std::optional<GStartPoint> start;
    GMkvClusterWalk walk;
    GMkvBlock block;
    GMkvPayload payload;
    walk.Enter(cluster);
    for (; elements < kMaxElements; ++elements) {
        const GMkvClusterWalk::GAt at = walk.Step();
        if (at == GMkvClusterWalk::GAt::End)
            break;
        if (at != GMkvClusterWalk::GAt::Block)
            continue;
        const GMkvBlockRead read = ReadMkvBlock(walk.Block(), block, payload);
        if (read == GMkvBlockRead::Unreadable)
            break;
        if (read != GMkvBlockRead::Done || block.track != track)
            continue;
        const std::int64_t blockTime = MkvBlockTime(file, walk.ClusterTicks(), block);
        if (wanted == GWanted::LastUpToTime) {
            if (blockTime > time)
                break;
            if (IsKeyFrame(block))
                start = GStartPoint{GMkvElement::CopyOf(walk.Block()), blockTime};
        } else if (blockTime > time && IsKeyFrame(block)) {
            return GStartPoint{GMkvElement::CopyOf(walk.Block()), blockTime};
        }
    }
    return start;
}

std::optional<GMkvElement> GMkvSeeker::ClusterAtHeader(std::int64_t position)
{
    return file.ClusterAt(static_cast<std::uint64_t>(position - file.segmentDataPos));
}

// Looks at the second to last Cluster that begins before the time, then at the last one. When the key frames are
// further apart than two Clusters it goes on backwards.
void GMkvSeeker::ClusterScan()
{
    std::deque<std::int64_t> before;  // header positions of the last Clusters that begin before the time
    auto cluster = file.FirstCluster();
    while (cluster && file.ToTime(GMkvFile::ClusterTicks(*cluster)) < time) {
        before.push_back(cluster->headerPos);
        if (before.size() > kMaxKeptClusters)
            before.pop_front();
        if (!cluster->NextCluster())
            cluster.reset();
    }
    const std::size_t count = before.size();
    const auto search = [&](std::size_t index) {
        const auto at = ClusterAtHeader(before[index]);
        return at && SearchCluster(*at, GWanted::LastUpToTime);
    };
    const std::size_t secondToLast = count > 2 ? count - 2 : 0;
    if (count > 0 && search(secondToLast))
        return;
    if (count > 2 && search(count - 1))
        return;
    for (std::size_t index = secondToLast; index-- > 0 && elements < kMaxElements;)
        if (search(index))
            return;
    if (count > 2) {
        if (const auto last = ClusterAtHeader(before[count - 1]))
            file.cluster = last;
    }
}

bool HasCues(const GMkvFile& file)
{
    return std::ranges::any_of(file.cues, [](const GMkvCues& cues) { return !cues.points.empty(); });
}

}  // namespace

std::uint64_t MkvSeekTrack(const GMkvFile& file)
{
    for (const std::uint64_t type : {GMkvTrack::kVideo, GMkvTrack::kAudio}) {
        const auto track =
            std::ranges::find_if(file.tracks, [&](const GMkvTrack& t) { return t.trackType.value == type; });
        if (track != file.tracks.end())
            return track->trackNumber.value;
    }
    return 1;
}

std::int64_t SeekMkv(GMkvFile& file, const GMkvBlockStats& stats, std::int64_t target, GSeekMode mode)
{
    file.startBlock.reset();
    file.cluster = file.FirstCluster();
    if (target <= 0 || !file.cluster)
        return target;
    const std::int64_t time = std::min(target, kMaxMkvTime) + file.firstClusterTime;
    GMkvSeeker seeker(file, stats, time);
    if (!HasCues(file)) {
        seeker.ClusterScan();
    } else if (mode == GSeekMode::KeyFrame) {
        if (const auto reached = seeker.KeyFrameSearch())
            return *reached - file.firstClusterTime;
    } else {
        seeker.CueSearch();
    }
    return target;
}

}  // namespace vex
