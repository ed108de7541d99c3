#include "media/avc_record.h"

#include "io/byte_reader.h"
#include "media/nal_units.h"

namespace vex {

namespace {

// False when a set, or its length, is cut off.
bool ReadSets(GByteReader& reader, unsigned count, std::vector<GBytes>& sets)
{
    for (unsigned i = 0; i < count; ++i) {
        const std::size_t size = reader.U16BE();
        const GBytes set = reader.Bytes(size);
        if (!reader.Ok())
            return false;
        sets.push_back(set);
    }
    return true;
}

}  // namespace

std::optional<GAvcRecord> ReadAvcRecord(GBytes avcC)
{
    GByteReader reader(avcC);
    GAvcRecord record;
    reader.Skip(1);  // version
    record.profile = reader.U8();
    reader.Skip(1);  // compatibility
    record.level = reader.U8();
    record.lengthSize = static_cast<std::uint8_t>((reader.U8() & 3u) + 1);
    const unsigned sequenceSets = reader.U8() & 0x1Fu;
    if (!reader.Ok())
        return std::nullopt;
    if (!ReadSets(reader, sequenceSets, record.sequenceSets))
        return record;
    record.declaredPictureSets = reader.U8();
    record.complete = reader.Ok() && ReadSets(reader, record.declaredPictureSets, record.pictureSets);
    return record;
}

std::vector<std::uint8_t> AvcSequenceHeader(std::span<const GBytes> sequenceSets, std::span<const GBytes> pictureSets)
{
    constexpr unsigned kLengthSize = 2;
    std::vector<std::uint8_t> header;
    for (const std::span<const GBytes> sets : {sequenceSets, pictureSets})
        for (const GBytes set : sets)
            AppendLengthPrefixed(header, set, kLengthSize);
    return header;
}

}  // namespace vex
