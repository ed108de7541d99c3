#include "media/dts_header.h"

#include "io/bit_reader.h"

namespace vex {

std::optional<GDtsHeader> ReadDtsHeader(GBytes bytes)
{
    GBitReader bits(bytes);
    GDtsHeader header;
    const bool sync = bytes.size() >= kDtsHeaderSize && std::equal(kDtsSync.begin(), kDtsSync.end(), bytes.begin());
    bits.Skip(kDtsSync.size() * 8);
    bits.Skip(1 + 5 + 1 + 7);  // FTYPE, SHORT, CPF, NBLKS
    header.frameSize = static_cast<std::uint16_t>(bits.Bits(14) + 1);
    header.amode = static_cast<std::uint8_t>(bits.Bits(6));
    header.rateCode = static_cast<std::uint8_t>(bits.Bits(4));
    header.bitRateCode = static_cast<std::uint8_t>(bits.Bits(5));
    if (!sync)
        return std::nullopt;
    return header;
}

std::uint16_t GDtsHeader::Channels() const
{
    constexpr std::array<std::uint16_t, 16> kChannels{1, 2, 2, 2, 2, 3, 3, 4, 4, 5, 6, 6, 6, 7, 8, 8};
    return amode < kChannels.size() ? kChannels[amode] : 0;
}

std::uint32_t GDtsHeader::SampleRate() const
{
    constexpr std::array<std::uint32_t, 16> kRates{0,     8000, 16000, 32000, 0,     0,     11025, 22050,
                                                   44100, 0,    0,     12000, 24000, 48000, 0,     0};
    return kRates[rateCode & 15];
}

std::uint32_t GDtsHeader::BitRate() const
{
    // Codes 15 and 24 are 768 and 1536 kbit/s by name; these are what the frames of DVDs amount to.
    constexpr std::array<std::uint32_t, 29> kBitRates{
        32000,   56000,   64000,   96000,   112000,  128000,  192000,  224000,  256000,  320000,
        384000,  448000,  512000,  576000,  640000,  754500,  960000,  1024000, 1152000, 1280000,
        1344000, 1408000, 1411200, 1472000, 1509750, 1920000, 2048000, 3072000, 3840000};
    return bitRateCode < kBitRates.size() ? kBitRates[bitRateCode] : 0;
}

}  // namespace vex
