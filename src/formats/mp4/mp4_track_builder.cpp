#include "formats/mp4/mp4_track_builder.h"

#include <algorithm>

#include "formats/mp4/mp4_codecs.h"
#include "formats/mp4/mp4_records.h"
#include "platform/trace.h"

namespace vex {
namespace {

GMp4Category CategoryOf(Mp4Box& trak, const Mp4Box& handler)
{
    const std::uint32_t type = ReadHandlerType(handler.data);
    if (type == FourCC("vide") && GMp4BoxTree::GetBox(trak, "mdia/minf/vmhd"))
        return GMp4Category::Video;
    if (type == FourCC("soun") && GMp4BoxTree::GetBox(trak, "mdia/minf/smhd"))
        return GMp4Category::Audio;
    return GMp4Category::Neither;
}

}  // namespace

Mp4TrackPtr BuildTrack(Mp4Box& trak, std::uint64_t shift, GDamageLog& damage)
{
    const Mp4Box* const header = GMp4BoxTree::GetBox(trak, "tkhd");
    const Mp4Box* const media = GMp4BoxTree::GetBox(trak, "mdia/mdhd");
    const Mp4Box* const handler = GMp4BoxTree::GetBox(trak, "mdia/hdlr");
    Mp4Box* const sampleTable = GMp4BoxTree::GetBox(trak, "mdia/minf/stbl");
    Mp4Box* const descriptions = GMp4BoxTree::GetBox(trak, "mdia/minf/stbl/stsd");
    if (!header || !media || !handler || !sampleTable || !descriptions)
        return nullptr;

    auto track = std::make_unique<Mp4Track>();
    const Mp4TrackHeader trackHeader = ReadTrackHeader(header->data);
    track->trackId = trackHeader.trackId;
    track->enabled = trackHeader.enabled;
    track->width = trackHeader.width;
    track->height = trackHeader.height;
    Mp4MediaHeader mediaHeader = ReadMediaHeader(media->data);
    track->timescale = mediaHeader.times.timescale;
    track->duration = mediaHeader.times.duration;
    track->language = std::move(mediaHeader.language);
    track->category = CategoryOf(trak, *handler);
    if (track->category == GMp4Category::Neither)
        return nullptr;
    if (!BuildSampleTables(*sampleTable, shift, track->tables, damage) || !SetupTrackFormat(*track, *descriptions)) {
        Trace("cannot select track[Id 0x%x]", track->trackId);
        return nullptr;
    }
    if (track->timescale == 0) {
        damage.Add("track has no timescale", static_cast<std::int64_t>(trak.pos));
        return nullptr;
    }
    track->ok = true;
    track->Rewind();
    return track;
}

void RemoveDuplicateVideo(std::vector<Mp4TrackPtr>& tracks)
{
    const auto isVideo = [](const Mp4TrackPtr& track) { return track->category == GMp4Category::Video; };
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        if (!isVideo(tracks[i]))
            continue;
        const auto here = tracks.begin() + static_cast<std::ptrdiff_t>(i);
        const auto other = std::find_if(here + 1, tracks.end(), isVideo);
        if (other == tracks.end())
            return;
        const auto gone = (*here)->tables.chunkCount < (*other)->tables.chunkCount ? here : other;
        Trace("\nDestroyTrack %u\n", (*gone)->trackId);
        tracks.erase(gone);
    }
}

}  // namespace vex
