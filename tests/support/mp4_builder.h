// Writes MP4 files for tests: one "mdat", then "moov". Any byte can be broken afterwards.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/bytes.h"

namespace vex::test {

using GMp4Bytes = GTestBytes;

GMp4Bytes Bigs(std::initializer_list<std::uint32_t> values);
GMp4Bytes Box(std::string_view type, const GMp4Bytes& payload);
// With a version and flags of 0.
GMp4Bytes FullBox(std::string_view type, const GMp4Bytes& payload);
// The position of the `which`-th box of a type, as its four letters are met first; throws when there is none.
std::size_t FindBox(const GMp4Bytes& file, std::string_view type, std::size_t which = 0);
void Put32(GMp4Bytes& file, std::size_t position, std::uint32_t value);

// An "esds" of one decoder configuration.
GMp4Bytes Esds(std::uint8_t objectType, const GMp4Bytes& specific);

struct GMp4TestTrack {
    std::uint32_t id = 1;
    std::string handler = "vide";
    std::uint32_t timescale = 1000;
    std::uint32_t duration = 4000;
    std::string entry = "mp4v";
    std::uint16_t version = 0;
    std::array<std::uint16_t, 3> sound{2, 16, 44100};  // channels, bits, Hz
    std::array<std::uint32_t, 4> packing{};            // version 1: P, B, F, S
    std::array<std::uint16_t, 3> picture{16, 8, 24};   // width, height, depth
    GMp4Bytes children{};                              // of the sample entry
    std::vector<std::array<std::uint32_t, 2>> stts{};  // count, delta
    std::vector<std::array<std::uint32_t, 3>> stsc{{1, 1, 1}};
    std::uint32_t constantSize = 0;
    std::uint32_t constantCount = 0;
    std::vector<std::uint32_t> sizes{};
    std::vector<std::uint32_t> stss{};  // empty: no table
    std::vector<GMp4Bytes> chunks{};    // their bytes
    bool co64 = false;
    std::string language = "eng";

    GMp4Bytes Trak(const std::vector<std::uint64_t>& offsets) const;
};

struct GMp4TestFile {
    std::vector<GMp4TestTrack> tracks{};
    std::uint32_t timescale = 1000;
    std::uint32_t duration = 4000;
    std::uint64_t offsetsLess = 0;  // chunk offsets are written as much too small
    GMp4Bytes start = Box("ftyp", {'i', 's', 'o', 'm', 0, 0, 0, 1});

    // Chunks take turns: the first of each track, the second of each ...
    GMp4Bytes Build() const;
    // The same in two parts.
    std::pair<GMp4Bytes, GMp4Bytes> DataAndMovie() const;
};
// The movie header ahead of the data, as a download needs it.
GMp4Bytes HeaderFirst(GMp4TestFile file);

// `count` pictures of 16 + i bytes i + 1, one to a chunk, 40 ms each, a sync sample every `interval`.
GMp4TestTrack NumberedVideo(std::uint32_t count, std::uint32_t interval = 1, std::uint32_t id = 1);
// Chunks of 16-bit stereo samples with constant sizes.
GMp4TestTrack PcmSound(const std::vector<std::uint32_t>& chunkSamples, std::uint32_t id = 2);

}  // namespace vex::test
