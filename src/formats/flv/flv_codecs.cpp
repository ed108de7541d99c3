#include "formats/flv/flv_codecs.h"

#include <algorithm>
#include <array>
#include <string>

#include "io/byte_reader.h"
#include "io/fourcc.h"
#include "media/aac_config.h"
#include "media/audio_types.h"
#include "media/avc_record.h"
#include "media/codec_guids.h"
#include "media/h264_parameters.h"
#include "media/video_types.h"
#include "media/wave_tags.h"

namespace vex {
namespace {

constexpr std::size_t kKinds = 16;  // of four bits

struct GSoundRow {
    const char* name;
    std::uint16_t tag;      // 0: no media type
    std::uint32_t subtype;  // first 32 bits of the GUID
    std::uint32_t rate;     // Hz; 0: as the payload says
    std::uint16_t channels;
};

constexpr std::uint32_t kAdpcmSubtype = FourCC("ASWF");
constexpr std::uint32_t kNellymoserSubtype = FourCC("NELL");
constexpr std::uint32_t kAacRate = 44'100;  // unless its configuration says otherwise

// By SoundFormat.
constexpr std::array<GSoundRow, kKinds> kSounds{{
    {"PCM", wave_tag::kPcm, wave_tag::kPcm, 0, 0},
    {"ADPCM", wave_tag::kAdpcm, kAdpcmSubtype, 0, 0},
    {"MP3", wave_tag::kMp3, wave_tag::kMp3, 0, 0},
    {"little-endian PCM", 0, 0, 0, 0},
    {"Nellymoser 16 kHz", wave_tag::kNellymoser16kHz, kNellymoserSubtype, 16'000, 1},
    {"Nellymoser 8 kHz", wave_tag::kNellymoser8kHz, kNellymoserSubtype, 8'000, 1},
    {"Nellymoser", wave_tag::kNellymoser, kNellymoserSubtype, 0, 0},
    {"A-law", 0, 0, 0, 0},
    {"mu-law", 0, 0, 0, 0},
    {"format 9", 0, 0, 0, 0},
    {"AAC", wave_tag::kAac, wave_tag::kAac, kAacRate, 2},
    {"Speex", 0, 0, 0, 0},
    {"format 12", 0, 0, 0, 0},
    {"format 13", 0, 0, 0, 0},
    {"MP3 8 kHz", 0, 0, 0, 0},
    {"device-specific", 0, 0, 0, 0},
}};

// By CodecID; empty for those that have a media type. No codec has the number 0, which here is the extended tag header.
constexpr std::array<const char*, kKinds> kCodecNames{
    "FourCC-coded", "JPEG",    "",         "Screen 1", "",         "",         "Screen 2", "",
    "codec 8",      "codec 9", "codec 10", "codec 11", "codec 12", "codec 13", "codec 14", "codec 15"};

constexpr std::array<std::uint32_t, 4> kRates{5'512, 11'025, 22'050, 44'100};  // Hz

constexpr std::uint8_t kFrameTypeKey = 1;
constexpr std::uint8_t kExtendedHeader = 0x80;  // the codec is a FourCC behind the first byte
constexpr std::size_t kAvcHeaderSize = 5;       // bytes before the configuration record
constexpr WORD kBitCount = 24;

constexpr std::uint32_t kSorensonFourCC = FourCC("FLV1");
constexpr std::uint32_t kVp6FourCC = FourCC("FLV4");
constexpr std::uint32_t kAvcFourCC = FourCC("AVC1");

const GSoundRow* FindSound(std::uint16_t tag)
{
    const auto* row = std::ranges::find(kSounds, tag, &GSoundRow::tag);
    return row == kSounds.end() ? nullptr : row;
}

// Keeps 2 bytes of the configuration, whatever its length.
bool ReadAac(GByteReader reader, GFlvAudioFormat& format)
{
    const std::uint8_t packetType = reader.U8();
    const std::uint8_t first = reader.U8();
    const std::uint8_t second = reader.U8();
    if (!reader.Ok() || packetType != kFlvSequenceHeader)
        return false;
    format.extra = {first, second};
    format.wave.wBitsPerSample = 16;
    const std::uint32_t rate = AacSampleRate((first & 7u) << 1 | second >> 7);
    if (rate != 0)
        format.wave.nSamplesPerSec = rate;
    return true;
}

std::optional<GPictureSize> Vp6Size(GBytes payload, std::size_t skipped)
{
    if (payload.size() < skipped)
        return std::nullopt;
    const auto header = ReadVp6Header(payload.subspan(skipped));
    if (!header || !header->keyFrame)
        return std::nullopt;
    return header->CodedSize();
}

std::optional<GFlvVideoFormat> ReadAvc(GBytes payload)
{
    if (payload.size() < kAvcHeaderSize || payload[1] != kFlvSequenceHeader)
        return std::nullopt;
    const GBytes configuration = payload.subspan(kAvcHeaderSize);
    const auto record = ReadAvcRecord(configuration);
    if (!record || record->sequenceSets.empty())
        return std::nullopt;
    GH264Parameters parameters;
    ReadAvcConfiguration(configuration, parameters);
    return GFlvVideoFormat{.fourCC = kAvcFourCC,
                           .size = {parameters.width, parameters.height},
                           .nalLengthSize = record->lengthSize,
                           .profile = record->profile,
                           .level = record->level,
                           .parameterSets = AvcSequenceHeader(record->sequenceSets, record->pictureSets)};
}

}  // namespace

CMediaType GFlvAudioFormat::MediaType() const
{
    const GSoundRow* row = FindSound(wave.wFormatTag);
    return MakeWaveType(SubtypeFromFourCC(row ? row->subtype : wave.wFormatTag), wave, extra);
}

CMediaType GFlvVideoFormat::MediaType() const
{
    const GUID subtype = SubtypeFromFourCC(fourCC);
    const auto width = static_cast<LONG>(size.width);
    const auto height = static_cast<LONG>(size.height);
    if (fourCC != kAvcFourCC) {
        VIDEOINFOHEADER info{};
        info.bmiHeader = MakeBitmapHeader(width, height, kBitCount, fourCC);
        return MakeVideoInfoType(subtype, info, {});
    }
    MPEG2VIDEOINFO info{};
    info.hdr.rcSource = info.hdr.rcTarget = {0, 0, width, height};
    info.hdr.bmiHeader = MakeBitmapHeader(width, height, kBitCount, fourCC);
    info.dwProfile = profile;
    info.dwLevel = level;
    info.dwFlags = nalLengthSize;
    return MakeMpeg2VideoType(subtype, info, parameterSets);
}

std::optional<GFlvAudioFormat> ReadFlvAudioFormat(GBytes payload)
{
    GByteReader reader(payload);
    const std::uint8_t first = reader.U8();
    const GSoundRow& row = kSounds[FlvSoundFormat(first)];
    if (!reader.Ok() || row.tag == 0)
        return std::nullopt;
    GFlvAudioFormat format;
    WAVEFORMATEX& wave = format.wave;
    wave.wFormatTag = row.tag;
    wave.nSamplesPerSec = row.rate != 0 ? row.rate : kRates[first >> 2 & 3];
    wave.wBitsPerSample = (first & 2) != 0 ? 16 : 8;
    wave.nChannels = row.channels != 0 ? row.channels : static_cast<WORD>((first & 1) + 1);
    if (row.tag == wave_tag::kAac && !ReadAac(reader, format))
        return std::nullopt;
    if (row.tag == wave_tag::kPcm) {
        wave.nBlockAlign = static_cast<WORD>(wave.nChannels * wave.wBitsPerSample / 8);
        wave.nAvgBytesPerSec = wave.nSamplesPerSec * wave.nBlockAlign;
    }
    wave.cbSize = static_cast<WORD>(format.extra.size());
    return format;
}

std::optional<GFlvVideoFormat> ReadFlvVideoFormat(GBytes payload)
{
    if (payload.empty() || FlvFrameType(payload[0]) != kFrameTypeKey)
        return std::nullopt;
    std::optional<GPictureSize> size;
    std::uint32_t fourCC = kVp6FourCC;
    switch (FlvCodecId(payload[0])) {
    case flv_codec::kAvc:
        return ReadAvc(payload);
    case flv_codec::kSorenson:
        fourCC = kSorensonFourCC;
        if (const GSorensonHeader header = ReadSorensonHeader(payload.subspan(1)); header.startCode && header.whole)
            size = header.size;
        break;
    case flv_codec::kVp6:
        size = Vp6Size(payload, 2);
        break;
    case flv_codec::kVp6Alpha:
        size = Vp6Size(payload, 5);
        break;
    default:
        break;
    }
    if (!size)
        return std::nullopt;
    return GFlvVideoFormat{.fourCC = fourCC, .size = *size};
}

void GFlvUnsupported::SeeAudio(std::uint8_t first)
{
    if (sound == kNone && kSounds[FlvSoundFormat(first)].tag == 0)
        sound = FlvSoundFormat(first);
}

void GFlvUnsupported::SeeVideo(std::uint8_t first)
{
    const std::uint8_t id = (first & kExtendedHeader) != 0 ? std::uint8_t{0} : FlvCodecId(first);
    if (codec == kNone && *kCodecNames[id] != '\0')
        codec = id;
}

std::string GFlvUnsupported::Kinds() const { return Kinds(sound, codec); }

std::string GFlvUnsupported::Kinds(std::size_t soundKind, std::size_t codecKind)
{
    const std::string audio = soundKind == kNone ? "" : std::string(kSounds[soundKind].name) + " audio";
    const std::string video = codecKind == kNone ? "" : std::string(kCodecNames[codecKind]) + " video";
    return audio + (audio.empty() || video.empty() ? "" : " and ") + video;
}

// An error's text is static, so each pair has one.
const char* GFlvUnsupported::Reason() const
{
    static_assert(kNone == kKinds);
    using GTexts = std::array<std::array<std::string, kKinds + 1>, kKinds + 1>;
    static const GTexts texts = [] {
        GTexts made;
        for (std::size_t s = 0; s <= kKinds; ++s) {
            for (std::size_t c = 0; c <= kKinds; ++c)
                made[s][c] = "no stream can be played: the file has " + Kinds(s, c);
        }
        return made;
    }();
    return texts[sound][codec].c_str();
}

}  // namespace vex
