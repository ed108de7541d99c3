// The tags of an FLV file (FLV file format 10.1, annex E), and how one is distinguished from chance bytes.
// All numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "io/bytes.h"
#include "platform/pipeline.h"

namespace vex {

inline constexpr std::size_t kFlvHeaderSize = 11;  // bytes read of the file header; the last two are not used
inline constexpr std::size_t kFlvUnitSize = 15;    // a PreviousTagSize and the tag header behind it
inline constexpr std::size_t kFlvTrailerSize = 4;  // the PreviousTagSize alone
inline constexpr std::uint32_t kFlvTagHeaderSize = 11;
inline constexpr std::size_t kFlvCodecHeaderMax = 5;  // bytes a payload may begin with that are not the decoder's

inline constexpr REFERENCE_TIME kFlvUnitsPerMillisecond = 10'000;  // 100 ns

enum FlvTagType : std::uint8_t { kFlvAudio = 8, kFlvVideo = 9, kFlvScript = 18 };

// A PreviousTagSize and a tag header as stored.
struct GFlvUnit {
    std::uint32_t previousTagSize = 0;
    std::uint8_t type = 0;
    std::uint32_t dataSize = 0;  // 24 bits
    std::uint32_t timeMs = 0;    // TimestampExtended is its upper byte
    std::uint32_t streamId = 0;

    REFERENCE_TIME Time() const { return REFERENCE_TIME{timeMs} * kFlvUnitsPerMillisecond; }
    bool IsMedia() const { return type == kFlvAudio || type == kFlvVideo; }
    // Known type and the reserved stream number.
    bool IsWellFormed() const { return (IsMedia() || type == kFlvScript) && streamId == 0; }
};

// `bytes` has at least kFlvUnitSize.
GFlvUnit ReadFlvUnit(GBytes bytes);
// Whether `bytes` begin with a well-formed unit. Called at every byte of a search, so it tests the type first.
inline bool IsWellFormedFlvUnit(GBytes bytes)
{
    return bytes.size() >= kFlvUnitSize && (bytes[4] == kFlvAudio || bytes[4] == kFlvVideo || bytes[4] == kFlvScript) &&
           ReadFlvUnit(bytes).IsWellFormed();
}

// Whether a tag of `dataSize` bytes has `previousTagSize` behind it. Live recorders leave it at 0.
inline bool FlvSizesAgree(std::uint32_t previousTagSize, std::uint32_t dataSize)
{
    return previousTagSize == kFlvTagHeaderSize + dataSize;
}
// Whether `next` can be what follows a tag of `dataSize` bytes. With a matching size one of type and stream number may
// be unknown; without a size both have to be valid.
bool FlvFollows(const GFlvUnit& next, std::uint32_t dataSize);

// The tag that reading has come to. Positions are bytes from the start of the file.
struct FlvTag {
    std::int64_t unitPos = 0;     // of its PreviousTagSize
    std::int64_t payloadPos = 0;  // of what is delivered
    std::int64_t nextPos = 0;     // of the next unit
    std::uint8_t type = 0;        // kFlvScript for tags that are not delivered: codec headers, commands, empty ones
    std::uint8_t header = 0;      // first payload byte of an audio or video tag
    std::uint32_t size = 0;       // bytes to deliver
    REFERENCE_TIME time = 0;      // 100 ns, composition time included: may be negative

    bool IsAudio() const { return type == kFlvAudio; }
    bool IsVideo() const { return type == kFlvVideo; }
    // A video tag at which decoding can start. Bit 6 is not looked at.
    bool IsVideoKey() const { return IsVideo() && (header & 0x30) == 0x10; }
};

// Fills all of `tag` but its unitPos and nextPos. `dataSize`: bytes of the payload, which may differ from what the unit
// declares; `start`: its first bytes, of which kFlvCodecHeaderMax are enough. False when the payload is shorter than
// the codec header it should begin with.
bool FillFromPayload(FlvTag& tag, const GFlvUnit& unit, std::uint32_t dataSize, GBytes start);

}  // namespace vex
