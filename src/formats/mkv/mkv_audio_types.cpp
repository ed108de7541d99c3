#include <array>
#include <cstring>

#include "formats/mkv/mkv_track_types.h"
#include "io/fourcc.h"
#include "media/aac_config.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/format_headers.h"
#include "media/wave_tags.h"
#include "media/xiph_headers.h"

namespace vex {

namespace {

constexpr ULONG kAudioSampleSize = 256'000;  // bytes, an upper bound

std::uint32_t WholeHertz(double rate)
{
    if (!(rate > 0))  // also a NaN
        return 0;
    return rate >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(rate);
}

WAVEFORMATEX WaveFormatOf(const GMkvTrack& track, WORD tag)
{
    WAVEFORMATEX format{};
    const std::uint64_t blockBytes = track.audio.bitDepth.value * track.audio.channels.value / 8;
    format.wFormatTag = tag;
    format.nChannels = static_cast<WORD>(track.audio.channels.value);
    format.nSamplesPerSec = WholeHertz(track.audio.samplingFrequency.value);
    format.wBitsPerSample = static_cast<WORD>(track.audio.bitDepth.value);
    format.nBlockAlign = static_cast<WORD>(blockBytes);
    format.nAvgBytesPerSec = static_cast<DWORD>(std::uint64_t{format.nBlockAlign} * format.nSamplesPerSec);
    return format;
}

CMediaType WaveType(const GUID& subtype, const WAVEFORMATEX& format, GBytes extra)
{
    CMediaType type = MakeWaveType(subtype, format, extra);
    type.lSampleSize = kAudioSampleSize;
    return type;
}

// cbSize has 16 bits: longer private data cannot be described by it.
bool SetExtraSize(WAVEFORMATEX& format, GBytes extra)
{
    if (extra.size() > 0xFFFF)
        return false;
    format.cbSize = static_cast<WORD>(extra.size());
    return true;
}

std::vector<CMediaType> AacFromPrivate(const GMkvTrack& track, GBytes codecPrivate)
{
    WAVEFORMATEX format = WaveFormatOf(track, wave_tag::kAac);
    if (!SetExtraSize(format, codecPrivate))
        return {};
    return {WaveType(SubtypeFromWaveTag(wave_tag::kAac), format, codecPrivate)};
}

// "A_AAC/MPEG4/LC/SBR" and its like: the profile is part of the name.
std::vector<CMediaType> AacFromId(const GMkvTrack& track, GBytes)
{
    struct GSuffix {
        std::string_view text;
        int profile;
    };
    constexpr int kSbr = -1;  // LC with SBR on top, which MakeAacConfig writes for a negative profile
    constexpr std::array<GSuffix, 5> suffixes{{{"/SBR", kSbr}, {"/MAIN", 0}, {"/LC", 1}, {"/SSR", 2}, {"/LTP", 3}}};
    int profile = 1;
    for (const GSuffix& suffix : suffixes) {
        if (MkvCodecId(track).find(suffix.text) == std::string_view::npos)
            continue;
        profile = suffix.profile;
        break;
    }
    WAVEFORMATEX format = WaveFormatOf(track, wave_tag::kAac);
    std::array<std::uint8_t, 5> config{};
    const std::size_t length = MakeAacConfig(config, profile, format.nSamplesPerSec, format.nChannels);
    format.cbSize = static_cast<WORD>(length);
    const GBytes extra(config.data(), length);
    const GUID subtype = SubtypeFromWaveTag(wave_tag::kAac);
    std::vector<CMediaType> types;
    if (profile == kSbr) {
        WAVEFORMATEX doubled = format;
        doubled.nSamplesPerSec *= 2;
        doubled.nAvgBytesPerSec *= 2;
        types.push_back(WaveType(subtype, doubled, extra));
    }
    types.push_back(WaveType(subtype, format, extra));
    return types;
}

std::vector<CMediaType> FlacTypes(const GMkvTrack& track, GBytes codecPrivate)
{
    WAVEFORMATEX format = WaveFormatOf(track, wave_tag::kFlac);
    if (!SetExtraSize(format, codecPrivate))
        return {};
    return {WaveType(MEDIASUBTYPE_FlacFramed, format, codecPrivate),
            WaveType(SubtypeFromWaveTag(wave_tag::kFlac), format, codecPrivate)};
}

// The private data are the format itself; an old PCM one lacks the last field, which then counts as 0.
std::vector<CMediaType> AcmTypes(const GMkvTrack&, GBytes codecPrivate)
{
    const GWaveFormat format = ReadWaveFormat(codecPrivate);
    if (!format.whole)
        return {};
    CMediaType type = MakeAudioType(SubtypeFromWaveTag(format.header.wFormatTag), kAudioSampleSize);
    const std::span<BYTE> block =
        type.AllocFormat(FORMAT_WaveFormatEx, std::max(codecPrivate.size(), sizeof(WAVEFORMATEX)));
    std::memcpy(block.data(), codecPrivate.data(), codecPrivate.size());
    return {type};
}

// "A_REAL/COOK": the four characters behind the slash.
std::vector<CMediaType> RealTypes(const GMkvTrack& track, GBytes codecPrivate)
{
    const std::string_view id = MkvCodecId(track);
    if (id.size() <= 10)
        return {};
    const std::uint32_t code = FourCC(id[7], id[8], id[9], id[10]);
    return {WaveType(SubtypeFromFourCC(code), WaveFormatOf(track, static_cast<WORD>(code)), codecPrivate)};
}

std::vector<CMediaType> VorbisTypes(const GMkvTrack& track, GBytes codecPrivate)
{
    const WAVEFORMATEX wave = WaveFormatOf(track, 0);
    std::vector<CMediaType> types;
    const auto headers = SplitXiphPackets(codecPrivate);
    if (headers.size() == 3)
        types.push_back(MakeVorbis2Type(static_cast<std::uint32_t>(track.audio.channels.value), wave.nSamplesPerSec,
                                        static_cast<std::uint32_t>(track.audio.bitDepth.value),
                                        {headers[0], headers[1], headers[2]}));
    constexpr std::uint32_t kUnknownRate = 0xFFFFFFFF;
    GVorbisFormat format;
    format.channels = wave.nChannels;
    format.samplesPerSecond = wave.nSamplesPerSec;
    format.lowerBitRate = format.nominalBitRate = format.upperBitRate = kUnknownRate;
    types.push_back(MakeVorbisType(format));
    for (CMediaType& type : types)
        type.lSampleSize = kAudioSampleSize;
    return types;
}

using GAudioTypeBuilder = std::vector<CMediaType> (*)(const GMkvTrack&, GBytes);

struct GAudioCodec {
    std::string_view id;
    bool prefix;  // every ID that begins so
    WORD tag;     // where there is no builder
    GAudioTypeBuilder build;
};

// The first row that fits counts.
constexpr std::array kAudioCodecs = std::to_array<GAudioCodec>({
    {"A_MPEG/L3", false, wave_tag::kMp3, nullptr},
    {"A_MPEG/L2", false, wave_tag::kMpeg, nullptr},
    {"A_AC3", false, wave_tag::kAc3, nullptr},
    {"A_EAC3", false, wave_tag::kAc3, nullptr},
    {"A_DTS", false, wave_tag::kDts, nullptr},
    {"A_PCM/INT/LIT", false, wave_tag::kPcm, nullptr},
    {"A_PCM/FLOAT/IEEE", false, wave_tag::kFloat, nullptr},
    {"A_TTA1", false, wave_tag::kTta, nullptr},
    {"A_AAC", false, 0, AacFromPrivate},
    {"A_AAC", true, 0, AacFromId},
    {"A_FLAC", false, 0, FlacTypes},
    {"A_MS/ACM", false, 0, AcmTypes},
    {"A_REAL/", true, 0, RealTypes},
    {"A_VORBIS", false, 0, VorbisTypes},
});

}  // namespace

std::vector<CMediaType> MkvAudioTypes(const GMkvTrack& track, std::span<const std::uint8_t> codecPrivate)
{
    const std::string_view id = MkvCodecId(track);
    for (const GAudioCodec& codec : kAudioCodecs) {
        if (codec.prefix ? !id.starts_with(codec.id) : id != codec.id)
            continue;
        if (codec.build)
            return codec.build(track, codecPrivate);
        return {WaveType(SubtypeFromWaveTag(codec.tag), WaveFormatOf(track, codec.tag), {})};
    }
    return {};
}

}  // namespace vex
