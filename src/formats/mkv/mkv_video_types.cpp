#include <array>
#include <cmath>
#include <optional>

#include "formats/mkv/mkv_track_types.h"
#include "io/fourcc.h"
#include "media/avc_record.h"
#include "media/codec_guids.h"
#include "media/codec_tags.h"
#include "media/format_headers.h"
#include "media/h264_parameters.h"
#include "media/mpeg_video.h"
#include "media/video_types.h"
#include "media/xiph_headers.h"

namespace vex {

namespace {

// Pixel sizes are unsigned in the file; what does not fit a bitmap header becomes 0.
LONG PixelCount(const CUInt& value) { return value.value <= INT32_MAX ? static_cast<LONG>(value.value) : 0; }

BITMAPINFOHEADER BitmapOf(const GMkvTrack& track, std::uint32_t compression)
{
    return MakeBitmapHeader(PixelCount(track.video.pixelWidth), PixelCount(track.video.pixelHeight), 24, compression);
}

VIDEOINFOHEADER VideoInfoOf(const BITMAPINFOHEADER& bitmap)
{
    VIDEOINFOHEADER info{};
    info.bmiHeader = bitmap;
    return info;
}

MPEG2VIDEOINFO Mpeg2InfoOf(const BITMAPINFOHEADER& bitmap)
{
    MPEG2VIDEOINFO info{};
    info.hdr.bmiHeader = bitmap;
    return info;
}

// Without masks to look at, 16 bits are taken for 5:6:5 and 32 for colours with alpha.
GUID VfwSubtype(const BITMAPINFOHEADER& bitmap)
{
    const bool uncompressed = bitmap.biCompression == BI_RGB || bitmap.biCompression == BI_BITFIELDS;
    if (uncompressed && bitmap.biBitCount == 16)
        return MEDIASUBTYPE_RGB565;
    if (uncompressed && bitmap.biBitCount == 32)
        return MEDIASUBTYPE_ARGB32;
    return SubtypeFromBitmap(bitmap);
}

std::optional<CMediaType> VfwType(const GMkvTrack&, GBytes codecPrivate)
{
    const auto bitmap = ReadBitmapHeader(codecPrivate);
    if (!bitmap)
        return {};
    return MakeVideoInfoType(VfwSubtype(*bitmap), VideoInfoOf(*bitmap), codecPrivate.subspan(kBitmapHeaderSize));
}

std::optional<CMediaType> UncompressedType(const GMkvTrack&, GBytes) { return MakeVideoType(GUID_NULL); }

// Private data whose lengths run past their end give no type.
std::optional<CMediaType> AvcType(const GMkvTrack& track, GBytes codecPrivate)
{
    const auto record = ReadAvcRecord(codecPrivate);
    if (!record || !record->complete)
        return {};
    constexpr std::uint32_t code = FourCC("AVC1");
    MPEG2VIDEOINFO info = Mpeg2InfoOf(BitmapOf(track, code));
    info.dwProfile = record->profile;
    info.dwLevel = record->level;
    info.dwFlags = record->lengthSize;
    return MakeMpeg2VideoType(SubtypeFromFourCC(code), info,
                              AvcSequenceHeader(record->sequenceSets, record->pictureSets));
}

std::optional<CMediaType> Mpeg2VideoType(const GMkvTrack& track, GBytes codecPrivate)
{
    MPEG2VIDEOINFO info = Mpeg2InfoOf(BitmapOf(track, FourCC("MPG2")));
    if (const auto extension = FindMpegSequenceExtension(codecPrivate)) {
        info.dwProfile = VideoInfoProfile(extension->profile);
        info.dwLevel = VideoInfoLevel(extension->level);
    }
    return MakeMpeg2VideoType(MEDIASUBTYPE_MPEG2_VIDEO, info, codecPrivate);
}

std::optional<CMediaType> Mpeg4Type(const GMkvTrack& track, GBytes codecPrivate)
{
    constexpr std::uint32_t code = FourCC("MP4V");
    return MakeMpeg2VideoType(SubtypeFromFourCC(code), Mpeg2InfoOf(BitmapOf(track, code)), codecPrivate);
}

// The low byte of a count of macroblocks, in samples, and the top nibble of its high byte. For all sizes in use, up to
// 4080 samples, that is the count times 16.
LONG CodedSize(std::uint16_t macroblocks) { return (macroblocks & 0xFF) << 4 | macroblocks >> 12; }

// The identification header starts behind the two lace sizes: at byte 3 of the private data.
std::optional<CMediaType> TheoraType(const GMkvTrack& track, GBytes codecPrivate)
{
    constexpr std::size_t kHeader = 3;
    constexpr std::size_t kShortest = 33;
    if (codecPrivate.size() < kShortest)
        return {};
    const GTheoraIdentification header = ReadTheoraIdentification(codecPrivate.subspan(kHeader));
    constexpr std::uint32_t code = FourCC("THEO");
    MPEG2VIDEOINFO info = Mpeg2InfoOf(BitmapOf(track, code));
    info.hdr.bmiHeader.biWidth = CodedSize(header.frameColumns);
    info.hdr.bmiHeader.biHeight = CodedSize(header.frameRows);
    if (header.rateNumerator != 0)
        info.hdr.AvgTimePerFrame =
            static_cast<REFERENCE_TIME>(std::uint64_t{10'000'000} * header.rateDenominator / header.rateNumerator);
    info.hdr.dwPictAspectRatioX = header.pictureWidth;
    info.hdr.dwPictAspectRatioY = header.pictureHeight;
    return MakeMpeg2VideoType(SubtypeFromFourCC(code), info, codecPrivate);
}

std::optional<CMediaType> VideoInfoTypeOf(const GMkvTrack& track, std::uint32_t code, GBytes codecPrivate)
{
    return MakeVideoInfoType(SubtypeFromFourCC(code), VideoInfoOf(BitmapOf(track, code)), codecPrivate);
}

std::optional<CMediaType> Vp8Type(const GMkvTrack& track, GBytes codecPrivate)
{
    return VideoInfoTypeOf(track, FourCC("VP80"), codecPrivate);
}

// "V_REAL/RV40": the digit names the version.
std::optional<CMediaType> RealType(const GMkvTrack& track, GBytes codecPrivate)
{
    const std::string_view id = MkvCodecId(track);
    if (id.size() < 10)
        return {};
    return VideoInfoTypeOf(track, FourCC('R', 'V', id[9], '0'), codecPrivate);
}

using GVideoTypeBuilder = std::optional<CMediaType> (*)(const GMkvTrack&, GBytes);

struct GVideoCodec {
    std::string_view id;
    bool prefix;  // every ID that begins so
    GVideoTypeBuilder build;
};

// The first row that fits counts.
constexpr std::array kVideoCodecs = std::to_array<GVideoCodec>({
    {"V_MS/VFW/FOURCC", false, VfwType},
    {"V_UNCOMPRESSED", false, UncompressedType},
    {"V_MPEG4/ISO/AVC", false, AvcType},
    {"V_MPEG2", false, Mpeg2VideoType},
    {"V_THEORA", false, TheoraType},
    {"V_VP8", false, Vp8Type},
    {"V_MPEG4/", true, Mpeg4Type},
    {"V_REAL/RV", true, RealType},
});

// 100 ns of a rate in 1/s; 0 when the rate is none.
REFERENCE_TIME FrameTime(double rate)
{
    const double time = 10'000'000.0 / rate;
    return std::isfinite(time) && time > 0 && time < 9e18 ? static_cast<REFERENCE_TIME>(time) : 0;
}

// What the track says of the time of one frame, 100 ns; 0 when it says nothing.
REFERENCE_TIME TrackFrameTime(const GMkvTrack& track, GBytes codecPrivate)
{
    if (track.video.frameRate.value > 0)
        return FrameTime(track.video.frameRate.value);
    if (track.defaultDuration.value >= 100)
        return static_cast<REFERENCE_TIME>(track.defaultDuration.value / 100);
    if (MkvCodecId(track) != "V_MPEG4/ISO/AVC")
        return 0;
    GH264Parameters parameters;
    if (!ReadAvcConfiguration(codecPrivate, parameters))
        return 0;
    if (parameters.numUnitsInTick == 0)
        return FrameTime(1.0);
    const double ticks = (parameters.fixedFrameRate ? 2.0 : 25.0) * parameters.numUnitsInTick;
    return FrameTime(parameters.timeScale / ticks);
}

std::vector<CMediaType> WithAspect(CMediaType type, const GMkvVideo& video)
{
    std::vector<CMediaType> types;
    if (video.displayWidth.value != 0 && video.displayHeight.value != 0) {
        const auto x = static_cast<DWORD>(video.displayWidth.value);
        const auto y = static_cast<DWORD>(video.displayHeight.value);
        if (type.formattype == FORMAT_VideoInfo)
            types.push_back(MakeVideoInfo2Twin(type, x, y));
        SetAspect(type, x, y);
    }
    types.push_back(std::move(type));
    return types;
}

}  // namespace

std::vector<CMediaType> MkvVideoTypes(const GMkvTrack& track, std::span<const std::uint8_t> codecPrivate)
{
    const std::string_view id = MkvCodecId(track);
    for (const GVideoCodec& codec : kVideoCodecs) {
        if (codec.prefix ? !id.starts_with(codec.id) : id != codec.id)
            continue;
        std::optional<CMediaType> type = codec.build(track, codecPrivate);
        if (!type)
            return {};
        const REFERENCE_TIME frameTime = TrackFrameTime(track, codecPrivate);
        if (frameTime != 0)
            SetFrameTime(*type, frameTime);
        return WithAspect(std::move(*type), track.video);
    }
    return {};
}

}  // namespace vex
