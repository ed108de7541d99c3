#include <array>
#include <cstring>

#include "formats/mkv/mkv_track_types.h"
#include "framework/media/aac_config.h"
#include "framework/media/codec_guids.h"

namespace vex {

namespace {

using GBytes = std::span<const std::uint8_t>;

constexpr ULONG kAudioSampleSize = 256'000;  // bytes
constexpr WORD kTagAac = 0x00FF;
constexpr WORD kTagFlac = 0xF1AC;

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

CMediaType AudioType(const GUID& subtype)
{
    CMediaType type(MEDIATYPE_Audio, subtype);
    type.lSampleSize = kAudioSampleSize;  // an upper bound, no fixed size
    type.bFixedSizeSamples = FALSE;
    type.bTemporalCompression = FALSE;
    return type;
}

CMediaType WaveType(const GUID& subtype, const WAVEFORMATEX& format, GBytes extra)
{
    CMediaType type = AudioType(subtype);
    const std::span<BYTE> block = type.AllocFormat(FORMAT_WaveFormatEx, sizeof format + extra.size());
    std::memcpy(block.data(), &format, sizeof format);
    if (!extra.empty())
        std::memcpy(block.data() + sizeof format, extra.data(), extra.size());
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
    WAVEFORMATEX format = WaveFormatOf(track, kTagAac);
    if (!SetExtraSize(format, codecPrivate))
        return {};
    return {WaveType(SubtypeFromWaveTag(kTagAac), format, codecPrivate)};
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
    WAVEFORMATEX format = WaveFormatOf(track, kTagAac);
    std::array<std::uint8_t, 5> config{};
    const std::size_t length = MakeAacConfig(config, profile, format.nSamplesPerSec, format.nChannels);
    format.cbSize = static_cast<WORD>(length);
    const GBytes extra(config.data(), length);
    const GUID subtype = SubtypeFromWaveTag(kTagAac);
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
    WAVEFORMATEX format = WaveFormatOf(track, kTagFlac);
    if (!SetExtraSize(format, codecPrivate))
        return {};
    return {WaveType(MEDIASUBTYPE_FlacFramed, format, codecPrivate),
            WaveType(SubtypeFromWaveTag(kTagFlac), format, codecPrivate)};
}

// The private data are the format itself; an old PCM one lacks the last field, which then counts as 0.
std::vector<CMediaType> AcmTypes(const GMkvTrack&, GBytes codecPrivate)
{
    constexpr std::size_t kShortest = offsetof(WAVEFORMATEX, cbSize);
    if (codecPrivate.size() < kShortest)
        return {};
    const auto tag = static_cast<std::uint16_t>(codecPrivate[0] | codecPrivate[1] << 8);
    CMediaType type = AudioType(SubtypeFromWaveTag(tag));
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
    const DWORD code = MAKEFOURCC(id[7], id[8], id[9], id[10]);
    return {WaveType(SubtypeFromFourCC(code), WaveFormatOf(track, static_cast<WORD>(code)), codecPrivate)};
}

struct GVorbisFormat {
    std::uint16_t channels;
    std::uint32_t samplesPerSec;
    std::uint32_t minBitsPerSec;
    std::uint32_t avgBitsPerSec;
    std::uint32_t maxBitsPerSec;
    float quality;
};
static_assert(sizeof(GVorbisFormat) == 24);

struct GVorbisFormat2 {
    std::uint32_t channels;
    std::uint32_t samplesPerSec;
    std::uint32_t bitsPerSample;
    std::uint32_t headerSize[3];  // bytes; the headers follow
};
static_assert(sizeof(GVorbisFormat2) == 24);

std::vector<CMediaType> VorbisTypes(const GMkvTrack& track, GBytes codecPrivate)
{
    const WAVEFORMATEX wave = WaveFormatOf(track, 0);
    std::vector<CMediaType> types;
    const auto headers = SplitXiphPackets(codecPrivate);
    if (headers.size() == 3) {
        GVorbisFormat2 format{static_cast<std::uint32_t>(track.audio.channels.value),
                              wave.nSamplesPerSec,
                              static_cast<std::uint32_t>(track.audio.bitDepth.value),
                              {}};
        std::vector<std::uint8_t> block(sizeof format);
        for (std::size_t i = 0; i < headers.size(); ++i) {
            format.headerSize[i] = static_cast<std::uint32_t>(headers[i].size());
            block.insert(block.end(), headers[i].begin(), headers[i].end());
        }
        std::memcpy(block.data(), &format, sizeof format);
        types.push_back(AudioType(MEDIASUBTYPE_Vorbis2));
        types.back().SetFormat(FORMAT_VorbisFormat2, block);
    }
    constexpr std::uint32_t kUnknownRate = 0xFFFFFFFF;
    GVorbisFormat format{};
    format.channels = wave.nChannels;
    format.samplesPerSec = wave.nSamplesPerSec;
    format.minBitsPerSec = format.avgBitsPerSec = format.maxBitsPerSec = kUnknownRate;
    types.push_back(AudioType(MEDIASUBTYPE_Vorbis));
    std::memcpy(types.back().AllocFormat(FORMAT_VorbisFormat, sizeof format).data(), &format, sizeof format);
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
    {"A_MPEG/L3", false, 0x0055, nullptr},
    {"A_MPEG/L2", false, 0x0050, nullptr},
    {"A_AC3", false, 0x2000, nullptr},
    {"A_EAC3", false, 0x2000, nullptr},
    {"A_DTS", false, 0x2001, nullptr},
    {"A_PCM/INT/LIT", false, 0x0001, nullptr},
    {"A_PCM/FLOAT/IEEE", false, 0x0003, nullptr},
    {"A_TTA1", false, 0x77A1, nullptr},
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
