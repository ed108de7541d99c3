#include "formats/asf/asf_selection.h"

#include <algorithm>
#include <vector>

namespace vex {
namespace {

using GChosen = std::vector<GAsfEXReadStream*>;

GChosen ChooseAudio(const GAsfStreams& streams)
{
    GChosen chosen;
    for (const auto& stream : streams) {
        if (stream->kind != GAsfKind::Audio || !stream->enabled)
            continue;
        const auto rival = std::ranges::find(chosen, stream->language, &GAsfEXReadStream::language);
        if (rival == chosen.end())
            chosen.push_back(stream.get());
        else if (stream->bitRate > (*rival)->bitRate)
            *rival = stream.get();
    }
    return chosen;
}

GAsfEXReadStream* ChooseVideo(const GAsfHeader& header, const GChosen& audio)
{
    GAsfEXReadStream* best = nullptr;
    for (const auto& stream : header.streams) {
        const auto excludes = [&](const GAsfEXReadStream* other) {
            return header.exclusions.Excludes(stream->number, other->number);
        };
        if (stream->kind != GAsfKind::Video || !stream->enabled || std::ranges::any_of(audio, excludes))
            continue;
        const bool better = !best || stream->bitRate > best->bitRate ||
                            (stream->bitRate == 0 && best->bitRate == 0 && stream->number > best->number);
        if (better)
            best = stream.get();
    }
    return best;
}

}  // namespace

void SelectAsfStreams(GAsfHeader& header)
{
    const GChosen audio = ChooseAudio(header.streams);
    for (GAsfEXReadStream* const stream : audio)
        stream->selected = true;
    if (GAsfEXReadStream* const video = ChooseVideo(header, audio))
        video->selected = true;
}

}  // namespace vex
