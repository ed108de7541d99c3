// AAC frames behind ADTS headers (ISO/IEC 13818-7, 6.2).
#include <array>

#include "io/bit_reader.h"
#include "platform/guids.h"
#include "platform/media_records.h"
#include "tools/vex/framers.h"

namespace vex {

namespace {

constexpr std::size_t kHeaderBytes = 7;
constexpr std::size_t kMostFrameBytes = (1u << 13) - 1;  // the header's length field, header included

class GAdtsFramer final : public GFramer {
public:
    GAdtsFramer(unsigned audioProfile, unsigned samplingIndex, unsigned channelConfiguration)
        : profile(audioProfile), frequency(samplingIndex), channels(channelConfiguration)
    {
    }

    void Sample(const GSampleView& sample, const GByteSink& out) override
    {
        const std::size_t length = sample.data.size() + kHeaderBytes;
        if (length > kMostFrameBytes) {
            ++misshapen;
            return;
        }
        const std::array<std::uint8_t, kHeaderBytes> header{
            0xFF,
            0xF1,
            static_cast<std::uint8_t>(profile << 6 | frequency << 2 | channels >> 2),
            static_cast<std::uint8_t>((channels & 3) << 6 | length >> 11),
            static_cast<std::uint8_t>(length >> 3 & 0xFF),
            static_cast<std::uint8_t>((length & 7) << 5 | 0x1F),
            0xFC};
        out(header);
        out(sample.data);
    }

private:
    const unsigned profile;    // audio object type less one
    const unsigned frequency;  // index of the core's sampling frequency
    const unsigned channels;
};

}  // namespace

std::unique_ptr<GFramer> MakeAdtsFramer(const CMediaType& type)
{
    const std::span<const BYTE> block = type.Format();
    if (type.formattype != FORMAT_WaveFormatEx || block.size() < sizeof(WAVEFORMATEX) + 2)
        return nullptr;
    GBitReader bits(block.subspan(sizeof(WAVEFORMATEX)));
    unsigned objectType = static_cast<unsigned>(bits.Bits(5));
    const unsigned frequency = static_cast<unsigned>(bits.Bits(4));
    const unsigned channels = static_cast<unsigned>(bits.Bits(4));
    // Spectral band replication and parametric stereo wrap a core: its type follows the wider sampling frequency.
    if ((objectType == 5 || objectType == 29) && frequency < 13 && bits.Bits(4) != 15)
        objectType = static_cast<unsigned>(bits.Bits(5));
    // Two bits for the type, no room for a frequency in Hz, and channel configuration 0 would need its own element.
    if (!bits.Ok() || objectType < 1 || objectType > 4 || frequency >= 13 || channels < 1 || channels > 7)
        return nullptr;
    return std::make_unique<GAdtsFramer>(objectType - 1, frequency, channels);
}

}  // namespace vex
