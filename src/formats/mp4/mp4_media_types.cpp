#include "formats/mp4/mp4_media_types.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <optional>

#include "formats/mp4/mp4_codecs.h"
#include "formats/mp4/mp4_times.h"
#include "media/audio_types.h"
#include "media/avc_record.h"
#include "media/codec_guids.h"
#include "media/mpeg_video.h"
#include "media/picture_sizes.h"
#include "media/video_types.h"
#include "media/wave_tags.h"

namespace vex {
namespace {

using namespace mp4_codec;

struct GVideoRow {
    unsigned codec;
    std::uint32_t subtype;      // FourCC
    std::uint32_t compression;  // as the format says it
};

// Codecs with a VIDEOINFOHEADER and nothing special.
constexpr GVideoRow kVideoRows[]{
    {32, FourCC("mp4v"), FourCC("mp4v")},
    {kMpeg4Video, FourCC("mp4v"), FourCC("mp4v")},
    {kH263, FourCC("h263"), FourCC("h263")},
    {kH264, FourCC("H264"), FourCC("h264")},
    {kCinepak, FourCC("cvid"), FourCC("cvid")},
    {kJpeg, FourCC("jpeg"), FourCC("jpeg")},
    {kMotionJpegA, FourCC("mjpa"), FourCC("mjpa")},
    {kSorenson1, FourCC("SVQ1"), FourCC("SVQ1")},
    {kRoadPizza, FourCC("rpza"), FourCC("rpza")},
    {kSorenson3, FourCC("SVQ3"), FourCC("SVQ3")},
    {kQuickTimeRle, FourCC("RLE "), FourCC("rle ")},
    {kIndeo4, FourCC("IV41"), FourCC("IV41")},
    {kDv, FourCC("dvc "), FourCC("dvc ")},
};

struct GAudioRow {
    unsigned codec;
    GUID subtype;
    std::optional<std::uint16_t> tag;  // none: as in the track's format
    ULONG sampleSize;                  // of samples of fixed size, as hosts know them; 0: variable
};

constexpr GUID kAacSubtype = SubtypeFromWaveTag(wave_tag::kAac);
constexpr GUID kMp3Subtype = SubtypeFromWaveTag(wave_tag::kMp3);

// Not constexpr: on Windows the platform's identifiers are objects of its library.
const GAudioRow kAudioRows[]{
    {kAac, kAacSubtype, wave_tag::kAac, 0},
    {102, kAacSubtype, wave_tag::kAac, 0},
    {103, kAacSubtype, wave_tag::kAac, 0},
    {104, kAacSubtype, wave_tag::kAac, 0},
    {kMpegAudio, kMp3Subtype, wave_tag::kMp3, 0},
    {kMpeg1Audio, kMp3Subtype, wave_tag::kMp3, 0},
    {kAc3, MEDIASUBTYPE_DOLBY_AC3, {}, 0},
    {kEac3, MEDIASUBTYPE_DOLBY_DDPLUS, {}, 0},
    {kQcelp, MEDIASUBTYPE_QCELP, {}, 0},
    {kEvrc, MEDIASUBTYPE_EVRC, {}, 0},
    {kG723, SubtypeFromWaveTag(wave_tag::kG723), {}, 0},
    {kAmr, SubtypeFromWaveTag(wave_tag::kAmr), {}, 0},
    {kRawAudio, MEDIASUBTYPE_PCM, {}, 16},
    {kTwos, MEDIASUBTYPE_PCM, {}, 16},
    {kSowt, MEDIASUBTYPE_PCM, {}, 16},
    {kIn24, MEDIASUBTYPE_PCM, {}, 24},
    {kMuLaw, SubtypeFromWaveTag(wave_tag::kMuLaw), {}, 0},
    {kQdesign2, SubtypeFromFourCC("QDM2"), 0, 0},
    {kImaAdpcm, SubtypeFromFourCC("ima4"), 0, 0},
};

// 100 ns, cut.
REFERENCE_TIME FrameTime(const Mp4Track& track)
{
    if (track.tables.sampleCount == 0)
        return 0;
    const REFERENCE_TIME duration = TimeFromUnits(track.duration, track.timescale);
    return static_cast<REFERENCE_TIME>(static_cast<double>(duration) / track.tables.sampleCount);
}

VIDEOINFOHEADER VideoInfo(const Mp4Track& track, std::uint32_t compression)
{
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = FrameTime(track);
    info.bmiHeader = track.bitmap;
    info.bmiHeader.biCompression = compression;
    return info;
}

template <class Info>
Info MpegInfo(const Mp4Track& track, std::uint32_t compression)
{
    Info info{};
    info.hdr.dwBitRate = track.avgBitRate;
    info.hdr.AvgTimePerFrame = FrameTime(track);
    info.hdr.bmiHeader = track.bitmap;
    info.hdr.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    info.hdr.bmiHeader.biCompression = compression;
    return info;
}

// Parameter sets go behind the header, each with its 16-bit length; the block keeps the size of the whole record.
CMediaType MakeAvcType(const Mp4Track& track)
{
    constexpr std::size_t kBlockBeforeBitmap = 96;  // bytes
    auto info = MpegInfo<MPEG2VIDEOINFO>(track, FourCC("AVC1"));
    info.hdr.dwBitRate = 0;
    info.dwFlags = 4;  // bytes of a NAL unit's length where no record says it
    std::vector<std::uint8_t> sets;
    if (std::optional<GAvcRecord> record = ReadAvcRecord(track.extra)) {
        info.dwProfile = record->profile;
        info.dwLevel = record->level;
        info.dwFlags = record->lengthSize;
        const std::size_t pictureSets = record->declaredPictureSets & 0x1Fu;
        if (record->pictureSets.size() > pictureSets)
            record->pictureSets.resize(pictureSets);
        sets = AvcSequenceHeader(record->sequenceSets, record->pictureSets);
    }
    return MakeMpeg2VideoType(SubtypeFromFourCC("AVC1"), info, sets, kBlockBeforeBitmap + track.bitmap.biSize);
}

CMediaType MakeMpeg2Type(const Mp4Track& track)
{
    auto info = MpegInfo<MPEG2VIDEOINFO>(track, FourCC("MPG2"));
    if (const auto extension = FindMpegSequenceExtension(track.extra)) {
        info.dwProfile = VideoInfoProfile(extension->profile);
        info.dwLevel = VideoInfoLevel(extension->level);
    }
    return MakeMpeg2VideoType(MEDIASUBTYPE_MPEG2_VIDEO, info, track.extra);
}

CMediaType MakeRawVideoType(Mp4Track& track)
{
    BITMAPINFOHEADER& bitmap = track.bitmap;
    const std::uint64_t pixels =
        static_cast<std::uint64_t>(bitmap.biWidth) * static_cast<std::uint64_t>(bitmap.biHeight);
    const std::uint64_t bytesPerPixel = pixels != 0 ? track.tables.sampleSize / pixels : 0;
    GUID subtype = GUID_NULL;
    switch (bytesPerPixel) {
    case 1:
        subtype = MEDIASUBTYPE_RGB8;
        break;
    case 2:
        subtype = MEDIASUBTYPE_RGB565;
        break;
    case 3:
        subtype = MEDIASUBTYPE_RGB24;
        break;
    case 4:
        subtype = MEDIASUBTYPE_RGB32;
        break;
    default:
        return {};
    }
    bitmap.biBitCount = static_cast<WORD>(bytesPerPixel * 8);
    bitmap.biSizeImage = static_cast<DWORD>(bytesPerPixel * pixels);  // at most the size of a sample
    VIDEOINFOHEADER info = VideoInfo(track, BI_RGB);
    info.rcSource = info.rcTarget = {0, 0, bitmap.biWidth, bitmap.biHeight};
    CMediaType type = MakeVideoInfoType(subtype, info, track.extra);
    type.bTemporalCompression = FALSE;
    return type;
}

CMediaType MakePlainVideoType(const Mp4Track& track)
{
    const auto* const row = std::ranges::find(kVideoRows, track.codec, &GVideoRow::codec);
    if (row == std::end(kVideoRows))
        return {};
    VIDEOINFOHEADER info = VideoInfo(track, row->compression);
    if (track.codec == kMpeg4Video || track.codec == 32) {
        info.dwBitRate = track.avgBitRate;
        if (const std::optional<GPictureSize> size = Mpeg4ConfigurationSize(track.extra)) {
            info.bmiHeader.biWidth = static_cast<LONG>(size->width);
            info.bmiHeader.biHeight = static_cast<LONG>(size->height);
        }
    }
    return MakeVideoInfoType(SubtypeFromFourCC(row->subtype), info, track.extra);
}

CMediaType MakeVideo(Mp4Track& track)
{
    switch (track.codec) {
    case kAvc:
        return MakeAvcType(track);
    case kMpeg2Video:
        return MakeMpeg2Type(track);
    case kMpeg1Video:
        return MakeMpeg1VideoType(MEDIASUBTYPE_MPEG1Payload, MpegInfo<MPEG1VIDEOINFO>(track, FourCC("MPG1")),
                                  track.extra);
    case kRawVideo:
        return MakeRawVideoType(track);
    default:
        return MakePlainVideoType(track);
    }
}

CMediaType MakeAudio(const Mp4Track& track)
{
    const auto* const row = std::ranges::find(kAudioRows, track.codec, &GAudioRow::codec);
    if (row == std::end(kAudioRows))
        return {};
    const GBytes extra =
        GBytes(track.extra).first(std::min<std::size_t>(track.extra.size(), std::numeric_limits<WORD>::max()));
    WAVEFORMATEX wave = track.wave;
    wave.wFormatTag = row->tag.value_or(wave.wFormatTag);
    wave.cbSize = static_cast<WORD>(extra.size());
    CMediaType type = MakeWaveType(row->subtype, wave, extra);
    if (row->sampleSize != 0)
        type.SetSampleSize(row->sampleSize);
    return type;
}

}  // namespace

CMediaType MakeMp4MediaType(Mp4Track& track)
{
    return track.category == GMp4Category::Audio ? MakeAudio(track) : MakeVideo(track);
}

}  // namespace vex
