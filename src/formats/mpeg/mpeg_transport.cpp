#include "formats/mpeg/mpeg_transport.h"

#include <algorithm>

#include "io/byte_reader.h"

namespace vex {
namespace {

constexpr std::uint8_t kAssociationTable = 0;
constexpr std::uint8_t kMapTable = 2;
constexpr std::size_t kCrcSize = 4;  // bytes, behind every section; not verified

struct GTypeRow {
    std::uint8_t type;
    const char* name;
    bool parser;  // false: nothing here reads it, and parsers must not guess
};

constexpr GTypeRow kTypes[]{
    {0x01, "MPEG-1 video", true},
    {0x02, "MPEG-2 video", true},
    {0x03, "MPEG-1 audio", true},
    {0x04, "MPEG-2 audio", true},
    {0x05, "sections", false},
    {0x06, "private data", true},
    {0x0B, "DSM-CC", false},
    {0x0C, "DSM-CC", false},
    {0x0D, "DSM-CC", false},
    {0x0F, "AAC", true},
    {0x10, "MPEG-4", false},
    {0x11, "AAC in LATM", false},
    {0x12, "MPEG-4 systems", false},
    {0x13, "MPEG-4 systems", false},
    {0x15, "metadata", false},
    {0x1B, "H.264", true},
    {0x1C, "MPEG-4 audio", false},
    {0x20, "H.264 MVC", false},
    {0x21, "JPEG 2000", false},
    {0x24, "H.265", false},
    {0x33, "H.266", false},
    {0x42, "AVS", false},
    {0x81, "AC-3", true},
    {0x87, "E-AC-3", false},
    {0x90, "PGS subtitles", false},
    {0x91, "interactive graphics", false},
    {0x92, "text subtitles", false},
    {0xD2, "AVS2", false},
    {0xEA, "VC-1", true},
};

const GTypeRow* FindType(std::uint8_t type)
{
    const auto* row = std::ranges::find(kTypes, type, &GTypeRow::type);
    return row == std::end(kTypes) ? nullptr : row;
}

// Table id, and the bytes between the header that both tables share and the CRC. The length counts from behind itself.
GByteReader Body(GBytes section, std::uint8_t tableId, std::size_t headerBytes)
{
    GByteReader reader(section);
    const bool sound = reader.U8() == tableId && (reader.U8() & 0x80) != 0;
    reader.Skip(1);
    if (!sound || reader.Left() < headerBytes + kCrcSize)
        return {};
    reader.Skip(headerBytes);
    return reader.Window(reader.Left() - kCrcSize);
}

void ReadDescriptors(GByteReader loop, GProgramEntry& entry)
{
    constexpr std::uint8_t kLanguage = 0x0A;
    constexpr std::uint8_t kVbi = 0x45;
    constexpr std::uint8_t kVbiTeletext = 0x46;
    constexpr std::uint8_t kTeletext = 0x56;
    constexpr std::uint8_t kSubtitling = 0x59;
    constexpr std::uint8_t kAc3 = 0x6A;
    while (loop.Left() >= 2) {
        const std::uint8_t tag = loop.U8();
        GByteReader body = loop.Window(loop.U8());
        const GBytes code = body.Bytes(3);
        if (tag == kLanguage && code.size() == 3 && entry.language.empty())
            entry.language.assign(code.begin(), code.end());
        entry.subtitles |= tag == kVbi || tag == kVbiTeletext || tag == kTeletext || tag == kSubtitling;
        entry.ac3 |= tag == kAc3;
    }
}

}  // namespace

const char* StreamTypeName(std::uint8_t streamType)
{
    const GTypeRow* row = FindType(streamType);
    return row ? row->name : nullptr;
}

bool GProgramEntry::MayHaveParser() const
{
    const GTypeRow* row = FindType(streamType);
    return !subtitles && (!row || row->parser);
}

void GProgramTables::Push(const GTransportPacket& packet)
{
    if (packet.pid == 0)
        association.Push(packet.unitStart, packet.payload, [this](GBytes section) { ReadAssociation(section); });
    const auto map = std::ranges::find(maps, packet.pid, &GMap::pid);
    if (map != maps.end())
        map->sections.Push(packet.unitStart, packet.payload, [&](GBytes section) { ReadMap(*map, section); });
}

void GProgramTables::ReadAssociation(GBytes section)
{
    GByteReader body = Body(section, kAssociationTable, 5);
    while (body.Left() >= 4) {
        const std::uint16_t program = body.U16BE();
        const auto pid = static_cast<std::uint16_t>(body.U16BE() & 0x1FFF);
        // Program 0 names the network information table, not a program map.
        if (program != 0 && pid != 0 && maps.size() < kMostMaps &&
            std::ranges::find(maps, pid, &GMap::pid) == maps.end())
            maps.push_back({.pid = pid});
    }
}

void GProgramTables::ReadMap(GMap& map, GBytes section)
{
    GByteReader body = Body(section, kMapTable, 5);
    body.Skip(2);  // PID of the clock
    body.Skip(body.U16BE() & 0xFFF);
    if (map.read || !body.Ok())
        return;
    map.read = true;
    ++mapsRead;
    for (std::size_t count = 0; body.Left() >= 5 && count < kMostEntries; ++count) {
        GProgramEntry entry;
        entry.streamType = body.U8();
        entry.pid = static_cast<std::uint16_t>(body.U16BE() & 0x1FFF);
        const std::size_t length = body.U16BE() & 0xFFFu;
        // A loop that claims more than the section has is read as far as it goes.
        ReadDescriptors(body.Window(std::min(length, body.Left())), entry);
        if (!Find(entry.pid))
            entries.push_back(std::move(entry));
    }
}

const GProgramEntry* GProgramTables::Find(std::uint16_t pid) const
{
    const auto entry = std::ranges::find(entries, pid, &GProgramEntry::pid);
    return entry == entries.end() ? nullptr : &*entry;
}

}  // namespace vex
