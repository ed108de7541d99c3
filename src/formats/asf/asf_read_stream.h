// One stream of an ASF file: what the header says of it, and the media object that payloads are joined into.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "dshow/media_type.h"
#include "framework/contract/packet.h"
#include "io/bytes.h"

namespace vex {

inline constexpr std::uint16_t kAsfNoStream = 0xFFFF;
inline constexpr std::size_t kAsfStreamNumbers = 128;  // seven bits

enum class GAsfKind : std::uint8_t {
    Audio = 1,
    Video = 2,
    Other = 3,
};

// How an audio object's bytes are interleaved over `span` rows.
struct GAsfSpread {
    std::uint8_t span = 0;           // rows
    std::uint16_t packetLength = 0;  // bytes of a row
    std::uint16_t chunkLength = 0;   // bytes
    std::uint16_t silenceLength = 0;
};

// Puts an interleaved object back into order; one that cannot be interleaved stays as it is. `spare` is overwritten.
void DescrambleAsfAudio(const GAsfSpread& spread, GBuffer& object, GBuffer& spare);

// What became of a payload.
enum class GAsfJoin : std::uint8_t {
    Joined,
    Skipped,    // its object began before reading did
    Malformed,  // it contradicts the object in progress
};

class GAsfEXReadStream {
public:
    // A payload whose replicated data describe its object.
    struct GObjectStart {
        bool keyFrame = false;
        std::uint32_t size = 0;                 // bytes of the whole object
        std::optional<std::uint32_t> offset{};  // bytes of the object ahead of this payload; nothing: not said
        REFERENCE_TIME time = 0;                // 100 ns, preroll included
    };

    // Decides whether `payloadSize` bytes may be appended, and starts an object where one is due. Joined: Append what
    // was announced. Skipped, too, when there is no memory for the object.
    GAsfJoin Begin(const GObjectStart& start, std::uint64_t payloadSize);
    // The same for a payload without replicated data.
    GAsfJoin Continue(std::uint64_t payloadSize);
    // Bytes of a payload that Begin or Continue took. False when memory ran short: the object is dropped.
    bool Append(GBytes bytes);
    // The object in progress has all its bytes. One of no bytes counts too.
    bool IsComplete() const { return receiving && object.Size() == objectSize; }
    // Hands the complete object out, in order. `data` gets its bytes, and its own buffer serves the next object.
    void Take(GBuffer& data);
    // Forgets the object in progress.
    void Drop();

    // Set while the header is read, constant afterwards.
    std::uint16_t number = kAsfNoStream;
    GAsfKind kind = GAsfKind::Other;
    bool enabled = false;  // there is a media type for it
    bool selected = false;
    bool encrypted = false;
    REFERENCE_TIME timeOffset = 0;     // 100 ns, added to every object's time
    std::optional<GAsfSpread> spread;  // audio only
    CMediaType mediaType;
    std::uint64_t bitRate = 0;  // bit/s, 0 when nothing says so
    std::string language;       // as the Language List has it, UTF-8; empty when there is none

    // The object in progress.
    bool receiving = false;
    bool keyFrame = false;
    std::uint32_t objectSize = 0;         // bytes
    REFERENCE_TIME presentationTime = 0;  // 100 ns, preroll included

private:
    bool Start(const GObjectStart& start);

    GBuffer object;  // the bytes received
    GBuffer spare;   // for the descrambler
};

}  // namespace vex
