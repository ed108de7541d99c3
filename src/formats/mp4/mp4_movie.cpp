#include "formats/mp4/mp4_movie.h"

#include <string>
#include <algorithm>
#include <array>
#include <iterator>

#include "formats/mp4/mp4_box_reader.h"
#include "formats/mp4/mp4_compressed_header.h"
#include "formats/mp4/mp4_records.h"
#include "formats/mp4/mp4_times.h"
#include "io/byte_reader.h"
#include "io/checked_math.h"
#include "platform/trace.h"

namespace vex {
namespace {

// Tracks that get a pin and with it a thread. The largest number seen in an honest file is 40.
constexpr std::size_t kMaxTracks = 256;

constexpr std::uint32_t kFirstBoxes[]{
    FourCC("ftyp"), FourCC("moov"), FourCC("foov"), FourCC("mdat"), FourCC("moof"),
    FourCC("skip"), FourCC("free"), FourCC("udta"), FourCC("wide"), FourCC("pnot"),
};

// Files inside a wrapper, which is passed over.
struct GWrapper {
    std::uint32_t marker;
    std::uint64_t treeStart;    // bytes
    std::uint64_t offsetShift;  // bytes added to every chunk offset
};
constexpr GWrapper kWrappers[]{
    {FourCC("M1.0"), 64, 64},   {FourCC("M1.2"), 178, 88},  {FourCC("M1.3"), 210, 120},
    {FourCC("M1.5"), 188, 120}, {FourCC("M1.6"), 210, 120},
};

GResult<GWrapper> ReadStart(GFileBase& source)
{
    std::array<std::uint8_t, 8> bytes{};
    source.Seek(0);
    if (source.Read(bytes.data(), 8) != 8)
        return GError{GErrorKind::Malformed, "the file is too short for an MP4 file", 0};
    GByteReader reader(bytes);
    reader.Skip(4);
    const std::uint32_t type = reader.FourCC();
    const auto* const wrapper = std::ranges::find(kWrappers, type, &GWrapper::marker);
    if (wrapper != std::end(kWrappers))
        return *wrapper;
    if (std::ranges::find(kFirstBoxes, type) != std::end(kFirstBoxes))
        return GWrapper{};
    Trace("error, Do not open file!\n");
    if (type == FourCC("styp") || type == FourCC("sidx"))
        return GError{GErrorKind::Unsupported, "the file is a media segment without its movie header", 0};
    return GError{GErrorKind::Malformed, "the file does not begin with an MP4 box", 0};
}

GError NoMovie(GMp4BoxTree& tree)
{
    if (tree.GetBox("/moof"))
        return {GErrorKind::Unsupported, "only movie fragments, which are not supported"};
    return {GErrorKind::Malformed, "no movie header: the file was probably cut off before it was finished"};
}

void ReadTracks(Mp4Box& moov, std::uint64_t shift, Mp4Movie& movie, GDamageLog& damage)
{
    for (Mp4Box* trak = moov.firstChild; trak; trak = trak->nextSibling) {
        if (trak->type != FourCC("trak"))
            continue;
        Mp4TrackPtr track = BuildTrack(*trak, shift, damage);
        if (!track)
            continue;
        if (movie.tracks.size() == kMaxTracks)
            return damage.Add("too many tracks", static_cast<std::int64_t>(trak->pos));
        const auto same = [&](const Mp4TrackPtr& other) { return other->trackId == track->trackId; };
        if (std::ranges::any_of(movie.tracks, same)) {
            damage.Add("track has the number of an earlier one", static_cast<std::int64_t>(trak->pos));
            continue;
        }
        movie.tracks.push_back(std::move(track));
    }
}

// Writers that stream leave the movie's clock empty.
void CompleteClock(Mp4Movie& movie)
{
    const Mp4Track* longest = nullptr;
    REFERENCE_TIME longestTime = 0;
    for (const Mp4TrackPtr& track : movie.tracks) {
        if (track->duration == 0)
            track->duration = track->TableDuration();
        const REFERENCE_TIME time = TimeFromUnits(track->duration, track->timescale);
        if (!longest || time > longestTime) {
            longest = track.get();
            longestTime = time;
        }
    }
    if (movie.timescale != 0 && movie.duration != 0)
        return;
    if (movie.timescale == 0) {
        movie.timescale = longest ? longest->timescale : 1;
        movie.duration = 0;
    }
    if (longest)
        movie.duration = MulDivU64(longest->duration, movie.timescale, longest->timescale).value_or(0);
}

// The kinds of the tracks that could not be built, for the message.
std::string KindsOf(Mp4Box& moov)
{
    std::string kinds;
    for (Mp4Box* trak = moov.firstChild; trak; trak = trak->nextSibling) {
        if (trak->type != FourCC("trak"))
            continue;
        if (const Mp4Box* const entry = GMp4BoxTree::GetBox(*trak, "mdia/minf/stbl/stsd/[0]"))
            AddCode(kinds, entry->type);
        else if (const Mp4Box* const handler = GMp4BoxTree::GetBox(*trak, "mdia/hdlr"))
            AddCode(kinds, ReadHandlerType(handler->data));
    }
    return kinds;
}

}  // namespace

GResult<Mp4Movie> ReadMovie(GFileBase& source, GDamageLog& damage, const std::atomic<bool>& interrupted)
{
    G_TRY(const GWrapper wrapper, ReadStart(source));
    GMp4BoxTree tree;
    GMp4BoxReader reader(source, tree, damage, interrupted);
    const bool any = reader.ReadRoot(wrapper.treeStart);
    if (reader.Interrupted())
        return GError{GErrorKind::Aborted, "opening was interrupted"};
    if (!any)
        return NoMovie(tree);
    ExpandCompressedHeader(tree, damage, interrupted);

    Mp4Movie movie;
    movie.size = tree.Root().size;
    if (const Mp4Box* const type = tree.GetBox("/ftyp"))
        movie.brand = GByteReader(type->data).FourCC();
    else
        Trace("file type box missing (assuming ISO Media file)\n");
    Mp4Box* moov = tree.GetBox("/moov");
    if (!moov && (moov = tree.GetBox("/foov")))
        moov->type = FourCC("moov");
    if (!moov)
        return NoMovie(tree);
    const Mp4Box* const header = GMp4BoxTree::GetBox(*moov, "mvhd");
    if (!header)
        return GError{GErrorKind::Malformed, "the movie header has no 'mvhd' box", moov->pos};
    if (tree.CountBox("/moov/trak") == 0)
        return GError{GErrorKind::Malformed, "the movie header has no track", moov->pos};
    const Mp4Times times = ReadMovieHeader(header->data);
    movie.timescale = times.timescale;
    movie.duration = times.duration;

    const std::string kinds = KindsOf(*moov);
    ReadTracks(*moov, wrapper.offsetShift, movie, damage);
    if (movie.tracks.empty()) {
        if (tree.GetBox("/moof") || GMp4BoxTree::GetBox(*moov, "mvex"))
            return GError{GErrorKind::Unsupported, "only movie fragments, which are not supported"};
        return GError{GErrorKind::Unsupported, "no track can be played:", 0, 0, kinds};
    }
    RemoveDuplicateVideo(movie.tracks);
    CompleteClock(movie);
    return movie;
}

}  // namespace vex
