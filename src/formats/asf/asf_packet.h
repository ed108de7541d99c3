// Data packets: their header, and the headers of the payloads in them.
#pragma once

#include <cstdint>
#include <optional>

#include "formats/asf/asf_header.h"
#include "io/byte_reader.h"
#include "io/scan_window.h"

namespace vex {

// Bytes that hold any packet header, and any payload header without its replicated data.
inline constexpr std::size_t kAsfPacketHeaderMax = 32;
inline constexpr std::size_t kAsfPayloadHeaderMax = 24;

// The width of a field by its two-bit length type.
enum class GAsfWidth : std::uint8_t { None, One, Two, Four };

struct GAsfPacket {
    std::uint8_t lengthFlags = 0;
    std::uint8_t propertyFlags = 0;
    std::uint8_t payloadFlags = 0;
    bool correction = false;    // error-correction data ahead of the header
    std::uint32_t length = 0;   // bytes, headers and padding included
    std::uint32_t padding = 0;  // bytes
    std::uint32_t headerSize = 0;

    bool IsMultiple() const { return (lengthFlags & 1) != 0; }
    std::uint32_t PayloadCount() const { return IsMultiple() ? payloadFlags & 0x3Fu : 1; }
    // Bytes ahead of the padding.
    std::uint64_t PayloadsEnd() const { return length > padding ? length - padding : 0; }
};

struct GAsfLimits {
    std::uint32_t packetSize = 0;  // of the File Properties
    std::uint64_t dataSize = 0;    // of the Data Object
};

// Reads the packet header at the start of `bytes`, which has kAsfPacketHeaderMax bytes of the file or what is left of
// it. Empty if it contradicts itself or is not complete.
std::optional<GAsfPacket> ReadAsfPacket(GBytes bytes, const GAsfLimits& limits);

struct GAsfPayload {
    std::uint16_t stream = 0;
    bool keyFrame = false;
    bool hasOffset = false;              // the packet has such a field
    std::uint32_t offset = 0;            // into the media object; a time in ms when compressed
    std::uint32_t replicatedLength = 0;  // bytes
    std::uint32_t objectSize = 0;        // bytes; with 8 or more replicated bytes
    std::uint32_t presentationMs = 0;    // the same
    std::uint8_t deltaMs = 0;            // compressed
    std::int64_t dataPosition = 0;
    std::uint64_t dataSize = 0;  // bytes

    bool IsCompressed() const { return replicatedLength == 1; }
    bool DescribesObject() const { return replicatedLength >= 8; }
};

// Walks the payloads of a packet.
class GAsfPayloadWalk {
public:
    // The packet starts at `position`. What lies at or behind `dataEnd` is not there.
    GAsfPayloadWalk(const GAsfPacket& announced, std::int64_t position, std::int64_t dataEnd);

    // The next payload's header, and a step over its data. Empty behind the last one, and where the packet is malformed
    // or cut off: see Broken and CutOff.
    std::optional<GAsfPayload> Next(GScanWindow& window);
    bool Broken() const { return broken; }
    bool CutOff() const { return cutOff; }
    bool IsDone() const { return left == 0; }

private:
    std::optional<GAsfPayload> Fail();

    GAsfPacket packet;
    std::int64_t at = 0;       // of the next payload
    std::int64_t padding = 0;  // position of the padding
    std::int64_t end = 0;      // of the bytes that are there
    std::uint32_t left = 0;    // payloads
    bool broken = false;
    bool cutOff = false;
};

// Whether a packet at `position` makes sense to its end. Less is asked of a packet where one is expected.
bool IsSoundAsfPacket(GScanWindow& window, std::int64_t position, std::int64_t dataEnd, const GAsfLimits& limits);

}  // namespace vex
