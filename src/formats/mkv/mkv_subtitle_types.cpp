#include <algorithm>
#include <array>
#include <cstring>

#include "formats/mkv/mkv_track_types.h"
#include "framework/media/codec_guids.h"

namespace vex {

namespace {

// The fixed part of a subtitle's format block; the codec's private data follow at dwOffset.
struct GSubtitleInfo {
    std::uint32_t offset;
    char isoLang[4];
    WCHAR trackName[256];
};
static_assert(sizeof(GSubtitleInfo) == 520);

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
    GSubtitleInfo info{};
    info.offset = sizeof info;
    std::copy_n(track.language.data(), std::min<std::size_t>(track.language.size(), 3), info.isoLang);
    std::copy_n(track.name.data(), std::min<std::size_t>(track.name.size(), 255), info.trackName);
    CMediaType type(MEDIATYPE_Subtitle, *codec->subtype);
    const std::span<BYTE> block = type.AllocFormat(FORMAT_SubtitleInfo, sizeof info + codecPrivate.size());
    std::memcpy(block.data(), &info, sizeof info);
    if (!codecPrivate.empty())
        std::memcpy(block.data() + sizeof info, codecPrivate.data(), codecPrivate.size());
    return {type};
}

}  // namespace vex
