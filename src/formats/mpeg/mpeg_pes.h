// The header of a PES packet (ISO/IEC 13818-1 clause 2.4.3.6) and of an MPEG-1 packet (ISO/IEC 11172-1 clause 2.4.3.3).
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

// The last byte of a start code.
namespace mpeg_code {
inline constexpr std::uint8_t kEnd = 0xB9;
inline constexpr std::uint8_t kPack = 0xBA;
inline constexpr std::uint8_t kSystemHeader = 0xBB;
inline constexpr std::uint8_t kStreamMap = 0xBC;
inline constexpr std::uint8_t kPrivate1 = 0xBD;
inline constexpr std::uint8_t kPadding = 0xBE;
inline constexpr std::uint8_t kPrivate2 = 0xBF;
inline constexpr std::uint8_t kExtended = 0xFD;
constexpr bool IsAudio(std::uint8_t id) { return id >= 0xC0 && id <= 0xDF; }
constexpr bool IsVideo(std::uint8_t id) { return id >= 0xE0 && id <= 0xEF; }
}  // namespace mpeg_code

inline constexpr std::size_t kPesPrefixSize = 6;        // start code and length
inline constexpr std::size_t kMostPesHeader = 9 + 255;  // bytes

enum class GPesSyntax : std::uint8_t {
    Mpeg2,
    Either,  // told apart by the first bits, as program streams mix them
};

enum class GPesResult : std::uint8_t { Whole, NeedMore, Malformed };

struct GPesHeader {
    std::uint8_t streamId = 0;
    std::uint8_t extension = 0;        // stream_id_extension of an extended stream; 0 when absent
    std::uint32_t packetLength = 0;    // bytes behind the length; 0: up to the next packet
    std::size_t headerSize = 0;        // bytes from the start code to the payload
    std::optional<std::uint64_t> pts;  // 33 bits
    bool scrambled = false;

    bool Unbounded() const { return packetLength == 0; }
    // Bytes of the payload of a bounded packet.
    std::size_t PayloadSize() const { return packetLength + kPesPrefixSize - headerSize; }
};

inline bool HasStartCode(GBytes bytes) { return bytes.size() >= 4 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1; }

// The header that `bytes` begin with.
GPesResult ReadPesHeader(GBytes bytes, GPesSyntax syntax, GPesHeader& header);

// A stream of a program stream: the stream id; with the sub-stream number of private stream 1, or the extension of an
// extended stream, below it, so that the numbers of both never meet.
constexpr std::uint32_t ProgramStreamKey(std::uint8_t streamId, std::uint8_t subStream)
{
    const bool shared = streamId == mpeg_code::kPrivate1 || streamId == mpeg_code::kExtended;
    return shared ? streamId * 0x100u + subStream : streamId;
}

}  // namespace vex
