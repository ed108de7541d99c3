// The bodies of the objects within the Header Object.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "formats/asf/asf_header.h"
#include "io/byte_reader.h"
#include "io/result.h"

namespace vex {

// Of the Extended Stream Properties Object.
struct GAsfExtendedStream {
    std::uint16_t number = kAsfNoStream;
    std::uint32_t dataBitRate = 0;  // bit/s
    std::uint16_t languageIndex = 0;
    std::uint64_t timePerFrame = 0;  // 100 ns
};

// What is known of streams before all of them are.
struct GAsfStreamFacts {
    std::vector<GAsfExtendedStream> extended;
    std::vector<std::string> languages;                           // UTF-8
    std::array<std::uint32_t, kAsfStreamNumbers> averageRates{};  // bit/s
};

// Each takes a reader over the object's body.
GStatus ReadAsfFileProperties(GByteReader body, GAsfHeader& header);
// A stream whose format cannot be read is there, without a media type.
GResult<std::unique_ptr<GAsfEXReadStream>> ReadAsfStreamProperties(GByteReader body);
bool ReadAsfStreamBitrates(GByteReader body, GAsfStreamFacts& facts);
bool ReadAsfExclusion(GByteReader body, GAsfExclusions& exclusions);
bool ReadAsfGroupExclusion(GByteReader body, GAsfExclusions& exclusions);
bool ReadAsfLanguages(GByteReader body, GAsfStreamFacts& facts);
// `embedded` becomes the body of a Stream Properties Object inside it, if there is one.
bool ReadAsfExtendedStream(GByteReader body, GAsfStreamFacts& facts, std::optional<GByteReader>& embedded);

}  // namespace vex
