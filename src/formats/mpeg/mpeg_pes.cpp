#include "formats/mpeg/mpeg_pes.h"

#include "io/byte_reader.h"

namespace vex {
namespace {

// Streams whose packets have no header behind the length (13818-1, 2.4.3.7).
bool IsPlain(std::uint8_t id)
{
    return id == mpeg_code::kStreamMap || id == mpeg_code::kPadding || id == mpeg_code::kPrivate2 || id == 0xF0 ||
           id == 0xF1 || id == 0xF2 || id == 0xF8 || id == 0xFF;
}

// Five bytes; the marker bits are not looked at.
std::uint64_t ReadPts(std::uint8_t first, GByteReader& reader)
{
    const std::uint64_t high = first >> 1 & 7u;
    const std::uint64_t middle = reader.U16BE() >> 1;
    const std::uint64_t low = reader.U16BE() >> 1;
    return high << 30 | middle << 15 | low;
}

// stream_id_extension, behind the other optional fields; `flags` are the second byte of flags.
std::uint8_t ReadExtension(GByteReader reader, std::uint8_t flags)
{
    const bool hasDts = (flags & 0x40) != 0;
    reader.Skip((flags & 0x80) != 0 ? (hasDts ? 10u : 5u) : 0u);
    reader.Skip((flags & 0x20) != 0 ? 6 : 0);  // ESCR
    reader.Skip((flags & 0x10) != 0 ? 3 : 0);  // ES_rate
    reader.Skip((flags & 0x08) != 0 ? 1 : 0);  // trick mode
    reader.Skip((flags & 0x04) != 0 ? 1 : 0);  // copy information
    reader.Skip((flags & 0x02) != 0 ? 2 : 0);  // CRC
    const std::uint8_t more = (flags & 0x01) != 0 ? reader.U8() : std::uint8_t{0};
    reader.Skip((more & 0x80) != 0 ? 16 : 0);  // private data
    if ((more & 0x40) != 0)
        reader.Skip(reader.U8());             // pack header
    reader.Skip((more & 0x20) != 0 ? 2 : 0);  // sequence counter
    reader.Skip((more & 0x10) != 0 ? 2 : 0);  // buffer size
    if ((more & 0x01) == 0 || (reader.U8() & 0x7F) == 0)
        return 0;
    const std::uint8_t extension = reader.U8();
    return reader.Ok() && (extension & 0x80) == 0 ? extension : std::uint8_t{0};
}

GPesResult ReadMpeg2(GByteReader reader, GPesHeader& header)
{
    const std::uint8_t first = reader.U8();
    const std::uint8_t flags = reader.U8();
    const std::size_t length = reader.U8();
    GByteReader fields = reader.Window(length);
    if (!reader.Ok())
        return GPesResult::NeedMore;
    header.scrambled = (first & 0x30) != 0;
    header.headerSize = reader.Pos();
    if ((flags & 0x80) != 0 && length >= 5) {
        GByteReader times = fields;
        header.pts = ReadPts(times.U8(), times);
    }
    if (header.streamId == mpeg_code::kExtended)
        header.extension = ReadExtension(fields, flags);
    return GPesResult::Whole;
}

GPesResult ReadMpeg1(GByteReader reader, GPesHeader& header)
{
    constexpr unsigned kMostStuffing = 16;
    std::uint8_t next = reader.U8();
    for (unsigned i = 0; i < kMostStuffing && next == 0xFF; ++i)
        next = reader.U8();
    if ((next & 0xC0) == 0x40) {  // size of the decoder's buffer
        reader.Skip(1);
        next = reader.U8();
    }
    if ((next & 0xF0) == 0x20 || (next & 0xF0) == 0x30) {
        header.pts = ReadPts(next, reader);
        reader.Skip((next & 0xF0) == 0x30 ? 5 : 0);  // decoding time
    } else if (reader.Ok() && next != 0x0F) {
        return GPesResult::Malformed;
    }
    if (!reader.Ok())
        return GPesResult::NeedMore;
    header.headerSize = reader.Pos();
    return GPesResult::Whole;
}

}  // namespace

GPesResult ReadPesHeader(GBytes bytes, GPesSyntax syntax, GPesHeader& header)
{
    header = {};
    GByteReader reader(bytes);
    const std::uint32_t code = reader.U32BE();
    header.packetLength = reader.U16BE();
    if (bytes.size() >= 4 && code >> 8 != 1)
        return GPesResult::Malformed;
    if (reader.Left() == 0)
        return GPesResult::NeedMore;
    header.streamId = static_cast<std::uint8_t>(code & 0xFF);
    header.headerSize = kPesPrefixSize;
    GPesResult result = GPesResult::Whole;
    if (!IsPlain(header.streamId)) {
        const bool mpeg2 = (bytes[kPesPrefixSize] & 0xC0) == 0x80;
        if (!mpeg2 && syntax == GPesSyntax::Mpeg2)
            return GPesResult::Malformed;
        result = mpeg2 ? ReadMpeg2(reader, header) : ReadMpeg1(reader, header);
    }
    if (result == GPesResult::Whole && !header.Unbounded() && header.headerSize > header.packetLength + kPesPrefixSize)
        return GPesResult::Malformed;
    return result;
}

}  // namespace vex
