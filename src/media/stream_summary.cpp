#include "media/stream_summary.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>

#include "io/bytes.h"
#include "media/codec_guids.h"
#include "media/codec_tags.h"
#include "media/media_type_text.h"
#include "platform/guids.h"

namespace vex {

namespace {

struct GCodecWord {
    std::string_view subtype;  // as SubtypeName gives it, upper case
    std::string_view words;
};

// FourCCs in upper case, and the names of subtypes that have no FourCC.
constexpr GCodecWord kCodecs[] = {
    {"H264", "H.264"},
    {"X264", "H.264"},
    {"AVC1", "H.264"},
    {"DAVC", "H.264"},
    {"HEVC", "H.265"},
    {"HVC1", "H.265"},
    {"XVID", "MPEG-4 Visual"},
    {"DIVX", "MPEG-4 Visual"},
    {"DX50", "MPEG-4 Visual"},
    {"FMP4", "MPEG-4 Visual"},
    {"MP4V", "MPEG-4 Visual"},
    {"MP4S", "MPEG-4 Visual"},
    {"M4S2", "MPEG-4 Visual"},
    {"3IV2", "MPEG-4 Visual"},
    {"RMP4", "MPEG-4 Visual"},
    {"DIV3", "MS MPEG-4 v3"},
    {"DIV4", "MS MPEG-4 v3"},
    {"DIV5", "MS MPEG-4 v3"},
    {"DIV6", "MS MPEG-4 v3"},
    {"MP43", "MS MPEG-4 v3"},
    {"MP42", "MS MPEG-4 v2"},
    {"DIV2", "MS MPEG-4 v2"},
    {"MP41", "MS MPEG-4 v1"},
    {"MPG4", "MS MPEG-4 v1"},
    {"WMV1", "WMV 7"},
    {"WMV2", "WMV 8"},
    {"WMV3", "WMV 9"},
    {"WVC1", "VC-1"},
    {"WMVA", "VC-1"},
    {"MPEG2_VIDEO", "MPEG-2 video"},
    {"MPEG1PAYLOAD", "MPEG-1 video"},
    {"MPG2", "MPEG-2 video"},
    {"MPG1", "MPEG-1 video"},
    {"THEO", "Theora"},
    {"VP80", "VP8"},
    {"VP90", "VP9"},
    {"AV01", "AV1"},
    {"FLV1", "Sorenson H.263"},
    {"FLV4", "VP6"},
    {"VP60", "VP6"},
    {"VP61", "VP6"},
    {"VP62", "VP6"},
    {"VP6F", "VP6"},
    {"H263", "H.263"},
    {"S263", "H.263"},
    {"H261", "H.261"},
    {"MJPG", "Motion JPEG"},
    {"JPEG", "JPEG"},
    {"MJPA", "Motion JPEG"},
    {"DVSD", "DV"},
    {"DVC ", "DV"},
    {"CVID", "Cinepak"},
    {"MSVC", "MS Video 1"},
    {"CRAM", "MS Video 1"},
    {"MRLE", "MS RLE"},
    {"IV31", "Indeo 3"},
    {"IV32", "Indeo 3"},
    {"IV41", "Indeo 4"},
    {"IV50", "Indeo 5"},
    {"SVQ1", "Sorenson Video 1"},
    {"SVQ3", "Sorenson Video 3"},
    {"RPZA", "Apple Video"},
    {"RLE ", "QuickTime RLE"},
    {"RV10", "RealVideo 1"},
    {"RV20", "RealVideo G2"},
    {"RV30", "RealVideo 8"},
    {"RV40", "RealVideo 9"},
    {"HFYU", "Huffyuv"},
    {"FFVH", "Huffyuv"},
    {"FFV1", "FFV1"},
    {"AC3", "AC-3"},
    {"DOLBY_AC3", "AC-3"},
    {"EAC3", "E-AC-3"},
    {"DOLBY_DDPLUS", "E-AC-3"},
    {"DVD_LPCM_AUDIO", "DVD LPCM"},
    {"MPEG", "MPEG audio"},
    {"MPEG2_AUDIO", "MPEG audio"},
    {"G723", "G.723.1"},
    {"IEEE_FLOAT", "PCM float"},
    {"ALAW", "A-law"},
    {"MULAW", "mu-law"},
    {"ADPCM", "MS ADPCM"},
    {"IMA_ADPCM", "IMA ADPCM"},
    {"IMA4", "IMA ADPCM"},
    {"ASWF", "Flash ADPCM"},
    {"NELL", "Nellymoser"},
    {"GSM610", "GSM 6.10"},
    {"QDM2", "QDesign 2"},
    {"TTA1", "TTA"},
    {"WMA1", "WMA 1"},
    {"WMA2", "WMA 2"},
    {"WMA3", "WMA Pro"},
    {"WMA_LOSSLESS", "WMA Lossless"},
    {"VORBIS", "Vorbis"},
    {"VORBIS2", "Vorbis"},
    {"FLACFRAMED", "FLAC"},
    {"UTF8", "text"},
    {"VOBSUB", "VobSub"},
};

std::string CodecWords(const AM_MEDIA_TYPE& type)
{
    const std::string name = SubtypeName(type.subtype);
    std::string upper = name;
    std::ranges::transform(upper, upper.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    const auto* row = std::ranges::find(kCodecs, upper, &GCodecWord::subtype);
    return row != std::end(kCodecs) ? std::string(row->words) : name;
}

// A record out of the start of a format block; nothing when the block is shorter.
template <class Record>
std::optional<Record> FormatAs(const AM_MEDIA_TYPE& type)
{
    Record record{};
    if (!type.pbFormat || type.cbFormat < sizeof record)
        return std::nullopt;
    std::memcpy(&record, type.pbFormat, sizeof record);
    return record;
}

struct GNumberWord {
    DWORD number;
    std::string_view word;
};

template <std::size_t N>
std::string_view WordOf(const GNumberWord (&table)[N], DWORD number)
{
    const auto* row = std::ranges::find(table, number, &GNumberWord::number);
    return row != std::end(table) ? row->word : std::string_view{};
}

// profile_idc of ISO/IEC 14496-10.
constexpr GNumberWord kAvcProfiles[] = {
    {66, "Baseline"}, {77, "Main"},        {88, "Extended"},    {100, "High"},
    {110, "High 10"}, {122, "High 4:2:2"}, {244, "High 4:4:4"}, {44, "CAVLC 4:4:4"},
};
// As the platform numbers those of ISO/IEC 13818-2.
constexpr GNumberWord kMpeg2Profiles[] = {{1, "Simple"}, {2, "Main"}, {3, "SNR"}, {4, "Spatial"}, {5, "High"}};
constexpr GNumberWord kMpeg2Levels[] = {{1, "Low"}, {2, "Main"}, {3, "High 1440"}, {4, "High"}};
// Audio object types of ISO/IEC 14496-3.
constexpr GNumberWord kAacTypes[] = {{1, "Main"}, {2, "LC"}, {3, "SSR"}, {4, "LTP"}, {5, "HE"}, {29, "HE v2"}};

std::string AtLevel(std::string_view profile, std::string level)
{
    return profile.empty() || level.empty() ? std::string(profile) : std::string(profile) + "@" + level;
}

std::string VideoProfile(const AM_MEDIA_TYPE& type, std::string_view codec)
{
    const auto info = type.formattype == FORMAT_MPEG2Video ? FormatAs<MPEG2VIDEOINFO>(type) : std::nullopt;
    if (!info)
        return {};
    if (codec == "H.264" && info->dwLevel != 0) {
        char level[16];
        std::snprintf(level, sizeof level, "%u.%u", static_cast<unsigned>(info->dwLevel / 10),
                      static_cast<unsigned>(info->dwLevel % 10));
        return AtLevel(WordOf(kAvcProfiles, info->dwProfile), level);
    }
    if (codec == "MPEG-2 video")
        return AtLevel(WordOf(kMpeg2Profiles, info->dwProfile), std::string(WordOf(kMpeg2Levels, info->dwLevel)));
    return {};
}

static_assert(offsetof(VIDEOINFOHEADER, AvgTimePerFrame) == offsetof(VIDEOINFOHEADER2, AvgTimePerFrame));

void SummariseVideo(const AM_MEDIA_TYPE& type, GStreamSummary& summary)
{
    BITMAPINFOHEADER bitmap{};
    const auto header = FormatAs<VIDEOINFOHEADER>(type);
    if (!header || !GetBitmapHeader(&type, &bitmap))
        return;
    const auto magnitude = [](LONG value) {
        return static_cast<std::uint32_t>(value < 0 ? -std::int64_t{value} : std::int64_t{value});
    };
    summary.width = magnitude(bitmap.biWidth);
    summary.height = magnitude(bitmap.biHeight);
    summary.bitRate = header->dwBitRate;
    if (header->AvgTimePerFrame > 0)
        summary.frameRate = 1e7 / static_cast<double>(header->AvgTimePerFrame);
    summary.profile = VideoProfile(type, summary.codec);
}

// A wave format's byte rate; 0 where a writer filled it in as if the codec were PCM.
std::uint64_t WaveBitRate(const WAVEFORMATEX& wave, bool pcm)
{
    const bool asPcm = wave.nAvgBytesPerSec == std::uint64_t{wave.nBlockAlign} * wave.nSamplesPerSec;
    return asPcm && !pcm ? 0 : std::uint64_t{wave.nAvgBytesPerSec} * 8;
}

void SummariseAudio(const AM_MEDIA_TYPE& type, GStreamSummary& summary)
{
    if (type.formattype != FORMAT_WaveFormatEx) {
        for (const GProperty& field : FormatFields(type)) {
            const auto number = static_cast<std::uint32_t>(std::strtoul(field.value.c_str(), nullptr, 10));
            if (field.name == "channels")
                summary.channels = number;
            else if (field.name == "sample_rate")
                summary.sampleRate = number;
        }
        return;
    }
    const auto wave = FormatAs<WAVEFORMATEX>(type);
    if (!wave)
        return;
    summary.channels = wave->nChannels;
    summary.sampleRate = wave->nSamplesPerSec;
    summary.bitRate = WaveBitRate(*wave, summary.codec == "PCM" || summary.codec == "PCM float");
    if (summary.codec == "AAC" && wave->cbSize > 0 && type.cbFormat > sizeof(WAVEFORMATEX))
        summary.profile = WordOf(kAacTypes, type.pbFormat[sizeof(WAVEFORMATEX)] >> 3);
    if (summary.codec == "PCM" && wave->wBitsPerSample > 0)
        summary.profile = std::to_string(wave->wBitsPerSample) + " bit";
}

// At most `decimals` of them, without zeros at the end.
std::string Number(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    std::string number = text;
    while (number.find('.') != std::string::npos && (number.back() == '0' || number.back() == '.')) {
        const bool point = number.back() == '.';
        number.pop_back();
        if (point)
            break;
    }
    return number;
}

std::string BitRateText(std::uint64_t bits)
{
    char text[32];
    if (bits >= 1'000'000)
        std::snprintf(text, sizeof text, "%.1f Mb/s", static_cast<double>(bits) / 1e6);
    else
        std::snprintf(text, sizeof text, "%.0f kb/s", static_cast<double>(bits) / 1e3);
    return text;
}

std::string ChannelText(std::uint32_t channels)
{
    if (channels == 1)
        return "mono";
    return channels == 2 ? "stereo" : std::to_string(channels) + " channels";
}

}  // namespace

GStreamSummary SummariseStream(const AM_MEDIA_TYPE& type)
{
    GStreamSummary summary;
    summary.kind = MajorTypeName(type.majortype);
    if (summary.kind.starts_with('{'))
        summary.kind = "other";
    summary.codec = CodecWords(type);
    if (type.majortype == MEDIATYPE_Video)
        SummariseVideo(type, summary);
    else if (type.majortype == MEDIATYPE_Audio)
        SummariseAudio(type, summary);
    return summary;
}

std::string SummaryText(const GStreamSummary& summary)
{
    std::string text = summary.codec;
    if (!summary.profile.empty())
        text += " " + summary.profile;
    if (summary.width != 0 && summary.height != 0)
        text += ", " + std::to_string(summary.width) + "x" + std::to_string(summary.height);
    if (summary.frameRate > 0)
        text += ", " + Number(summary.frameRate, 3) + " fps";
    if (summary.sampleRate != 0)
        text += ", " + Number(summary.sampleRate / 1000.0, 3) + " kHz";
    if (summary.channels != 0)
        text += ", " + ChannelText(summary.channels);
    if (summary.bitRate != 0)
        text += ", " + BitRateText(summary.bitRate);
    return text;
}

}  // namespace vex
