#include "tools/vex/framers.h"

#include "io/fourcc.h"
#include "media/codec_guids.h"
#include "media/wave_tags.h"
#include "platform/guids.h"

namespace vex {

namespace {

class GRawFramer final : public GFramer {
public:
    void Sample(const GSampleView& sample, const GByteSink& out) override { out(sample.data); }
};

std::unique_ptr<GFramer> MakeRawFramer(const CMediaType&) { return std::make_unique<GRawFramer>(); }

using GSubtypeTest = bool (*)(const GUID&);

template <char a, char b, char c, char d>
bool IsFourCC(const GUID& subtype)
{
    return subtype == SubtypeFromFourCC(FourCC(a, b, c, d));
}

template <std::uint16_t tag>
bool IsWaveTag(const GUID& subtype)
{
    return subtype == SubtypeFromWaveTag(tag);
}

template <const GUID& id>
bool Is(const GUID& subtype)
{
    return subtype == id;
}

// The first row whose subtype fits and whose maker takes the type counts.
struct GFramingRow {
    GSubtypeTest fits;
    std::unique_ptr<GFramer> (*make)(const CMediaType& type);
    const char* format;
    const char* extension;
};

constexpr GFramingRow kFramings[] = {
    {IsFourCC<'A', 'V', 'C', '1'>, MakeAnnexBFramer, "annexb", "h264"},
    {IsFourCC<'a', 'v', 'c', '1'>, MakeAnnexBFramer, "annexb", "h264"},
    {IsWaveTag<wave_tag::kAac>, MakeAdtsFramer, "adts", "aac"},
    {Is<MEDIASUBTYPE_UTF8>, MakeSubRipFramer, "subrip", "srt"},
    {Is<MEDIASUBTYPE_ASS>, MakeSubStationFramer, "ass", "ass"},
    {Is<MEDIASUBTYPE_SSA>, MakeSubStationFramer, "ssa", "ssa"},
    {Is<MEDIASUBTYPE_Vorbis2>, MakeVorbisFramer, "ogg", "ogg"},
    {Is<MEDIASUBTYPE_Vorbis>, MakeInBandVorbisFramer, "ogg", "ogg"},
    // From here on the payload is a file as it is; the rows only know what such files are called.
    {IsFourCC<'H', '2', '6', '4'>, MakeRawFramer, "raw", "h264"},
    {IsFourCC<'h', '2', '6', '4'>, MakeRawFramer, "raw", "h264"},
    {IsFourCC<'M', 'J', 'P', 'G'>, MakeRawFramer, "raw", "mjpeg"},
    {IsFourCC<'F', 'M', 'P', '4'>, MakeRawFramer, "raw", "m4v"},
    {IsFourCC<'X', 'V', 'I', 'D'>, MakeRawFramer, "raw", "m4v"},
    {IsFourCC<'D', 'X', '5', '0'>, MakeRawFramer, "raw", "m4v"},
    {Is<MEDIASUBTYPE_MPEG2_VIDEO>, MakeRawFramer, "raw", "m2v"},
    {IsFourCC<'W', 'V', 'C', '1'>, MakeRawFramer, "raw", "vc1"},
    {IsWaveTag<wave_tag::kMpeg>, MakeRawFramer, "raw", "mp2"},
    {IsWaveTag<wave_tag::kMp3>, MakeRawFramer, "raw", "mp3"},
    {IsWaveTag<wave_tag::kAc3>, MakeRawFramer, "raw", "ac3"},
    {Is<MEDIASUBTYPE_DOLBY_AC3>, MakeRawFramer, "raw", "ac3"},
    {IsWaveTag<wave_tag::kDts>, MakeRawFramer, "raw", "dts"},
    {Is<MEDIASUBTYPE_DTS>, MakeRawFramer, "raw", "dts"},
    {Is<MEDIASUBTYPE_DVD_LPCM_AUDIO>, MakeRawFramer, "raw", "lpcm"},
    {IsWaveTag<wave_tag::kPcm>, MakeRawFramer, "raw", "pcm"},
    {IsWaveTag<wave_tag::kFlac>, MakeRawFramer, "raw", "flac"},
    {Is<MEDIASUBTYPE_FlacFramed>, MakeRawFramer, "raw", "flac"},
};

}  // namespace

GFraming ChooseFraming(const CMediaType& type, bool raw)
{
    // Text of no declared kind is plain.
    if (!raw && type.majortype == MEDIATYPE_Text && type.subtype == GUID_NULL)
        return {"subrip", "srt", MakeSubRipFramer(type)};
    for (const GFramingRow& row : kFramings) {
        if (raw || !row.fits(type.subtype))
            continue;
        if (auto framer = row.make(type))
            return {row.format, row.extension, std::move(framer)};
    }
    return {"raw", "bin", std::make_unique<GRawFramer>()};
}

}  // namespace vex
