#include "media/adts_header.h"

#include "io/byte_reader.h"
#include "media/aac_config.h"

namespace vex {

// One read for all fields: files of raw audio have a header every few hundred bytes.
std::optional<GAdtsHeader> ReadAdtsHeader(GBytes bytes)
{
    GByteReader reader(bytes);
    const std::uint64_t word = reader.UIntBE(kAdtsHeaderSize);  // 56 bits
    constexpr std::uint64_t kSyncAndLayer = 0xFFF6;  // the bit between is the ID, the last one the protection
    if ((word >> 40 & kSyncAndLayer) != 0xFFF0)
        return std::nullopt;
    const auto field = [word](unsigned shift, unsigned mask) { return static_cast<unsigned>(word >> shift) & mask; };
    GAdtsHeader header;
    header.id = static_cast<std::uint8_t>(field(43, 1));
    header.protectionAbsent = field(40, 1) != 0;
    header.profile = static_cast<std::uint8_t>(field(38, 3));
    header.rateIndex = static_cast<std::uint8_t>(field(34, 15));
    header.sampleRate = AacSampleRate(header.rateIndex);
    header.channelConfiguration = static_cast<std::uint8_t>(field(30, 7));
    header.frameLength = static_cast<std::uint16_t>(field(13, 0x1FFF));
    return header;
}

}  // namespace vex
