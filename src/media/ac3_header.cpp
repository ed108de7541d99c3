#include "media/ac3_header.h"

#include "io/bit_reader.h"

namespace vex {

namespace {

constexpr unsigned kFrameSizeCodes = 38;

}  // namespace

std::optional<GAc3Header> ReadAc3Header(GBytes bytes)
{
    GBitReader bits(bytes.first(std::min(bytes.size(), kAc3HeaderSize)));
    GAc3Header header;
    const bool sync = bits.Bits(16) == (kAc3Sync[0] << 8 | kAc3Sync[1]);
    bits.Skip(16);  // checksum
    header.fscod = static_cast<std::uint8_t>(bits.Bits(2));
    header.frmsizecod = static_cast<std::uint8_t>(bits.Bits(6));
    header.bsid = static_cast<std::uint8_t>(bits.Bits(5));
    bits.Skip(3);  // bsmod
    header.acmod = static_cast<std::uint8_t>(bits.Bits(3));
    if ((header.acmod & 1) != 0 && header.acmod != 1)
        bits.Skip(2);  // centre mix level
    if ((header.acmod & 4) != 0)
        bits.Skip(2);  // surround mix level
    if (header.acmod == 2)
        bits.Skip(2);  // Dolby Surround
    header.lfeon = bits.Flag();
    if (!sync || bytes.size() < kAc3HeaderSize)
        return std::nullopt;
    return header;
}

std::uint16_t GAc3Header::Channels() const
{
    constexpr std::array<std::uint16_t, 8> kChannels{2, 1, 2, 3, 3, 4, 4, 5};
    return static_cast<std::uint16_t>(kChannels[acmod & 7] + (lfeon ? 1 : 0));
}

std::uint32_t GAc3Header::SampleRate() const
{
    constexpr std::array<std::uint32_t, 4> kRates{48000, 44100, 32000, 0};
    return kRates[fscod & 3];
}

std::uint32_t GAc3Header::BitRate() const { return Ac3BitRate(frmsizecod / 2u); }

std::uint32_t GAc3Header::FrameSize() const
{
    const std::uint32_t bitRate = frmsizecod < kFrameSizeCodes ? BitRate() : 0;
    switch (fscod) {
    case 0:
        return bitRate * 4;
    case 1:  // words of 2 bytes; odd codes have one more
        return bitRate == 0 ? 0 : (bitRate * 320 / 147 + (frmsizecod & 1u)) * 2;
    case 2:
        return bitRate * 6;
    default:
        return 0;
    }
}

std::uint32_t Ac3BitRate(unsigned code)
{
    constexpr std::array<std::uint16_t, 19> kBitRates{32,  40,  48,  56,  64,  80,  96,  112, 128, 160,
                                                      192, 224, 256, 320, 384, 448, 512, 576, 640};
    return code < kBitRates.size() ? kBitRates[code] : 0;
}

}  // namespace vex
