#include "formats/mpeg/mpeg_audio_streams.h"

#include <algorithm>
#include <array>
#include <limits>

#include "media/aac_config.h"
#include "media/audio_types.h"
#include "media/wave_tags.h"
#include "platform/guids.h"

namespace vex {
namespace {

// Sub-streams from here on have a header of four bytes: number, frames, and where the first one begins.
constexpr std::uint8_t kFirstAudioSubStream = 0x80;
constexpr std::size_t kSubStreamHeader = 4;

std::size_t SubStreamHeader(std::uint8_t subStream) { return subStream >= kFirstAudioSubStream ? kSubStreamHeader : 0; }

WAVEFORMATEX MakeWave(std::uint16_t tag, std::uint32_t channels, std::uint32_t rate, std::uint64_t bytesPerSecond)
{
    constexpr std::uint64_t kMost = std::numeric_limits<DWORD>::max();
    WAVEFORMATEX wave{};
    wave.wFormatTag = tag;
    wave.nChannels = static_cast<WORD>(channels);
    wave.nSamplesPerSec = rate;
    wave.nAvgBytesPerSec = static_cast<DWORD>(std::min(bytesPerSecond, kMost));
    return wave;
}

// The first frame of a codec in a payload, at a place that `trust` asks for. `read` gives the header at a place, `size`
// the bytes of its frame.
template <class Read, class Size>
auto FindFrame(GBytes payload, std::uint8_t firstByte, GMpegTrust trust, Read&& read, Size&& size)
    -> std::pair<decltype(read(payload)), std::size_t>
{
    for (std::size_t at = 0; at < payload.size(); ++at) {
        if (payload[at] != firstByte)
            continue;
        const auto header = read(payload.subspan(at));
        if (!header)
            continue;
        const std::size_t frame = size(*header);
        const bool inside = frame > 0 && frame < payload.size() - at;
        const bool followed = inside && read(payload.subspan(at + frame)).has_value();
        const bool begins = at == 0 && (followed || !inside || payload.size() - at - frame < kAdtsHeaderSize);
        if (trust == GMpegTrust::Anywhere || followed || (trust == GMpegTrust::Confirmed && begins))
            return {header, at};
    }
    return {std::nullopt, 0};
}

std::optional<GAc3Header> ReadAc3(GBytes bytes)
{
    constexpr std::uint8_t kFirstOtherId = 12;  // another syntax
    constexpr std::uint8_t kReservedRate = 3;
    constexpr std::uint8_t kFrameSizeCodes = 38;
    const auto header = ReadAc3Header(bytes);
    const bool sound = header && header->bsid < kFirstOtherId && header->fscod != kReservedRate &&
                       header->frmsizecod < kFrameSizeCodes;
    return sound ? header : std::nullopt;
}

std::optional<GAdtsHeader> ReadAdts(GBytes bytes)
{
    constexpr std::uint8_t kRates = 13;
    const auto header = ReadAdtsHeader(bytes);
    return header && header->rateIndex < kRates && header->frameLength >= kAdtsHeaderSize ? header : std::nullopt;
}

std::optional<GMpegAudioHeader> ReadMpegAudio(GBytes bytes)
{
    const auto header = ReadMpegAudioHeader(bytes);
    const bool sound = header && header->version != GMpegAudioHeader::kReserved && header->layer <= 3 &&
                       header->bitRateIndex < 15 && header->rateIndex < 3 && header->emphasis != 2;
    return sound ? header : std::nullopt;
}

}  // namespace

GMpegParse GMpeg2AC3Stream::Parse(GBytes payload, GMpegTrust trust)
{
    if (FindBytes(payload, kDtsSync) != kNotFound)
        return {};
    // Where any place counts the first sync word decides: E-AC-3 has the same one, and its data have more by chance.
    const std::size_t first = FindBytes(payload, kAc3Sync);
    if (trust == GMpegTrust::Anywhere && (first == kNotFound || !ReadAc3(payload.subspan(first))))
        return {};
    const auto [header, at] =
        FindFrame(payload, kAc3Sync[0], trust, ReadAc3, [](const GAc3Header& found) { return found.FrameSize(); });
    if (!header)
        return {};
    return {.stream = std::make_unique<GMpeg2AC3Stream>(*header)};
}

std::vector<CMediaType> GMpeg2AC3Stream::MediaTypes() const
{
    constexpr std::uint8_t kFullRateId = 8;
    const unsigned shift = header.bsid > kFullRateId ? header.bsid - kFullRateId : 0u;
    const WAVEFORMATEX wave = MakeWave(wave_tag::kAc3, header.Channels(), header.SampleRate() >> shift,
                                       std::uint64_t{header.BitRate()} * 1000 / 8);
    return {MakeWaveType(MEDIASUBTYPE_DOLBY_AC3, wave)};
}

std::size_t GMpeg2AC3Stream::HeaderBytes(std::uint8_t subStream) const { return SubStreamHeader(subStream); }

GMpegParse GMpeg2DTSStream::Parse(GBytes payload)
{
    constexpr std::uint8_t kFirstUserMode = 16;
    const std::size_t at = FindBytes(payload, kDtsSync);
    const auto header = at == kNotFound ? std::nullopt : ReadDtsHeader(payload.subspan(at));
    if (!header)
        return {.stream = nullptr, .cut = at != kNotFound};
    if (header->amode >= kFirstUserMode)
        return {};
    return {.stream = std::make_unique<GMpeg2DTSStream>(*header)};
}

// The average is 1000 times the bit rate, in bytes: decoders of this type expect it.
std::vector<CMediaType> GMpeg2DTSStream::MediaTypes() const
{
    const WAVEFORMATEX wave =
        MakeWave(wave_tag::kDts, header.Channels(), header.SampleRate(), std::uint64_t{header.BitRate()} * 1000 / 8);
    return {MakeWaveType(MEDIASUBTYPE_DTS, wave)};
}

std::size_t GMpeg2DTSStream::HeaderBytes(std::uint8_t subStream) const { return SubStreamHeader(subStream); }

GMpeg2AACStream::GMpeg2AACStream(const GAdtsHeader& found, GBytes payload)
    : GMpeg2ReadStream(GMpeg2Kind::Aac), header(found)
{
    configuration.assign(payload.begin(), payload.end());
}

GMpegParse GMpeg2AACStream::Parse(GBytes payload, GMpegTrust trust)
{
    const auto [header, at] = FindFrame(payload, 0xFF, trust, ReadAdts,
                                        [](const GAdtsHeader& found) { return std::size_t{found.frameLength}; });
    if (!header)
        return {};
    return {.stream = std::make_unique<GMpeg2AACStream>(*header, payload.subspan(at))};
}

std::vector<CMediaType> GMpeg2AACStream::MediaTypes() const
{
    constexpr std::uint32_t kSamplesTimesTwo = 2048;
    const std::uint8_t coded = header.channelConfiguration;
    const std::uint32_t channels = coded == 0 || coded > 6 ? 2 : coded;
    std::array<std::uint8_t, 5> extra{};
    MakeAacConfig(extra, header.profile, header.sampleRate, channels);
    const std::uint64_t bytesPerSecond = std::uint64_t{header.sampleRate} * header.frameLength / kSamplesTimesTwo;
    return {MakeWaveType(MakeWave(wave_tag::kAac, channels, header.sampleRate, bytesPerSecond), extra)};
}

GMpegParse GMpeg2AUDIOStream::Parse(GBytes payload, GMpegTrust trust)
{
    const auto [header, at] = FindFrame(payload, 0xFF, trust, ReadMpegAudio,
                                        [](const GMpegAudioHeader& found) { return std::size_t{found.FrameSize()}; });
    if (!header)
        return {};
    return {.stream = std::make_unique<GMpeg2AUDIOStream>(*header)};
}

std::vector<CMediaType> GMpeg2AUDIOStream::MediaTypes() const
{
    const std::uint16_t tag = header.layer == 3 ? wave_tag::kMp3 : wave_tag::kMpeg;
    WAVEFORMATEX wave = MakeWave(tag, header.Channels(), header.sampleRate, std::uint64_t{header.bitRate} * 1000 / 8);
    // As if of MPEG-1, in layer III too.
    wave.nBlockAlign =
        static_cast<WORD>(MpegAudioFrameSize(header.layer, false, header.bitRate, header.sampleRate, header.padding));
    if (header.layer == 3)
        return {MakeWaveType(wave)};
    return {MakeMpeg1WaveType(wave, header)};
}

GMpegParse GMpeg2LPCMStream::Parse(GBytes payload)
{
    constexpr std::uint8_t kFirst = 0xA0;
    constexpr std::uint8_t kLast = 0xA8;
    const auto header = ReadLpcmHeader(payload);
    if (!header || header->subStream < kFirst || header->subStream > kLast || header->BitsPerSample() == 0 ||
        header->SampleRate() == 0)
        return {};
    return {.stream = std::make_unique<GMpeg2LPCMStream>(*header)};
}

std::vector<CMediaType> GMpeg2LPCMStream::MediaTypes() const
{
    const std::uint32_t bits = std::uint32_t{header.BitsPerSample()} * header.channels;
    WAVEFORMATEX wave =
        MakeWave(wave_tag::kPcm, header.channels, header.SampleRate(), std::uint64_t{bits} * header.SampleRate() / 8);
    wave.nBlockAlign = static_cast<WORD>(bits / 8);
    wave.wBitsPerSample = header.BitsPerSample();
    return {MakeWaveType(MEDIASUBTYPE_DVD_LPCM_AUDIO, wave)};
}

}  // namespace vex
