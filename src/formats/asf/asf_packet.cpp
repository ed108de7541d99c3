#include "formats/asf/asf_packet.h"

#include <algorithm>

namespace vex {
namespace {

constexpr std::uint8_t kCorrectionFlag = 0x80;
// Opaque data, the length type and the data length; what is accepted is plain data of two bytes.
constexpr std::uint8_t kCorrectionMask = 0x7F;
constexpr std::uint8_t kCorrectionPlain = 0x02;
constexpr std::uint8_t kStreamMask = 0x7F;
constexpr std::uint8_t kKeyFrameFlag = 0x80;

std::uint32_t ReadField(GByteReader& reader, unsigned lengthType)
{
    switch (static_cast<GAsfWidth>(lengthType & 3)) {
    case GAsfWidth::None:
        return 0;
    case GAsfWidth::One:
        return reader.U8();
    case GAsfWidth::Two:
        return reader.U16LE();
    case GAsfWidth::Four:
        break;
    }
    return reader.U32LE();
}

bool ReadCorrection(GByteReader& reader, std::uint8_t flags)
{
    const std::uint8_t kind = reader.U8();
    reader.Skip(1);  // cycle
    return (flags & kCorrectionMask) == kCorrectionPlain && (kind & 0x0F) <= 2 && kind >> 4 <= 1;
}

}  // namespace

std::optional<GAsfPacket> ReadAsfPacket(GBytes bytes, const GAsfLimits& limits)
{
    GByteReader reader(bytes);
    GAsfPacket packet;
    packet.lengthFlags = reader.U8();
    if ((packet.lengthFlags & kCorrectionFlag) != 0) {
        packet.correction = true;
        if (!ReadCorrection(reader, packet.lengthFlags))
            return std::nullopt;
        packet.lengthFlags = reader.U8();
    }
    packet.propertyFlags = reader.U8();
    packet.length = ReadField(reader, packet.lengthFlags >> 5);
    ReadField(reader, packet.lengthFlags >> 1);  // sequence
    packet.padding = ReadField(reader, packet.lengthFlags >> 3);
    reader.Skip(4 + 2);  // send time, duration
    if (packet.IsMultiple())
        packet.payloadFlags = reader.U8();
    if (packet.length == 0)
        packet.length = limits.packetSize;
    packet.headerSize = static_cast<std::uint32_t>(reader.Pos());
    if (!reader.Ok() || packet.length < kAsfSmallestPacket || packet.length > limits.dataSize)
        return std::nullopt;
    return packet;
}

GAsfPayloadWalk::GAsfPayloadWalk(const GAsfPacket& announced, std::int64_t position, std::int64_t dataEnd)
    : packet(announced),
      at(position + announced.headerSize),
      padding(position + static_cast<std::int64_t>(announced.PayloadsEnd())),
      end(std::min(padding, dataEnd)),
      left(announced.PayloadCount())
{
    broken = at > padding;
}

std::optional<GAsfPayload> GAsfPayloadWalk::Fail()
{
    cutOff = end < padding;
    broken = !cutOff;
    return std::nullopt;
}

std::optional<GAsfPayload> GAsfPayloadWalk::Next(GScanWindow& window)
{
    if (left == 0 || broken || cutOff)
        return std::nullopt;
    if (at >= end)
        return Fail();
    GAsfPayload payload;
    const auto room = [this] { return static_cast<std::uint64_t>(end - at); };
    GByteReader reader(window.At(at, static_cast<std::size_t>(std::min<std::uint64_t>(room(), kAsfPayloadHeaderMax))));
    const std::uint8_t number = reader.U8();
    payload.stream = number & kStreamMask;
    payload.keyFrame = (number & kKeyFrameFlag) != 0;
    ReadField(reader, packet.propertyFlags >> 4);  // media object number
    payload.hasOffset = (packet.propertyFlags >> 2 & 3) != 0;
    payload.offset = ReadField(reader, packet.propertyFlags >> 2);
    payload.replicatedLength = ReadField(reader, packet.propertyFlags);
    const std::size_t headerSize = reader.Pos();
    if (payload.DescribesObject()) {
        payload.objectSize = reader.U32LE();
        payload.presentationMs = reader.U32LE();
    } else if (payload.IsCompressed()) {
        payload.deltaMs = reader.U8();
    }
    if (!reader.Ok() || payload.replicatedLength > room() - headerSize)
        return Fail();
    at += static_cast<std::int64_t>(headerSize + payload.replicatedLength);
    if (packet.IsMultiple()) {
        GByteReader length(window.At(at, static_cast<std::size_t>(std::min<std::uint64_t>(room(), 4))));
        payload.dataSize = ReadField(length, packet.payloadFlags >> 6);
        if (!length.Ok())
            return Fail();
        at += static_cast<std::int64_t>(length.Pos());
    } else {
        payload.dataSize = static_cast<std::uint64_t>(padding - at);
    }
    payload.dataPosition = at;
    if (payload.dataSize > room())
        return Fail();
    at += static_cast<std::int64_t>(payload.dataSize);
    --left;
    return payload;
}

bool IsSoundAsfPacket(GScanWindow& window, std::int64_t position, std::int64_t dataEnd, const GAsfLimits& limits)
{
    const auto room = static_cast<std::uint64_t>(std::max<std::int64_t>(dataEnd - position, 0));
    const auto packet = ReadAsfPacket(
        window.At(position, static_cast<std::size_t>(std::min<std::uint64_t>(room, kAsfPacketHeaderMax))), limits);
    if (!packet || packet->length > std::max<std::uint64_t>(limits.packetSize, kAsfSmallestPacket) ||
        packet->PayloadCount() == 0)
        return false;
    GAsfPayloadWalk walk(*packet, position, dataEnd);
    while (const auto payload = walk.Next(window)) {
        const std::uint32_t replicated = payload->replicatedLength;
        const bool sound = replicated < 2 || (replicated >= 8 && payload->offset <= payload->objectSize &&
                                              payload->objectSize <= limits.dataSize);
        if (!sound || payload->stream == 0)
            return false;
    }
    return walk.IsDone();
}

}  // namespace vex
