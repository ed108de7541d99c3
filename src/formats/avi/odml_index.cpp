#include "formats/avi/odml_index.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace vex {
namespace {

constexpr std::uint8_t kIndexOfIndexes = 0;
constexpr std::uint8_t kIndexOfChunks = 1;
constexpr std::uint8_t kIndexOfTimedChunks = 2;
constexpr std::uint8_t kFieldIndex = 1;  // sub-type

constexpr std::uint32_t kHeaderSize = 24;
constexpr std::uint32_t kSuperEntrySize = 16;
constexpr std::uint32_t kStandardEntrySize = 8;
constexpr std::uint32_t kFieldEntrySize = 12;
// Index chunks are read in pieces that hold whole entries of both sizes.
constexpr std::uint32_t kPieceSize = 48u << 10;
static_assert(kPieceSize % kStandardEntrySize == 0 && kPieceSize % kFieldEntrySize == 0);

constexpr std::uint32_t kNoKeyFrameBit = 0x80000000u;
constexpr auto kMaxPosition = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

}  // namespace

struct GOdmlIndexLoader::GHeader {
    std::uint8_t subType = 0;
    std::uint8_t type = 0;
    std::uint32_t entries = 0;
    std::uint64_t baseOffset = 0;  // of an index of chunks
    bool sound = false;
};

GOdmlIndexLoader::GOdmlIndexLoader(GFileBase& file, GAviLayout& fileLayout, GDamageLog& damageLog)
    : source(file), layout(fileLayout), damage(damageLog), budget(file.GetSize())
{
}

GOdmlIndexLoader::GHeader GOdmlIndexLoader::ReadHeader(GByteReader& reader)
{
    GHeader header;
    reader.Skip(2);  // longs per entry: the types have fixed entries
    header.subType = reader.U8();
    header.type = reader.U8();
    header.entries = reader.U32LE();
    reader.Skip(4);  // chunk code
    header.baseOffset = reader.U64LE();
    reader.Skip(4);
    header.sound = reader.Ok();
    return header;
}

GOdmlIndexLoader::GSuperEntry GOdmlIndexLoader::ReadSuperEntry(GByteReader& reader)
{
    GSuperEntry entry;
    entry.offset = reader.U64LE();
    entry.size = reader.U32LE();
    entry.duration = reader.U32LE();
    return entry;
}

// 0 for an index that is not one of chunks.
std::uint32_t GOdmlIndexLoader::EntrySize(const GHeader& header)
{
    if (header.subType == kFieldIndex && (header.type == kIndexOfChunks || header.type == kIndexOfTimedChunks))
        return kFieldEntrySize;
    return header.subType == 0 && header.type == kIndexOfChunks ? kStandardEntrySize : 0;
}

std::optional<std::uint64_t> GOdmlIndexLoader::AnnouncedLength(GByteReader body)
{
    const GHeader header = ReadHeader(body);
    if (!header.sound || header.type != kIndexOfIndexes)
        return std::nullopt;
    std::uint64_t sum = 0;
    for (std::uint32_t i = 0; i < header.entries && body.Left() >= kSuperEntrySize; ++i)
        sum += ReadSuperEntry(body).duration;
    return sum;
}

void GOdmlIndexLoader::Load(GAvi2ReadStream& stream, GByteReader body)
{
    const auto position = static_cast<std::int64_t>(body.FilePos());
    const GHeader header = ReadHeader(body);
    if (!header.sound) {
        damage.Add("OpenDML index is cut off", position);
        return;
    }
    if (header.type == kIndexOfIndexes) {
        LoadSuper(stream, header, body);
    } else if (const std::uint32_t size = EntrySize(header); size != 0) {
        AddEntries(stream, header, body, std::min<std::uint64_t>(header.entries, body.Left() / size));
    }
}

void GOdmlIndexLoader::LoadSuper(GAvi2ReadStream& stream, const GHeader& header, GByteReader entries)
{
    const auto position = static_cast<std::int64_t>(entries.FilePos());
    const std::size_t held = entries.Left() / kSuperEntrySize;
    if (header.entries > held)
        damage.Add("OpenDML index declares more entries than it holds", position);
    const std::size_t count = std::min<std::size_t>(header.entries, held);
    if (count == 0)
        return;

    GByteReader reader = entries;
    reader.Skip(std::uint64_t{count - 1} * kSuperEntrySize);
    const GSuperEntry last = ReadSuperEntry(reader);
    const auto fileSize = static_cast<std::uint64_t>(source.GetSize());
    if (last.offset > fileSize || last.size > fileSize - last.offset) {
        damage.Add("OpenDML index points beyond the end of the file", position);
        layout.expectedEnd =
            std::max(layout.expectedEnd, static_cast<std::int64_t>(std::min(last.offset, kMaxPosition)));
        layout.index = GAviIndex::None;
        layout.indexRefused = true;
        return;
    }
    if (!layout.indexRefused)
        layout.index = GAviIndex::OpenDml;
    for (std::size_t i = 0; i < count; ++i)
        LoadChunk(stream, ReadSuperEntry(entries));
}

void GOdmlIndexLoader::LoadChunk(GAvi2ReadStream& stream, const GSuperEntry& where)
{
    constexpr std::uint32_t kFixed = kRiffHeaderSize + kHeaderSize;
    const auto position = static_cast<std::int64_t>(std::min(where.offset, kMaxPosition));
    std::vector<std::uint8_t> piece(kFixed);
    if (!ReadExactly(source, position, piece.data(), kFixed)) {
        damage.Add("OpenDML index chunk is missing", position);
        return;
    }
    GByteReader reader(piece, where.offset);
    reader.Skip(4);
    const std::uint64_t chunkSize = std::uint64_t{reader.U32LE()} + kRiffHeaderSize;
    const GHeader header = ReadHeader(reader);
    const std::uint32_t entrySize = EntrySize(header);
    if (entrySize == 0)
        return;

    // Some writers leave the chunk's header out of the size they announce, so the larger of the two is meant.
    const std::uint64_t claimed = std::max<std::uint64_t>(where.size, chunkSize);
    const auto backed = static_cast<std::uint64_t>(source.GetSize() - position);
    const std::uint64_t room = std::min(claimed, backed);
    std::uint64_t left = room > kFixed ? std::min<std::uint64_t>(header.entries, (room - kFixed) / entrySize) : 0;
    budget -= kFixed + static_cast<std::int64_t>(left * entrySize);
    if (left < header.entries || budget < 0)
        damage.Add("OpenDML index chunk declares more entries than it holds", position);
    if (budget < 0)
        return;
    for (std::int64_t at = position + kFixed; left > 0; at += kPieceSize) {
        const std::uint64_t count = std::min<std::uint64_t>(left, kPieceSize / entrySize);
        piece.resize(static_cast<std::size_t>(count * entrySize));
        if (!ReadExactly(source, at, piece.data(), static_cast<std::uint32_t>(piece.size()))) {
            damage.Add("OpenDML index chunk cannot be read", at);
            return;
        }
        GByteReader entries(piece, static_cast<std::uint64_t>(at));
        AddEntries(stream, header, entries, count);
        left -= count;
    }
}

void GOdmlIndexLoader::AddEntries(GAvi2ReadStream& stream, const GHeader& header, GByteReader& entries,
                                  std::uint64_t count)
{
    const bool fields = EntrySize(header) == kFieldEntrySize;
    for (std::uint64_t i = 0; i < count; ++i) {
        const auto entryPosition = static_cast<std::int64_t>(entries.FilePos());
        const std::uint32_t offset = entries.U32LE();
        const std::uint32_t size = entries.U32LE();
        if (fields)
            entries.Skip(4);  // offset of the second field
        // Half of all positions are beyond any file, which leaves room for the sum.
        const bool reachable = header.baseOffset <= kMaxPosition / 2;
        if (!reachable || !stream.Append(static_cast<std::int64_t>(header.baseOffset) + offset, size & ~kNoKeyFrameBit,
                                         (size & kNoKeyFrameBit) == 0, GAviAppend::Beyond))
            damage.Add("OpenDML index entry goes backwards", entryPosition);
    }
}

}  // namespace vex
