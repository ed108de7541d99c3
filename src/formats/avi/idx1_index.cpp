#include "formats/avi/idx1_index.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "io/byte_reader.h"

namespace vex {
namespace {

constexpr std::uint32_t kEntrySize = 16;
// Six hundred thousand entries: over five hours of video with its audio.
constexpr std::uint32_t kMaxIndexSize = 600'000 * kEntrySize;
constexpr std::uint32_t kKeyFrameFlag = 0x10;

struct GIdx1Entry {
    std::uint32_t code;
    std::uint32_t flags;
    std::uint32_t offset;  // of the chunk header, from the "movi" code or from the start of the file
    std::uint32_t size;
};

GIdx1Entry ReadEntry(GByteReader& reader)
{
    GIdx1Entry entry{};
    entry.code = reader.FourCC();
    entry.flags = reader.U32LE();
    entry.offset = reader.U32LE();
    entry.size = reader.U32LE();
    return entry;
}

bool ChunkBeginsAt(GFileBase& source, std::int64_t position, std::uint32_t code)
{
    GRiffChunk chunk;
    return position >= 0 && ReadRiffHeader(source, position, chunk) && chunk.code == code;
}

// What is added to an entry's offset to get the position of its chunk header. The first entry is the first chunk of
// the list, which settles both conventions at once. Where that chunk is not found there (the list begins with a chunk
// that the index leaves out), each convention is tried by itself.
std::int64_t FindBase(GFileBase& source, GByteReader entries, const GAviLayout& layout)
{
    const std::int64_t movi = layout.moviRanges.front().start;
    GByteReader first = entries;
    const std::int64_t base = movi - std::int64_t{ReadEntry(first).offset} + 4;
    while (entries.Left() >= kEntrySize) {
        const GIdx1Entry entry = ReadEntry(entries);
        if (!layout.FindStream(entry.code))
            continue;
        for (const std::int64_t candidate : {base, movi, std::int64_t{0}}) {
            if (ChunkBeginsAt(source, candidate + entry.offset, entry.code))
                return candidate;
        }
        break;
    }
    return base;
}

}  // namespace

GStatus LoadIdx1(GFileBase& source, const GRiffChunk& chunk, GAviLayout& layout, GDamageLog& damage)
{
    const auto position = static_cast<std::uint64_t>(chunk.position);
    if (layout.indexRefused)
        return GError{GErrorKind::Malformed, "the file is shorter than its other index says", position};
    if (chunk.size > kMaxIndexSize)
        return GError{GErrorKind::Limit, "idx1 is too large", position};
    if (layout.moviRanges.empty())
        return GError{GErrorKind::Malformed, "idx1 precedes the movi list", position};
    if (chunk.BodyEnd() > source.GetSize())
        return GError{GErrorKind::NeedMoreData, "idx1 is cut off", position};
    std::vector<std::uint8_t> bytes(chunk.size);
    if (!ReadExactly(source, chunk.Body(), bytes.data(), chunk.size))
        return GError{GErrorKind::Io, "idx1 cannot be read", position};

    // A stream that another index has filled takes no entries.
    std::vector<const GAvi2ReadStream*> filled;
    for (const auto& stream : layout.streams) {
        if (!stream->IsEmpty())
            filled.push_back(stream.get());
    }

    GByteReader reader(bytes, static_cast<std::uint64_t>(chunk.Body()));
    const std::int64_t base = reader.Left() >= kEntrySize ? FindBase(source, reader, layout) : 0;
    while (reader.Left() >= kEntrySize) {
        const auto entryPosition = static_cast<std::int64_t>(reader.FilePos());
        const GIdx1Entry entry = ReadEntry(reader);
        GAvi2ReadStream* const stream = layout.FindStream(entry.code);
        if (!stream || std::ranges::find(filled, stream) != filled.end())
            continue;
        const std::int64_t payload = base + entry.offset + kRiffHeaderSize;
        if (payload < 0 ||
            !stream->Append(payload, entry.size, (entry.flags & kKeyFrameFlag) != 0, GAviAppend::NotBefore))
            damage.Add("idx1 entry goes backwards", entryPosition);
    }
    if (std::ranges::all_of(layout.streams, [](const auto& stream) { return stream->IsEmpty(); }))
        return GError{GErrorKind::Malformed, "idx1 names no chunk of any stream", position};
    return {};
}

}  // namespace vex
