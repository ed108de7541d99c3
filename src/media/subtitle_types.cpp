#include "media/subtitle_types.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "media/codec_guids.h"

namespace vex {

namespace {

// The codec's header follows at `offset`.
struct GSubtitleInfo {
    std::uint32_t offset;
    char language[4];
    WCHAR name[256];
};
static_assert(sizeof(GSubtitleInfo) == kSubtitleInfoSize);

}  // namespace

CMediaType MakeSubtitleType(REFGUID subtype, std::string_view language, WStringView name, GBytes codecHeader)
{
    GSubtitleInfo info{};
    info.offset = sizeof info;
    std::copy_n(language.data(), std::min<std::size_t>(language.size(), 3), info.language);
    std::copy_n(name.data(), std::min<std::size_t>(name.size(), 255), info.name);
    CMediaType type(MEDIATYPE_Subtitle, subtype);
    const std::span<BYTE> block = type.AllocFormat(FORMAT_SubtitleInfo, sizeof info + codecHeader.size());
    std::memcpy(block.data(), &info, sizeof info);
    if (!codecHeader.empty())
        std::memcpy(block.data() + sizeof info, codecHeader.data(), codecHeader.size());
    return type;
}

GBytes SubtitleCodecHeader(const CMediaType& type)
{
    if (type.formattype != FORMAT_SubtitleInfo || type.cbFormat <= kSubtitleInfoSize)
        return {};
    return type.Format().subspan(kSubtitleInfoSize);
}

}  // namespace vex
