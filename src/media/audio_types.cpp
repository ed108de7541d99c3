#include "media/audio_types.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "io/byte_reader.h"
#include "media/codec_guids.h"
#include "media/format_headers.h"
#include "media/wave_tags.h"

namespace vex {

namespace {

static_assert(sizeof(GVorbisFormat) == 24);  // the block as it is

// The fixed part of the block with headers.
struct GVorbis2Block {
    std::uint32_t channels;
    std::uint32_t samplesPerSecond;
    std::uint32_t bitsPerSample;
    std::uint32_t headerSizes[3];  // bytes; the headers follow
};
static_assert(sizeof(GVorbis2Block) == 24);

// fwHeadFlags of MPEG1WAVEFORMAT.
constexpr unsigned kPrivateFlag = 1;
constexpr unsigned kCopyrightFlag = 2;
constexpr unsigned kOriginalFlag = 4;
constexpr unsigned kProtectionFlag = 8;
constexpr unsigned kMpeg1Flag = 16;

WORD Mpeg1Flags(const GMpegAudioHeader& header)
{
    const unsigned flags = (header.privateBit ? kPrivateFlag : 0u) | (header.copyright ? kCopyrightFlag : 0u) |
                           (header.original ? kOriginalFlag : 0u) | (header.protectionAbsent ? 0u : kProtectionFlag) |
                           (header.version == GMpegAudioHeader::kMpeg1 ? kMpeg1Flag : 0u);
    return static_cast<WORD>(flags);
}

}  // namespace

CMediaType MakeAudioType(REFGUID subtype, ULONG sampleSize)
{
    CMediaType type(MEDIATYPE_Audio, subtype);
    type.lSampleSize = sampleSize;
    type.bFixedSizeSamples = FALSE;
    type.bTemporalCompression = FALSE;
    return type;
}

CMediaType MakeWaveType(REFGUID subtype, const WAVEFORMATEX& format, GBytes extra)
{
    CMediaType type = MakeAudioType(subtype);
    const std::span<BYTE> block = type.AllocFormat(FORMAT_WaveFormatEx, sizeof format + extra.size());
    std::memcpy(block.data(), &format, sizeof format);
    if (!extra.empty())
        std::memcpy(block.data() + sizeof format, extra.data(), extra.size());
    return type;
}

CMediaType MakeWaveType(WAVEFORMATEX format, GBytes extra)
{
    extra = extra.first(std::min<std::size_t>(extra.size(), std::numeric_limits<WORD>::max()));
    format.cbSize = static_cast<WORD>(extra.size());
    return MakeWaveType(SubtypeFromWaveTag(format.wFormatTag), format, extra);
}

CMediaType MakeMpeg1WaveType(const WAVEFORMATEX& format, const GMpegAudioHeader& header)
{
    MPEG1WAVEFORMAT wave{};
    wave.wfx = format;
    wave.wfx.wFormatTag = wave_tag::kMpeg;
    wave.wfx.cbSize = sizeof wave - sizeof wave.wfx;
    wave.fwHeadLayer = static_cast<WORD>(1u << (header.layer - 1u));
    wave.dwHeadBitrate = header.bitRate * DWORD{1000};
    wave.fwHeadMode = static_cast<WORD>(1u << header.mode);
    wave.fwHeadModeExt = static_cast<WORD>(1u << header.modeExtension);
    wave.wHeadEmphasis = static_cast<WORD>(header.emphasis + 1u);
    wave.fwHeadFlags = Mpeg1Flags(header);
    CMediaType type = MakeAudioType(SubtypeFromWaveTag(wave_tag::kMpeg));
    std::memcpy(type.AllocFormat(FORMAT_WaveFormatEx, sizeof wave).data(), &wave, sizeof wave);
    return type;
}

CMediaType MakeVorbisType(const GVorbisFormat& format)
{
    CMediaType type = MakeAudioType(MEDIASUBTYPE_Vorbis);
    std::memcpy(type.AllocFormat(FORMAT_VorbisFormat, sizeof format).data(), &format, sizeof format);
    return type;
}

CMediaType MakeVorbis2Type(std::uint32_t channels, std::uint32_t samplesPerSecond, std::uint32_t bitsPerSample,
                           const GVorbisHeaders& headers)
{
    GVorbis2Block head{channels, samplesPerSecond, bitsPerSample, {}};
    std::size_t size = sizeof head;
    for (std::size_t i = 0; i < headers.size(); ++i) {
        head.headerSizes[i] = static_cast<std::uint32_t>(headers[i].size());
        size += headers[i].size();
    }
    CMediaType type = MakeAudioType(MEDIASUBTYPE_Vorbis2);
    std::span<BYTE> rest = type.AllocFormat(FORMAT_VorbisFormat2, size);
    std::memcpy(rest.data(), &head, sizeof head);
    rest = rest.subspan(sizeof head);
    for (const GBytes header : headers) {
        std::ranges::copy(header, rest.begin());
        rest = rest.subspan(header.size());
    }
    return type;
}

GVorbisHeaders VorbisHeaders(const CMediaType& type)
{
    if (type.formattype != FORMAT_VorbisFormat2)
        return {};
    GByteReader reader(type.Format());
    reader.Skip(offsetof(GVorbis2Block, headerSizes));
    std::array<std::uint32_t, 3> sizes{};
    for (std::uint32_t& size : sizes)
        size = reader.U32LE();
    GVorbisHeaders headers;
    for (std::size_t i = 0; i < headers.size(); ++i)
        headers[i] = reader.Bytes(sizes[i]);
    return reader.Ok() ? headers : GVorbisHeaders();
}

GBytes WaveExtra(const CMediaType& type)
{
    return type.formattype == FORMAT_WaveFormatEx ? ReadWaveFormat(type.Format()).extra : GBytes();
}

}  // namespace vex
