// Writes ASF files for tests, with one thing wrong where a test asks for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "formats/asf/asf_object.h"

namespace vex::test {

// Numbers are little-endian.
struct GAsfBytes {
    std::vector<std::uint8_t> bytes;

    GAsfBytes& Number(std::uint64_t value, unsigned count);
    GAsfBytes& Raw(const std::vector<std::uint8_t>& more);
    GAsfBytes& Zeros(std::size_t count) { return Raw(std::vector<std::uint8_t>(count)); }
    GAsfBytes& Id(GAsfId id);
    // `size`: what the object claims instead of its own.
    GAsfBytes& Object(GAsfId id, const GAsfBytes& body, std::optional<std::uint64_t> size = {});
    std::size_t Size() const { return bytes.size(); }
};

struct GAsfTestStream {
    std::uint16_t number = 1;
    bool video = false;
    std::uint32_t bytesPerSecond = 1000;  // audio
    std::vector<std::uint8_t> spread{};   // error-correction data of Audio Spread
    std::uint64_t timeOffset = 0;         // 100 ns
    bool encrypted = false;
};
// PCM, or WMV 8 of 64 x 48 with four bytes behind the bitmap header.
GAsfBytes StreamProperties(const GAsfTestStream& stream);
GAsfBytes ExtendedStream(std::uint16_t number, std::uint32_t bitRate, std::uint16_t language,
                         const GAsfBytes& embedded = {});
GAsfBytes LanguageList(const std::vector<std::string>& codes);
GAsfBytes Numbers(const std::vector<std::uint16_t>& numbers);  // a count and the numbers

struct GAsfTestFile {
    std::uint64_t playDurationMs = 5'000;  // preroll included
    std::uint64_t prerollMs = 1'000;
    std::uint32_t packetSize = 100;
    std::uint32_t flags = 2;
    std::vector<GAsfTestStream> streams{{.number = 1}, {.number = 2, .video = true}};
    GAsfBytes children{};   // of the header, behind the streams
    GAsfBytes extension{};  // children of the Header Extension Object; none: no such object
    GAsfBytes packets{};
    GAsfBytes behindData{};
    std::optional<std::uint64_t> headerSize{};
    std::optional<std::uint64_t> dataSize{};

    std::vector<std::uint8_t> Bytes() const;
    // Of the first packet.
    std::int64_t DataStart() const;

private:
    GAsfBytes Header() const;
};

struct GAsfTestPayload {
    std::uint8_t stream = 1;
    bool key = false;
    std::uint32_t timeMs = 1'000;
    std::uint32_t objectSize = 0;
    std::vector<std::uint8_t> data{};
    std::uint32_t offset = 0;
    std::uint8_t replicated = 8;  // 1: compressed, the offset is the time
    std::uint8_t deltaMs = 0;     // compressed
};
// A payload that is a whole object.
GAsfTestPayload Whole(std::uint8_t stream, std::uint32_t timeMs, std::vector<std::uint8_t> data, bool key = true);

// Length types: 0 none, 1, 2 or 3 for 1, 2 or 4 bytes.
struct GAsfPacketShape {
    bool correction = true;
    bool multiple = true;  // a single payload fills the packet up to its padding
    unsigned packetType = 0;
    unsigned sequenceType = 0;
    unsigned paddingType = 2;
    unsigned replicatedType = 1;
    unsigned offsetType = 3;
    unsigned objectType = 1;
    unsigned payloadType = 2;
};
// Of exactly `size` bytes, the rest is padding.
GAsfBytes Packet(const std::vector<GAsfTestPayload>& payloads, std::uint32_t size = 100,
                 const GAsfPacketShape& shape = {});

GAsfBytes SimpleIndex(std::uint64_t interval, const std::vector<std::uint32_t>& packets);

// `pictures` of 40 ms, a packet each, with a key frame every `group`, a sound object beside each, and a simple index of
// one entry for each second.
GAsfTestFile AsfFilm(unsigned pictures, unsigned group);
// A film with every kind of header object, payload and index once.
GAsfTestFile AsfEverything();

}  // namespace vex::test
