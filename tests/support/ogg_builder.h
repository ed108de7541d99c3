// Makes Ogg files page by page (RFC 3533), and the header packets of the codecs in them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/bytes.h"

namespace vex::test {

using GOggBytes = GTestBytes;

struct GOggTestPage {
    std::uint32_t serial = 1;
    std::uint32_t number = 0;
    std::int64_t granule = 0;
    std::vector<GOggBytes> packets{};
    bool begins = false;
    bool ends = false;
    bool continued = false;  // the first packet goes on from the page before
    bool open = false;       // the last packet, a multiple of 255 bytes long, goes on on the next page
};

// With a right checksum.
GOggBytes Page(const GOggTestPage& page);

// The fields of a Theora identification header that tests vary.
struct GTheoraTestHeader {
    std::uint32_t version = 0x030201;
    std::uint32_t width = 320;
    std::uint32_t height = 240;
    std::uint32_t rateNumerator = 25;
    std::uint32_t rateDenominator = 1;
    unsigned granuleShift = 6;
};
// Identification, comments, setup.
std::vector<GOggBytes> TheoraHeaders(const GTheoraTestHeader& header = {},
                                     const std::vector<std::string>& comments = {});
// Blocks of 256 and 2048 samples; packets that begin with 0x00 and 0x02.
// `hugeBook`: the code book has four million entries, which takes no more bytes.
std::vector<GOggBytes> VorbisHeaders(std::uint32_t rate, const std::vector<std::string>& comments = {},
                                     bool hugeBook = false);
inline const GOggBytes kShortBlock{0x00, 1};
inline const GOggBytes kLongBlock{0x02, 2};

struct GOgmTestHeader {
    std::string type;     // "video", "audio", "text"
    std::string subtype;  // 4 bytes
    std::uint32_t size = 56;
    std::int64_t timeUnit = 10'000;
    std::int64_t samplesPerUnit = 1;
    std::int32_t defaultLength = 1;
    std::int32_t bufferSize = 4096;
    std::uint16_t bits = 0;
    std::uint64_t tail = 0;  // the eight bytes of width and height, or of channels, block align and byte rate
    GOggBytes extra{};
};
GOggBytes OgmHeader(const GOgmTestHeader& header);
// The comments of Vorbis and OGM streams.
GOggBytes CommentHeader(const std::vector<std::string>& comments);

// The pages of the headers: the first alone, then the others.
GOggBytes HeaderPages(std::uint32_t serial, const std::vector<GOggBytes>& headers);

// A Theora stream of serial 1 with `frames` frames of 25 a second, one a page, a key frame every 8; then sound of
// serial 2 when there is any. The page number of frame n is n + 2.
GOggBytes TheoraFile(unsigned frames, std::size_t frameSize = 40, bool sound = false);
GOggBytes TheoraPage(unsigned frame, std::size_t size);
// A Vorbis stream of serial 1 at 48 kHz: `pages` pages of `perPage` long blocks.
GOggBytes VorbisFile(unsigned pages, unsigned perPage, std::size_t packetSize = 60);
GOggBytes VorbisPage(unsigned page, unsigned perPage, std::size_t packetSize = 60, std::uint32_t serial = 1);

}  // namespace vex::test
