#include "media/mpeg_audio.h"

#include "io/byte_reader.h"

namespace vex {

namespace {

using Rates = std::array<std::uint16_t, 15>;

constexpr Rates kMpeg1LayerI{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448};
constexpr Rates kMpeg1LayerII{0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
constexpr Rates kMpeg1LayerIII{0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr Rates kMpeg2LayerI{0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256};
constexpr Rates kMpeg2LayersIIAndIII{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};

std::uint32_t SampleRateOf(std::uint8_t version, std::uint8_t index)
{
    if (index > 2 || version == GMpegAudioHeader::kReserved)
        return 0;
    const std::size_t row = version == GMpegAudioHeader::kMpeg1 ? 0 : version == GMpegAudioHeader::kMpeg2 ? 3 : 6;
    return kMpegAudioRates[row + index];
}

}  // namespace

// One read for all fields: files of raw audio have a header every few hundred bytes.
std::optional<GMpegAudioHeader> ReadMpegAudioHeader(GBytes bytes)
{
    GByteReader reader(bytes);
    const std::uint32_t word = reader.U32BE();
    if (word >> 21 != 0x7FF)
        return std::nullopt;
    const auto field = [word](unsigned shift, unsigned mask) {
        return static_cast<std::uint8_t>(word >> shift & mask);
    };
    GMpegAudioHeader header;
    header.version = field(19, 3);
    header.layer = static_cast<std::uint8_t>(4 - field(17, 3));
    header.protectionAbsent = field(16, 1) != 0;
    header.bitRateIndex = field(12, 15);
    header.bitRate = MpegAudioBitRate(header.LowSamplingFrequency(), header.layer, header.bitRateIndex);
    header.rateIndex = field(10, 3);
    header.sampleRate = SampleRateOf(header.version, header.rateIndex);
    header.padding = field(9, 1) != 0;
    header.privateBit = field(8, 1) != 0;
    header.mode = field(6, 3);
    header.modeExtension = field(4, 3);
    header.copyright = field(3, 1) != 0;
    header.original = field(2, 1) != 0;
    header.emphasis = field(0, 3);
    return header;
}

std::uint32_t GMpegAudioHeader::FrameSize() const
{
    return bitRate == 0 ? 0 : MpegAudioFrameSize(layer, LowSamplingFrequency(), bitRate, sampleRate, padding);
}

std::uint16_t MpegAudioBitRate(bool lowSamplingFrequency, unsigned layer, unsigned index)
{
    if (layer < 1 || layer > 3 || index >= kMpeg1LayerI.size())
        return 0;
    if (lowSamplingFrequency)
        return (layer == 1 ? kMpeg2LayerI : kMpeg2LayersIIAndIII)[index];
    return (layer == 1 ? kMpeg1LayerI : layer == 2 ? kMpeg1LayerII : kMpeg1LayerIII)[index];
}

std::uint32_t MpegAudioFrameSize(unsigned layer, bool lowSamplingFrequency, std::uint32_t bitRate,
                                 std::uint32_t sampleRate, bool padding)
{
    if (sampleRate == 0 || layer < 1 || layer > 3)
        return 0;
    const std::uint32_t slot = padding ? 1 : 0;
    const std::uint64_t rate = bitRate;
    if (layer == 1)
        return static_cast<std::uint32_t>((rate * 12000 / sampleRate + slot) * 4);
    const unsigned halved = layer == 3 && lowSamplingFrequency ? 1 : 0;
    return static_cast<std::uint32_t>((rate * 144000 >> halved) / sampleRate + slot);
}

}  // namespace vex
