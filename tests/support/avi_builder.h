// Writes AVI files for tests, with any of the indexes there are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/riff_builder.h"

namespace vex::test {

struct GAviTestStream {
    std::string type = "vids";
    std::uint32_t scale = 1;
    std::uint32_t rate = 25;
    std::uint32_t suggestedBufferSize = 0;
    std::uint32_t sampleSize = 0;
    std::vector<std::uint8_t> format;  // body of "strf"
};

// 320 x 240 at `rate` frames per second.
GAviTestStream VideoStream(const std::string& fourCC = "XVID", std::uint32_t rate = 25);
// 16-bit stereo PCM, counted in bytes.
GAviTestStream PcmStream(std::uint32_t samplesPerSecond = 8000);

std::vector<std::uint8_t> BitmapFormat(const std::string& fourCC, std::int32_t width, std::int32_t height);
std::vector<std::uint8_t> WaveFormat(std::uint16_t tag, std::uint16_t channels, std::uint32_t samplesPerSecond,
                                     std::uint32_t bytesPerSecond, std::uint16_t blockAlign);

// The two characters that begin the codes of a stream's chunks.
std::string AviStreamCode(std::size_t stream);

struct GAviTestChunk {
    std::string code;
    std::vector<std::uint8_t> payload;
    bool keyFrame = true;
};
// A payload of `size` bytes that all are `fill`.
GAviTestChunk Chunk(const std::string& code, std::size_t size, std::uint8_t fill = 0xAA, bool keyFrame = true);
// An MPEG-4 Visual picture (ISO/IEC 14496-2): a VOP of coding type I or P.
GAviTestChunk Mpeg4Chunk(const std::string& code, std::size_t size, bool keyFrame);

enum class GAviTestIndex : std::uint8_t {
    None,
    Idx1Relative,   // offsets from the "movi" code
    Idx1Absolute,   // offsets from the start of the file
    OpenDml,        // super indexes, and a standard index for every stream in every RIFF
    OpenDmlFields,  // the same with field indexes
};

struct GAviTestFile {
    std::vector<GAviTestStream> streams;
    std::vector<std::vector<GAviTestChunk>> parts;  // one RIFF each
    GAviTestIndex index = GAviTestIndex::Idx1Relative;
    bool recLists = false;           // every chunk in a "rec " list of its own
    std::size_t junkBeforeData = 0;  // bytes of a JUNK chunk at the start of every "movi" list; 0: none
    std::uint32_t totalFrames = 0;   // of 40 ms

    std::vector<std::uint8_t> Build() const;
};

// Where `code` first stands in `file` at or behind `from`.
std::size_t PositionOf(const std::vector<std::uint8_t>& file, const std::string& code, std::size_t from = 0);
}  // namespace vex::test
