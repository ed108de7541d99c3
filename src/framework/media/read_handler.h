// The contract between the frame and a container format: bytes in, stream descriptions and timed packets out.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "dshow/media_type.h"
#include "framework/media/packet.h"
#include "io/result.h"
#include "platform/text.h"

namespace vex {

// A fact about a file or a stream that a host may show ("title", "default"); names are lower case with '_', stable.
struct GProperty {
    enum class Type : std::uint8_t { Text, Integer, Boolean };
    std::string name;
    Type type = Type::Text;
    std::string value;  // UTF-8; an integer in decimal; a boolean as "true" or "false"
};

// A file carried inside the file. The bytes stay there until they are asked for.
struct GAttachmentInfo {
    std::string name;  // UTF-8
    std::string mimeType;
    std::string description;  // UTF-8
    std::uint64_t size = 0;   // bytes, already held against the file's size
};

// What a handler says of one stream. Fixed from Open to Close.
struct GStreamInfo {
    std::uint32_t number = 0;            // GPacket2::stream of its packets
    std::vector<CMediaType> mediaTypes;  // in order of preference; none (or a first one of GUID_NULL): no pin
    std::string language;                // English name, or empty
    WString pinName;                     // complete pin name where the format has its own rule, else empty
    std::vector<GProperty> properties;
};

enum class GSeekMode : std::uint8_t {
    Independent,  // every stream goes to the time on its own
    KeyFrame,     // all streams are aligned on a key frame of the reference stream
};

enum class GReadStatus : std::uint8_t {
    Packet,  // a packet was announced
    NotYet,  // nothing to announce now (an index is still being built, a damaged unit was skipped): ask again
    End,     // no stream has data left
};

// The packet that ReadPacket announced.
struct GNextPacket {
    std::uint32_t stream = 0;
    std::uint32_t size = 0;  // payload bytes announced; may be 0: such a packet is passed over
    bool keyFrame = false;
    bool discontinuity = false;
    bool continuation = false;
    REFERENCE_TIME start = kNoTime;  // 100 ns from the start of the file
    REFERENCE_TIME stop = kNoTime;
    LONGLONG mediaStart = kNoTime;  // only where the format has its own media times; else the frame derives them
    LONGLONG mediaStop = kNoTime;
};

// Damage met while reading: skipped, counted, and said where.
struct GDamageReport {
    std::uint64_t count = 0;  // places
    std::uint64_t bytes = 0;  // bytes passed over, as far as known
    std::string first;        // what and where the first one was; empty when none
};

// One open container. The frame owns it and calls it from one thread at a time: Open on the caller of Load, then
// ReadPacket/ReadPayload on the reader thread, Seek only while that thread is parked. Damage, StreamDuration and the
// data-free observers may be called from any thread while the handler is open. No method throws but by std::bad_alloc.
class GReadHandler {
public:
    virtual ~GReadHandler() = default;

    // `path` as for GOsFile. An open handler is closed first; after a failure it is closed again.
    virtual GStatus Open(const char* path) = 0;

    virtual REFERENCE_TIME Duration() const = 0;  // 100 ns, at open
    virtual std::span<const GStreamInfo> Streams() const = 0;
    // The longest stream as known now (an index may still grow), 100 ns.
    virtual REFERENCE_TIME LongestStreamDuration() const { return Duration(); }
    // False while a thread of the handler still builds an index out of what is in the file: seeks land short of the end.
    virtual bool IsIndexComplete() const { return true; }

    // Announces the next packet in delivery order. Must return in bounded time and never wait longer than 1 ms.
    virtual GReadStatus ReadPacket(GNextPacket& next) = 0;
    // Reads the payload just announced into packet.data (its size becomes what was really there). False when it cannot
    // be read at all: the packet is passed over. Once per announced packet; not called for a packet nobody wants.
    virtual bool ReadPayload(GPacket2& packet) = 0;
    // The packet class this format's pins work with.
    virtual GPacketPtr NewPacket() const { return std::make_unique<GPacket2>(); }

    // Codec headers to be sent in-band ahead of the stream's data after every start, given the connected type.
    virtual std::vector<GPacketPtr> HeaderPackets(std::uint32_t, const CMediaType&) { return {}; }

    // Repositions every stream; returns the time reached (100 ns from the start of the file).
    virtual REFERENCE_TIME Seek(REFERENCE_TIME time, GSeekMode mode) = 0;

    virtual GDamageReport Damage() const { return {}; }
    virtual std::vector<GProperty> Properties() const { return {}; }
    virtual std::vector<GAttachmentInfo> Attachments() const { return {}; }
    // Reads attachment bytes [offset, offset + out.size()) into `out`; false when they are not all there. Uses a byte
    // source of its own, so it may run beside the reader.
    virtual bool ReadAttachment(std::size_t, std::uint64_t, std::span<std::uint8_t>) { return false; }
};

}  // namespace vex
