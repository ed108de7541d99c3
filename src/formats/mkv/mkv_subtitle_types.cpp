#include <algorithm>
#include <array>

#include "formats/mkv/mkv_track_types.h"
#include "media/codec_guids.h"
#include "media/subtitle_types.h"

namespace vex {

namespace {

struct GSubtitleCodec {
    std::string_view id;
    const GUID* subtype;
};

constexpr std::array kSubtitleCodecs = std::to_array<GSubtitleCodec>({
    {"S_TEXT/UTF8", &MEDIASUBTYPE_UTF8},
    {"S_TEXT/SSA", &MEDIASUBTYPE_SSA},
    {"S_SSA", &MEDIASUBTYPE_SSA},
    {"S_TEXT/ASS", &MEDIASUBTYPE_ASS},
    {"S_ASS", &MEDIASUBTYPE_ASS},
    {"S_TEXT/SSF", &MEDIASUBTYPE_SSF},
    {"S_SSF", &MEDIASUBTYPE_SSF},
    {"S_TEXT/USF", &MEDIASUBTYPE_USF},
    {"S_USF", &MEDIASUBTYPE_USF},
    {"S_VOBSUB", &MEDIASUBTYPE_VOBSUB},
});

}  // namespace

std::vector<CMediaType> MkvSubtitleTypes(const GMkvTrack& track, std::span<const std::uint8_t> codecPrivate)
{
    const std::string_view id = MkvCodecId(track);
    if (id == "S_TEXT/ASCII") {
        CMediaType type(MEDIATYPE_Text, GUID_NULL);
        type.formattype = FORMAT_None;
        return {type};
    }
    const auto codec = std::ranges::find(kSubtitleCodecs, id, &GSubtitleCodec::id);
    if (codec == kSubtitleCodecs.end())
        return {};
    return {MakeSubtitleType(*codec->subtype, track.language, track.name, codecPrivate)};
}

}  // namespace vex
