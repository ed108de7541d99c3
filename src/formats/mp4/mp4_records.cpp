#include "formats/mp4/mp4_records.h"

#include <algorithm>

#include "io/bit_reader.h"
#include "io/byte_reader.h"
#include "io/limits.h"

namespace vex {
namespace {

constexpr std::size_t kEntryStart = 8;  // of what belongs to the kind of sample: reserved bytes and an index come first

constexpr std::uint8_t kStreamDescriptor = 3;
constexpr std::uint8_t kConfigDescriptor = 4;
constexpr std::uint8_t kSpecificDescriptor = 5;

// The version of a full box; the flags are passed over.
std::uint8_t ReadVersion(GByteReader& reader)
{
    const std::uint8_t version = reader.U8();
    reader.Skip(3);
    return version;
}

Mp4Times ReadTimes(GByteReader& reader)
{
    const bool wide = ReadVersion(reader) == 1;
    reader.Skip(wide ? 16 : 8);  // creation and modification
    Mp4Times times;
    times.timescale = reader.U32BE();
    times.duration = wide ? reader.U64BE() : reader.U32BE();
    return times;
}

std::uint32_t ReadDescriptorLength(GByteReader& reader)
{
    std::uint32_t length = 0;
    std::uint8_t byte = 0;
    do {
        byte = reader.U8();
        length = length << 7 | (byte & 0x7Fu);
    } while ((byte & 0x80u) != 0);
    return length;
}

}  // namespace

Mp4Times ReadMovieHeader(GBytes mvhd)
{
    GByteReader reader(mvhd);
    return ReadTimes(reader);
}

Mp4MediaHeader ReadMediaHeader(GBytes mdhd)
{
    GByteReader reader(mdhd);
    Mp4MediaHeader header;
    header.times = ReadTimes(reader);
    const unsigned packed = reader.U16BE();
    for (const unsigned shift : {10u, 5u, 0u})
        header.language += static_cast<char>((packed >> shift & 0x1Fu) + 0x60u);
    return header;
}

Mp4TrackHeader ReadTrackHeader(GBytes tkhd)
{
    GByteReader reader(tkhd);
    const std::uint32_t versionAndFlags = reader.U32BE();
    const bool wide = versionAndFlags >> 24 == 1;
    Mp4TrackHeader header;
    header.enabled = (versionAndFlags & 1u) != 0;
    reader.Skip(wide ? 16 : 8);
    header.trackId = reader.U32BE();
    reader.Skip(4 + (wide ? 8u : 4u));  // reserved, duration
    reader.Skip(8 + 8 + 36);            // reserved; layer to reserved; matrix
    header.width = static_cast<std::int32_t>(reader.U32BE() >> 16);
    header.height = static_cast<std::int32_t>(reader.U32BE() >> 16);
    return header;
}

std::uint32_t ReadHandlerType(GBytes hdlr)
{
    GByteReader reader(hdlr);
    reader.Skip(8);
    return reader.FourCC();
}

Mp4SoundEntry ReadSoundEntry(GBytes payload)
{
    GByteReader reader(payload);
    Mp4SoundEntry entry;
    reader.Skip(kEntryStart);
    entry.version = reader.U16BE();
    reader.Skip(6);  // revision, vendor
    entry.channels = reader.U16BE();
    entry.bits = reader.U16BE();
    reader.Skip(4);  // compression, packet size
    entry.sampleRate = reader.U16BE();
    reader.Skip(2);
    if (entry.version != 1 || reader.Left() < 16)
        return entry;
    entry.samplesPerPacket = reader.U32BE();
    entry.bytesPerPacket = reader.U32BE();
    entry.bytesPerFrame = reader.U32BE();
    entry.bytesPerSample = reader.U32BE();
    return entry;
}

Mp4VideoEntry ReadVideoEntry(GBytes payload)
{
    GByteReader reader(payload);
    Mp4VideoEntry entry;
    reader.Skip(kEntryStart);
    entry.version = reader.U16BE();
    reader.Skip(14);  // revision, vendor, qualities
    entry.width = reader.U16BE();
    entry.height = reader.U16BE();
    reader.Skip(14 + 32);  // resolutions, data size, frame count; compressor
    entry.depth = reader.U16BE();
    return entry;
}

GBytes EntryConfiguration(GBytes entry) { return entry.subspan(std::min(kEntryStart, entry.size())); }

std::optional<Mp4DecoderConfig> ReadDecoderConfig(GBytes esds)
{
    GByteReader reader(esds);
    reader.Skip(4);
    std::uint8_t tag = reader.U8();
    if (tag == kStreamDescriptor) {
        ReadDescriptorLength(reader);
        reader.Skip(2);
        const std::uint8_t flags = reader.U8();
        if ((flags & 0x80u) != 0)
            reader.Skip(2);
        if ((flags & 0x40u) != 0)
            reader.Skip(reader.U8());
        if ((flags & 0x20u) != 0)
            reader.Skip(2);
        tag = reader.U8();
    }
    if (tag != kConfigDescriptor)
        return {};
    ReadDescriptorLength(reader);
    Mp4DecoderConfig config;
    config.objectType = reader.U8();
    reader.Skip(4);  // stream type, buffer size
    config.maxBitRate = reader.U32BE();
    config.avgBitRate = reader.U32BE();
    if (!reader.Ok())
        return {};
    if (reader.U8() == kSpecificDescriptor) {
        const std::uint64_t length = ReadDescriptorLength(reader);
        config.specific = reader.Bytes(std::min<std::uint64_t>({length, reader.Left(), kMaxCodecDataSize}));
    }
    return config;
}

unsigned ReadAc3BitRateCode(GBytes dac3)
{
    GBitReader reader(dac3);
    reader.Skip(2 + 5 + 3 + 3 + 1);  // fscod, bsid, bsmod, acmod, lfeon
    return reader.Bits(5);
}

std::vector<std::uint8_t> ReadSpeechConfig(GBytes box)
{
    std::vector<std::uint8_t> record(8);
    std::copy_n(box.begin(), std::min<std::size_t>(box.size(), 6), record.begin());
    return record;
}

}  // namespace vex
