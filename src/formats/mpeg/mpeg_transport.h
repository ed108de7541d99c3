// Packets of a transport stream (ISO/IEC 13818-1 clause 2.4.3.2) and the program tables that they carry (2.4.4).
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kTransportPacketSize = 188;  // bytes
inline constexpr std::uint8_t kTransportSync = 0x47;
inline constexpr std::size_t kPidCount = 0x2000;
inline constexpr std::uint16_t kNullPid = 0x1FFF;

struct GTransportPacket {
    std::uint16_t pid = 0;
    bool error = false;
    bool unitStart = false;  // a PES packet or a section begins here
    bool scrambled = false;
    GBytes payload;
};

// `packet` has 188 bytes and begins with the sync byte. An adaptation field that does not fit leaves no payload.
inline GTransportPacket ReadTransportPacket(GBytes packet)
{
    GTransportPacket result;
    result.error = (packet[1] & 0x80) != 0;
    result.unitStart = (packet[1] & 0x40) != 0;
    result.pid = static_cast<std::uint16_t>((packet[1] & 0x1F) << 8 | packet[2]);
    result.scrambled = (packet[3] & 0xC0) != 0;
    const bool adaptation = (packet[3] & 0x20) != 0;
    const std::size_t start = adaptation ? std::size_t{5} + packet[4] : std::size_t{4};
    if ((packet[3] & 0x10) != 0 && start < packet.size())
        result.payload = packet.subspan(start);
    return result;
}

// Joins the sections of one PID, which may span packets and share them.
class GSectionReader {
public:
    // Calls `take(GBytes section)` for every section that has become whole.
    template <class Take>
    void Push(bool unitStart, GBytes payload, Take&& take)
    {
        if (!unitStart) {
            Continue(payload, take);
            return;
        }
        if (payload.empty() || payload[0] >= payload.size())
            return;
        const std::size_t pointer = payload[0];
        Continue(payload.subspan(1, pointer), take);
        section.clear();
        begun = true;
        Continue(payload.subspan(1 + pointer), take);
    }

private:
    static constexpr std::size_t kHeaderSize = 3;
    static constexpr std::size_t kMostBytes = kHeaderSize + 0xFFF;

    template <class Take>
    void Continue(GBytes bytes, Take&& take)
    {
        constexpr std::uint8_t kStuffing = 0xFF;
        while (begun && !bytes.empty()) {
            if (section.empty() && bytes[0] == kStuffing) {
                begun = false;
                return;
            }
            const std::size_t wanted = section.size() < kHeaderSize ? kHeaderSize : WholeSize();
            const std::size_t count = std::min(wanted - section.size(), bytes.size());
            section.insert(section.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
            bytes = bytes.subspan(count);
            if (section.size() >= kHeaderSize && section.size() == WholeSize()) {
                take(GBytes(section));
                section.clear();
            }
        }
    }
    std::size_t WholeSize() const { return kHeaderSize + ((section[1] & 0x0Fu) << 8 | section[2]); }

    std::vector<std::uint8_t> section;  // at most kMostBytes
    bool begun = false;
};

// An elementary stream as a program map lists it.
struct GProgramEntry {
    std::uint8_t streamType = 0;
    std::uint16_t pid = 0;
    std::string language;    // ISO 639-2, or empty
    bool subtitles = false;  // teletext or DVB subtitles among private data
    bool ac3 = false;        // AC-3 among private data

    bool IsAac() const { return streamType == 0x0F; }
    // Whether one of our parsers may accept it.
    bool MayHaveParser() const;
};

// What the tables of a transport stream say. Every program's map is read, since a recording may lack some.
class GProgramTables {
public:
    // Packets of all PIDs may be given.
    void Push(const GTransportPacket& packet);
    // Every map that the association table announces was read, and there is one.
    bool Complete() const { return !maps.empty() && mapsRead == maps.size(); }
    const GProgramEntry* Find(std::uint16_t pid) const;
    const std::vector<GProgramEntry>& Entries() const { return entries; }

private:
    static constexpr std::size_t kMostMaps = 64;
    static constexpr std::size_t kMostEntries = 32;  // of one program

    struct GMap {
        std::uint16_t pid = 0;
        bool read = false;
        GSectionReader sections{};
    };

    void ReadAssociation(GBytes section);
    void ReadMap(GMap& map, GBytes section);

    GSectionReader association;
    std::vector<GMap> maps;
    std::size_t mapsRead = 0;
    std::vector<GProgramEntry> entries;
};

// "MPEG-2 video", or null for a type without a name here.
const char* StreamTypeName(std::uint8_t streamType);

}  // namespace vex
