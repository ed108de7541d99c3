// AAC frames behind ADTS headers (ISO/IEC 13818-7, 6.2).
#include <array>

#include "media/aac_config.h"
#include "media/adts_header.h"
#include "media/audio_types.h"
#include "tools/vex/framers.h"

namespace vex {

namespace {

constexpr std::size_t kMostFrameBytes = (1u << 13) - 1;  // the header's length field, header included

class GAdtsFramer final : public GFramer {
public:
    GAdtsFramer(unsigned audioProfile, unsigned samplingIndex, unsigned channelConfiguration)
        : profile(audioProfile), frequency(samplingIndex), channels(channelConfiguration)
    {
    }

    void Describe(const GJson& properties) override
    {
        byteStream = properties.value("byte_stream", false);
        crcBytes = properties.value("crc", false) ? 2 : 0;
        channels = properties.value("channel_configuration", channels);
    }

    // The CRC of a source counts its headers too, so it is left out.
    void Sample(const GSampleView& sample, const GByteSink& out) override
    {
        if (byteStream) {
            out(sample.data);
            return;
        }
        const std::size_t length = sample.data.size() - crcBytes + kAdtsHeaderSize;
        if (sample.data.size() < crcBytes || length > kMostFrameBytes) {
            ++misshapen;
            return;
        }
        const std::array<std::uint8_t, kAdtsHeaderSize> header{
            0xFF,
            0xF1,
            static_cast<std::uint8_t>(profile << 6 | frequency << 2 | channels >> 2),
            static_cast<std::uint8_t>((channels & 3) << 6 | length >> 11),
            static_cast<std::uint8_t>(length >> 3 & 0xFF),
            static_cast<std::uint8_t>((length & 7) << 5 | 0x1F),
            0xFC};
        out(header);
        out(sample.data.subspan(crcBytes));
    }

private:
    const unsigned profile;    // audio object type less one
    const unsigned frequency;  // index of the core's sampling frequency
    unsigned channels;
    std::size_t crcBytes = 0;  // at the start of every sample
    bool byteStream = false;   // the samples have their headers
};

}  // namespace

std::unique_ptr<GFramer> MakeAdtsFramer(const CMediaType& type)
{
    const auto config = ReadAacConfig(WaveExtra(type));
    // Two bits for the type, no room for a frequency in Hz, and channel configuration 0 would need its own element.
    if (!config || config->objectType < 1 || config->objectType > 4 || AacSampleRate(config->rateIndex) == 0 ||
        config->channelConfiguration < 1 || config->channelConfiguration > 7)
        return nullptr;
    return std::make_unique<GAdtsFramer>(config->objectType - 1u, config->rateIndex, config->channelConfiguration);
}

}  // namespace vex
