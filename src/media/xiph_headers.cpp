#include "media/xiph_headers.h"

namespace vex {

GTheoraIdentification ReadTheoraIdentification(GBytes packet)
{
    GByteReader reader(packet);
    GTheoraIdentification header;
    const bool signature = reader.U8() == 0x80 && HasTextAt(packet, 1, "theora");
    reader.Skip(6);
    header.versionMajor = reader.U8();
    header.versionMinor = reader.U8();
    header.versionRevision = reader.U8();
    header.frameColumns = reader.U16BE();
    header.frameRows = reader.U16BE();
    header.pictureWidth = reader.U24BE();
    header.pictureHeight = reader.U24BE();
    reader.Skip(2);  // offset of the picture
    header.rateNumerator = reader.U32BE();
    header.rateDenominator = reader.U32BE();
    reader.Skip(3 + 3 + 1);  // aspect, colour space
    header.nominalBitRate = reader.U24BE();
    const std::uint16_t last = reader.U16BE();
    header.granuleShift = last >> 5 & 0x1F;
    header.valid = signature && reader.Ok();
    return header;
}

std::optional<GVorbisIdentification> ReadVorbisIdentification(GBytes packet)
{
    GByteReader reader(packet);
    GVorbisIdentification header;
    const bool signature = reader.U8() == 1 && HasTextAt(packet, 1, "vorbis");
    reader.Skip(6);
    reader.Skip(4 + 1 + 4 + 3 * 4);  // version, channels, rate, bit rates
    const std::uint8_t blocks = reader.U8();
    header.shortBlock = 1u << (blocks & 15);
    header.longBlock = 1u << (blocks >> 4);
    reader.Skip(1);  // framing
    if (!signature || !reader.Ok())
        return std::nullopt;
    return header;
}

std::optional<std::uint64_t> ReadXiphSize(GByteReader& reader)
{
    std::uint64_t size = 0;
    std::uint8_t piece = 255;
    while (piece == 255) {
        piece = reader.U8();
        if (!reader.Ok())
            return std::nullopt;
        size += piece;  // at most 255 for each byte that is there
    }
    return size;
}

std::vector<GBytes> SplitXiphPackets(GBytes laced)
{
    GByteReader reader(laced);
    const unsigned last = reader.U8();
    std::vector<std::uint64_t> sizes;
    for (unsigned i = 0; i < last; ++i) {
        const auto size = ReadXiphSize(reader);
        if (!size)
            return {};
        sizes.push_back(*size);
    }
    std::vector<GBytes> packets;
    for (const std::uint64_t size : sizes)
        packets.push_back(reader.Bytes(size));
    packets.push_back(reader.Bytes(reader.Left()));
    return reader.Ok() ? packets : std::vector<GBytes>();
}

}  // namespace vex
