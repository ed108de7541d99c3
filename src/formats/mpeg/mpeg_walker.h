// What kind of MPEG file it is, and the walk over its packets.
#pragma once

#include <cstdint>
#include <optional>

#include "formats/mpeg/mpeg_pes.h"
#include "formats/mpeg/mpeg_transport.h"
#include "io/scan_window.h"

namespace vex {

enum class GMpegContainer : std::uint32_t {
    Unknown = 0,
    Transport188 = 1,
    Mpeg2Program = 2,
    Transport192 = 3,  // 4 bytes before every packet
    Mpeg1Program = 4,
};

struct GMpegLayout {
    GMpegContainer containerType = GMpegContainer::Unknown;
    std::uint32_t packetSize = 0xFFFFFFFF;  // bytes; of a transport stream
    std::int64_t origin = 0;                // file position of the first packet or pack

    bool IsTransport() const
    {
        return containerType == GMpegContainer::Transport188 || containerType == GMpegContainer::Transport192;
    }
    std::size_t SyncOffset() const { return containerType == GMpegContainer::Transport192 ? 4 : 0; }
    // The last packet boundary at or before `position`, counted from the origin.
    std::int64_t PacketBefore(std::int64_t position) const
    {
        const std::int64_t offset = position > origin ? position - origin : 0;
        return origin + offset - offset % packetSize;
    }
};

inline constexpr std::size_t kMpegDetectBytes = 384;  // a shorter file is of no kind

// Looks at the start of a file. A file that begins within a packet or with something else is recognised by two syncs
// one packet apart in the first 384 bytes, or by a pack in the first 64 KiB.
GMpegLayout DetectMpegLayout(GScanWindow& window);

enum class GMpegStep : std::uint8_t {
    Unit,  // a packet or a pack; the position is behind it
    Lost,  // none begins here
    End,   // of the file, or too little of it is left
};

// Steps over a file from `position`.
class GTransportWalker {
public:
    GTransportWalker(GScanWindow& scanWindow, const GMpegLayout& fileLayout)
        : position(fileLayout.origin),
          window(scanWindow),
          packetSize(fileLayout.packetSize),
          syncOffset(fileLayout.SyncOffset())
    {
    }

    // The payload is valid until the next call.
    GMpegStep Next(GTransportPacket& packet)
    {
        const GBytes bytes = window.At(position, packetSize);
        if (bytes.size() < packetSize) [[unlikely]]
            return GMpegStep::End;
        if (bytes[syncOffset] != kTransportSync) [[unlikely]]
            return GMpegStep::Lost;
        packet = ReadTransportPacket(bytes.subspan(syncOffset, kTransportPacketSize));
        position += packetSize;
        return GMpegStep::Unit;
    }
    // Moves to the next place before `until` where a sync byte has another one a packet behind it, or the end of the
    // file there. Otherwise moves to `until`; interrupted, nowhere.
    bool Resync(std::int64_t until);

    std::int64_t position;

private:
    GScanWindow& window;
    const std::size_t packetSize;
    const std::size_t syncOffset;
};

struct GProgramUnit {
    std::uint8_t code = 0;      // the last byte of the start code
    std::int64_t position = 0;  // bytes
    std::size_t size = 0;       // as it says itself: the file may end first

    // A packet of an elementary stream, private streams among them.
    bool IsPacket() const
    {
        return code >= mpeg_code::kPrivate1 && code != mpeg_code::kPadding && code != mpeg_code::kPrivate2;
    }
};

class GProgramWalker {
public:
    GProgramWalker(GScanWindow& scanWindow, const GMpegLayout& fileLayout)
        : position(fileLayout.origin), window(scanWindow)
    {
    }

    GMpegStep Next(GProgramUnit& unit);
    // Moves to the next unit before `until` that another one, or the end of the file, follows. Otherwise to `until`;
    // interrupted, nowhere.
    bool Resync(std::int64_t until);
    // The bytes of a unit; fewer where the file ends. Valid until the next call.
    GBytes Bytes(const GProgramUnit& unit, std::size_t most = SIZE_MAX)
    {
        return window.At(unit.position, std::min(unit.size, most));
    }

    std::int64_t position;

private:
    GMpegStep Peek(std::int64_t at, GProgramUnit& unit);

    GScanWindow& window;
};

}  // namespace vex
