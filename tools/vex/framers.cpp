#include "tools/vex/framers.h"

#include "framework/media/codec_guids.h"
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
    return subtype == SubtypeFromFourCC(MAKEFOURCC(a, b, c, d));
}

template <int tag>
bool IsWaveTag(const GUID& subtype)
{
    return subtype == SubtypeFromWaveTag(static_cast<std::uint16_t>(tag));
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
    {IsWaveTag<0x00FF>, MakeAdtsFramer, "adts", "aac"},
    {Is<MEDIASUBTYPE_UTF8>, MakeSubRipFramer, "subrip", "srt"},
    {Is<MEDIASUBTYPE_ASS>, MakeSubStationFramer, "ass", "ass"},
    {Is<MEDIASUBTYPE_SSA>, MakeSubStationFramer, "ssa", "ssa"},
    {Is<MEDIASUBTYPE_Vorbis2>, MakeVorbisFramer, "ogg", "ogg"},
    // From here on the payload is a file as it is; the rows only know what such files are called.
    {IsFourCC<'H', '2', '6', '4'>, MakeRawFramer, "raw", "h264"},
    {IsFourCC<'h', '2', '6', '4'>, MakeRawFramer, "raw", "h264"},
    {IsFourCC<'M', 'J', 'P', 'G'>, MakeRawFramer, "raw", "mjpeg"},
    {IsFourCC<'F', 'M', 'P', '4'>, MakeRawFramer, "raw", "m4v"},
    {IsFourCC<'X', 'V', 'I', 'D'>, MakeRawFramer, "raw", "m4v"},
    {IsFourCC<'D', 'X', '5', '0'>, MakeRawFramer, "raw", "m4v"},
    {IsWaveTag<0x0050>, MakeRawFramer, "raw", "mp2"},
    {IsWaveTag<0x0055>, MakeRawFramer, "raw", "mp3"},
    {IsWaveTag<0x2000>, MakeRawFramer, "raw", "ac3"},
    {IsWaveTag<0x2001>, MakeRawFramer, "raw", "dts"},
    {IsWaveTag<0x0001>, MakeRawFramer, "raw", "pcm"},
    {IsWaveTag<0xF1AC>, MakeRawFramer, "raw", "flac"},
    {Is<MEDIASUBTYPE_FlacFramed>, MakeRawFramer, "raw", "flac"},
};

}  // namespace

GFraming ChooseFraming(const CMediaType& type, bool raw)
{
    for (const GFramingRow& row : kFramings) {
        if (raw || !row.fits(type.subtype))
            continue;
        if (auto framer = row.make(type))
            return {row.format, row.extension, std::move(framer)};
    }
    return {"raw", "bin", std::make_unique<GRawFramer>()};
}

}  // namespace vex
