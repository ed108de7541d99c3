#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "formats/mkv/mkv_track_types.h"
#include "framework/media/codec_guids.h"
#include "framework/media/h264_parameters.h"
#include "io/byte_reader.h"

namespace vex {

namespace {

constexpr std::size_t kSequenceHeaderOffset = offsetof(MPEG2VIDEOINFO, dwSequenceHeader);

using GBytes = std::span<const std::uint8_t>;

constexpr DWORD Code(const char (&text)[5]) { return MAKEFOURCC(text[0], text[1], text[2], text[3]); }

// Pixel sizes are unsigned in the file; what does not fit a bitmap header becomes 0.
LONG PixelCount(const CUInt& value) { return value.value <= INT32_MAX ? static_cast<LONG>(value.value) : 0; }

BITMAPINFOHEADER BitmapOf(const GMkvTrack& track, DWORD compression)
{
    BITMAPINFOHEADER bitmap{};
    bitmap.biSize = sizeof(BITMAPINFOHEADER);
    bitmap.biWidth = PixelCount(track.video.pixelWidth);
    bitmap.biHeight = PixelCount(track.video.pixelHeight);
    bitmap.biPlanes = 1;
    bitmap.biBitCount = 24;
    bitmap.biCompression = compression;
    return bitmap;
}

CMediaType VideoType(const GUID& subtype)
{
    CMediaType type(MEDIATYPE_Video, subtype);
    type.SetSampleSize(0);
    type.bTemporalCompression = TRUE;
    return type;
}

// A VIDEOINFOHEADER with `behind` following its bitmap header.
CMediaType VideoInfoType(const GUID& subtype, const BITMAPINFOHEADER& bitmap, GBytes behind)
{
    CMediaType type = VideoType(subtype);
    const std::span<BYTE> block = type.AllocFormat(FORMAT_VideoInfo, sizeof(VIDEOINFOHEADER) + behind.size());
    std::memcpy(block.data() + offsetof(VIDEOINFOHEADER, bmiHeader), &bitmap, sizeof bitmap);
    if (!behind.empty())
        std::memcpy(block.data() + sizeof(VIDEOINFOHEADER), behind.data(), behind.size());
    return type;
}

// An MPEG2VIDEOINFO with its sequence header; the rest is filled in by `fill`.
template <class Fill>
CMediaType Mpeg2Type(const GUID& subtype, const BITMAPINFOHEADER& bitmap, GBytes sequenceHeader, Fill&& fill)
{
    CMediaType type = VideoType(subtype);
    const std::size_t bytes = std::max(sizeof(MPEG2VIDEOINFO), kSequenceHeaderOffset + sequenceHeader.size());
    const std::span<BYTE> block = type.AllocFormat(FORMAT_MPEG2Video, bytes);
    MPEG2VIDEOINFO info{};
    info.hdr.bmiHeader = bitmap;
    info.cbSequenceHeader = static_cast<DWORD>(sequenceHeader.size());
    fill(info);
    std::memcpy(block.data(), &info, kSequenceHeaderOffset);
    if (!sequenceHeader.empty())
        std::memcpy(block.data() + kSequenceHeaderOffset, sequenceHeader.data(), sequenceHeader.size());
    return type;
}

GUID VfwSubtype(const BITMAPINFOHEADER& bitmap)
{
    if (bitmap.biCompression != BI_RGB && bitmap.biCompression != BI_BITFIELDS)
        return SubtypeFromFourCC(bitmap.biCompression);
    switch (bitmap.biBitCount) {
    case 1:
        return MEDIASUBTYPE_RGB1;
    case 4:
        return MEDIASUBTYPE_RGB4;
    case 8:
        return MEDIASUBTYPE_RGB8;
    case 16:
        return MEDIASUBTYPE_RGB565;
    case 24:
        return MEDIASUBTYPE_RGB24;
    case 32:
        return MEDIASUBTYPE_ARGB32;
    default:
        return GUID_NULL;
    }
}

std::optional<CMediaType> VfwType(const GMkvTrack&, GBytes codecPrivate)
{
    BITMAPINFOHEADER bitmap{};
    if (codecPrivate.size() < sizeof bitmap)
        return {};
    std::memcpy(&bitmap, codecPrivate.data(), sizeof bitmap);
    return VideoInfoType(VfwSubtype(bitmap), bitmap, codecPrivate.subspan(sizeof bitmap));
}

std::optional<CMediaType> UncompressedType(const GMkvTrack&, GBytes) { return VideoType(GUID_NULL); }

// The parameter sets of an AVCDecoderConfigurationRecord (ISO/IEC 14496-15), each behind its 16-bit length. Nothing when
// a length runs past the record.
std::optional<GBuffer> ParameterSets(GBytes record)
{
    GBuffer sets;
    GByteReader reader(record.subspan(5));
    const auto copy = [&](unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            GByteReader ahead = reader;
            const std::size_t size = ahead.U16BE();
            if (!ahead.Ok() || size > ahead.Left())
                return false;
            sets.Append(reader.Bytes(2 + size));
        }
        return true;
    };
    if (!copy(reader.U8() & 0x1Fu))
        return {};
    if (!copy(reader.U8()) || !reader.Ok())
        return {};
    return sets;
}

std::optional<CMediaType> AvcType(const GMkvTrack& track, GBytes codecPrivate)
{
    if (codecPrivate.size() < 6)
        return {};
    const std::optional<GBuffer> sets = ParameterSets(codecPrivate);
    if (!sets)
        return {};
    constexpr DWORD code = Code("AVC1");
    return Mpeg2Type(SubtypeFromFourCC(code), BitmapOf(track, code), sets->Span(), [&](MPEG2VIDEOINFO& info) {
        info.dwProfile = codecPrivate[1];
        info.dwLevel = codecPrivate[3];
        info.dwFlags = (codecPrivate[4] & 3u) + 1u;  // bytes of a NAL unit's length
    });
}

// Profile and level as the sequence extension codes them (ISO/IEC 13818-2, 8.2), and as the format block wants them.
constexpr std::array<DWORD, 8> kMpeg2Profiles{0, 5, 4, 3, 2, 1, 0, 0};
constexpr std::array<DWORD, 16> kMpeg2Levels{0, 0, 0, 0, 4, 0, 3, 0, 2, 0, 1, 0, 0, 0, 0, 0};

std::optional<CMediaType> Mpeg2VideoType(const GMkvTrack& track, GBytes codecPrivate)
{
    return Mpeg2Type(MEDIASUBTYPE_MPEG2_VIDEO, BitmapOf(track, Code("MPG2")), codecPrivate, [&](MPEG2VIDEOINFO& info) {
        constexpr std::array<std::uint8_t, 4> extension{0x00, 0x00, 0x01, 0xB5};
        for (std::size_t i = 0; i + 6 <= codecPrivate.size(); ++i) {
            const GBytes here = codecPrivate.subspan(i, 6);
            if (std::memcmp(here.data(), extension.data(), extension.size()) != 0 || (here[4] >> 4) != 1)
                continue;
            info.dwProfile = kMpeg2Profiles[here[4] & 7u];
            info.dwLevel = kMpeg2Levels[here[5] >> 4];
            return;
        }
    });
}

std::optional<CMediaType> Mpeg4Type(const GMkvTrack& track, GBytes codecPrivate)
{
    constexpr DWORD code = Code("MP4V");
    return Mpeg2Type(SubtypeFromFourCC(code), BitmapOf(track, code), codecPrivate, [](MPEG2VIDEOINFO&) {});
}

// The identification header starts behind the two lace sizes: at byte 3 of the private data. Its frame size counts
// macroblocks of 16 pixels.
std::optional<CMediaType> TheoraType(const GMkvTrack& track, GBytes codecPrivate)
{
    constexpr std::size_t kFrameSize = 13;
    if (codecPrivate.size() < 33)
        return {};
    GByteReader reader(codecPrivate.subspan(kFrameSize));
    BITMAPINFOHEADER bitmap = BitmapOf(track, Code("THEO"));
    bitmap.biWidth = reader.U16LE() >> 4;
    bitmap.biHeight = reader.U16LE() >> 4;
    const std::uint32_t pictureWidth = reader.U24BE();
    const std::uint32_t pictureHeight = reader.U24BE();
    reader.Skip(2);  // picture offsets
    const std::uint32_t numerator = reader.U32BE();
    const std::uint32_t denominator = reader.U32BE();
    return Mpeg2Type(SubtypeFromFourCC(Code("THEO")), bitmap, codecPrivate, [&](MPEG2VIDEOINFO& info) {
        if (numerator != 0)
            info.hdr.AvgTimePerFrame = static_cast<REFERENCE_TIME>(std::uint64_t{10'000'000} * denominator / numerator);
        info.hdr.dwPictAspectRatioX = pictureWidth;
        info.hdr.dwPictAspectRatioY = pictureHeight;
    });
}

std::optional<CMediaType> Vp8Type(const GMkvTrack& track, GBytes codecPrivate)
{
    constexpr DWORD code = Code("VP80");
    return VideoInfoType(SubtypeFromFourCC(code), BitmapOf(track, code), codecPrivate);
}

// "V_REAL/RV40": the digit names the version.
std::optional<CMediaType> RealType(const GMkvTrack& track, GBytes codecPrivate)
{
    const std::string_view id = MkvCodecId(track);
    if (id.size() < 10)
        return {};
    const DWORD code = MAKEFOURCC('R', 'V', id[9], '0');
    return VideoInfoType(SubtypeFromFourCC(code), BitmapOf(track, code), codecPrivate);
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

// Every video format block that is met here has its frame time at the same place.
static_assert(offsetof(VIDEOINFOHEADER, AvgTimePerFrame) == offsetof(VIDEOINFOHEADER2, AvgTimePerFrame));
static_assert(offsetof(MPEG2VIDEOINFO, hdr) == 0);

void SetFrameTime(CMediaType& type, REFERENCE_TIME time)
{
    if (type.cbFormat >= sizeof(VIDEOINFOHEADER))
        std::memcpy(type.pbFormat + offsetof(VIDEOINFOHEADER, AvgTimePerFrame), &time, sizeof time);
}

void SetAspect(CMediaType& type, DWORD x, DWORD y)
{
    std::memcpy(type.pbFormat + offsetof(VIDEOINFOHEADER2, dwPictAspectRatioX), &x, sizeof x);
    std::memcpy(type.pbFormat + offsetof(VIDEOINFOHEADER2, dwPictAspectRatioY), &y, sizeof y);
}

// The same type with room for the display aspect.
CMediaType VideoInfo2Twin(const CMediaType& type, DWORD x, DWORD y)
{
    constexpr std::size_t kCommon = offsetof(VIDEOINFOHEADER, bmiHeader);
    constexpr std::size_t kAdded = offsetof(VIDEOINFOHEADER2, bmiHeader) - kCommon;
    CMediaType twin(type);
    const std::span<BYTE> block = twin.AllocFormat(FORMAT_VideoInfo2, type.cbFormat + kAdded);
    std::memcpy(block.data(), type.pbFormat, kCommon);
    std::memcpy(block.data() + kCommon + kAdded, type.pbFormat + kCommon, type.cbFormat - kCommon);
    SetAspect(twin, x, y);
    return twin;
}

std::vector<CMediaType> WithAspect(CMediaType type, const GMkvVideo& video)
{
    std::vector<CMediaType> types;
    if (video.displayWidth.value != 0 && video.displayHeight.value != 0) {
        const auto x = static_cast<DWORD>(video.displayWidth.value);
        const auto y = static_cast<DWORD>(video.displayHeight.value);
        if (type.formattype == FORMAT_VideoInfo)
            types.push_back(VideoInfo2Twin(type, x, y));
        else if (type.formattype == FORMAT_MPEG2Video)
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
