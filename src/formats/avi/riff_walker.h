// Chunks of a RIFF file: a code, a 32-bit size, the body, a pad byte after an odd size.
#pragma once

#include <cstdint>
#include <limits>

#include "io/file_base.h"
#include "io/fourcc.h"

namespace vex {

inline constexpr std::uint32_t kRiffCode = FourCC("RIFF");
inline constexpr std::uint32_t kListCode = FourCC("LIST");
inline constexpr std::uint32_t kJunkCode = FourCC("JUNK");
inline constexpr std::uint32_t kRiffHeaderSize = 8;       // code and size
inline constexpr std::uint32_t kRiffListHeaderSize = 12;  // with the list type

// The end of something whose size its writer never came to fill in: as far as the file goes.
inline constexpr std::int64_t kRiffEndUnknown = std::numeric_limits<std::int64_t>::max();

// Reads exactly `count` bytes at `position`; false when the source does not reach there or holds fewer.
bool ReadExactly(GFileBase& source, std::int64_t position, void* buffer, std::uint32_t count);

struct GRiffChunk {
    std::uint32_t code = 0;
    std::uint32_t size = 0;     // bytes, as declared
    std::int64_t position = 0;  // of the code

    std::int64_t Body() const { return position + kRiffHeaderSize; }
    std::int64_t BodyEnd() const { return Body() + size; }
    std::int64_t Next() const { return BodyEnd() + (size & 1); }
};

// Reads the header at `position`; false when the source holds no eight bytes there.
bool ReadRiffHeader(GFileBase& source, std::int64_t position, GRiffChunk& chunk);
// Reads the type that the body of a list begins with; false when it is not there.
bool ReadListType(GFileBase& source, const GRiffChunk& list, std::uint32_t& type);

// Steps over the chunks in [start, end). The last one may run past the end: what its declared size covers is its own.
class GRiffWalker {
public:
    GRiffWalker(GFileBase& file, std::int64_t start, std::int64_t endPosition)
        : source(file), position(start), end(endPosition)
    {
    }

    // False at the end of the range or of the file. Wherever the source was left meanwhile does not matter.
    bool Next(GRiffChunk& chunk);
    // Goes on with the chunks in `list`, and with what follows it as if that were in it too.
    void Enter(const GRiffChunk& list) { position = list.Body() + 4; }
    // Where the next chunk would begin; may lie past the end of the file.
    std::int64_t Position() const { return position; }

private:
    GFileBase& source;
    std::int64_t position;
    std::int64_t end;
};

}  // namespace vex
