#include "formats/mp4/mp4_box_reader.h"

#include <algorithm>
#include <array>

#include "formats/mp4/mp4_box_kinds.h"
#include "formats/mp4/mp4_records.h"
#include "io/byte_reader.h"
#include "io/limits.h"

namespace vex {
namespace {

constexpr std::uint32_t kHeaderPeek = 32;  // the longest header is one with a 64-bit size and a UUID
constexpr std::uint32_t kFreePeek = 44;
constexpr unsigned kDescriptionsStart = 8;  // version, flags, count
constexpr unsigned kSoundEntrySize = 28;
constexpr unsigned kSoundEntrySize1 = 44;  // QuickTime version 1
constexpr unsigned kVideoEntrySize = 78;

}  // namespace

GMp4BoxReader::GMp4BoxReader(GFileBase& byteSource, GMp4BoxTree& boxTree, GDamageLog& damageLog,
                             const std::atomic<bool>& interruptFlag)
    : source(byteSource),
      tree(boxTree),
      damage(damageLog),
      interrupted(interruptFlag),
      sourceSize(static_cast<std::uint64_t>(std::max<std::int64_t>(byteSource.GetSize(), 0))),
      budget(sourceSize)
{
}

bool GMp4BoxReader::ReadRoot(std::uint64_t start)
{
    tree.Root().size = sourceSize;
    return ReadContainerChildren(tree.Root(), start, 0);
}

// Looks at the header at the source's position, which stays where it is.
std::optional<Mp4Box> GMp4BoxReader::ReadBoxHeader()
{
    const std::int64_t position = source.Tell();
    std::array<std::uint8_t, kHeaderPeek> bytes{};
    const std::uint32_t got = source.Read(bytes.data(), kHeaderPeek);
    source.Seek(position);
    GByteReader reader(GBytes(bytes).first(got));
    Mp4Box box;
    box.pos = static_cast<std::uint64_t>(position);
    box.shortSize = reader.U32BE();
    box.type = reader.FourCC();
    box.size = box.shortSize == 1 ? reader.U64BE() : box.shortSize;
    if (!reader.Ok())
        return {};
    return box;
}

// Null: the level ends here.
Mp4Box* GMp4BoxReader::ReadBox(Mp4Box& father, int depth)
{
    std::optional<Mp4Box> header = ReadBoxHeader();
    if (!header || header->size == 0)  // 0: to the end of the file, so nothing follows
        return nullptr;
    const auto position = static_cast<std::int64_t>(header->pos);
    if (header->size < header->HeaderLength()) {
        damage.Add("box is smaller than its header", position);
        return nullptr;
    }
    Mp4Box* const box = tree.NewBox();
    if (!box) {
        damage.Add("too many boxes", position);
        return nullptr;
    }
    *box = std::move(*header);
    box->father = &father;
    return ReadContent(*box, depth) ? box : nullptr;
}

namespace {

// "raw " is a sample entry of sound or of video: the track's handler says which.
GMp4BoxKind KindOf(Mp4Box& box)
{
    if (box.type == FourCC("raw ")) {
        const Mp4Box* const handler = GMp4BoxTree::GetBox(box, "../../../../hdlr");
        if (handler && ReadHandlerType(handler->data) == FourCC("vide"))
            return GMp4BoxKind::VideoEntry;
    }
    return KindOfBox(box.type);
}

}  // namespace

bool GMp4BoxReader::ReadContent(Mp4Box& box, int depth)
{
    const std::uint64_t payload = box.pos + box.HeaderLength();
    switch (KindOf(box)) {
    case GMp4BoxKind::Place:
        return true;
    case GMp4BoxKind::Free:
        if (!HidesMovieHeader(box))
            return true;
        box.type = FourCC("foov");
        [[fallthrough]];
    case GMp4BoxKind::Container:
        ReadContainerChildren(box, payload, depth + 1);
        return true;
    case GMp4BoxKind::CompressedHeader:
        if (box.father->type == FourCC("moov") || box.father->type == FourCC("foov"))
            ReadContainerChildren(box, payload, depth + 1);
        return true;
    case GMp4BoxKind::Leaf:
        return ReadPayload(box);
    case GMp4BoxKind::SampleDescriptions:
        return ReadContainerChildren(box, payload + kDescriptionsStart, depth + 1);
    case GMp4BoxKind::SoundEntry: {
        if (!ReadPayload(box))
            return false;
        GByteReader reader(box.data);
        reader.Skip(8);
        const bool longer = reader.U16BE() == 1 && box.data.size() >= kSoundEntrySize1;
        ReadContainerChildren(box, payload + (longer ? kSoundEntrySize1 : kSoundEntrySize), depth + 1);
        return true;
    }
    case GMp4BoxKind::VideoEntry:
        if (!ReadPayload(box))
            return false;
        ReadContainerChildren(box, payload + kVideoEntrySize, depth + 1);
        return true;
    }
    return true;
}

// False when the box has no room for any. `start` is where the first one may begin.
bool GMp4BoxReader::ReadContainerChildren(Mp4Box& box, std::uint64_t start, int depth)
{
    const std::uint64_t end = std::min(box.End(), sourceSize);
    if (start > end || end - start < 8)
        return false;
    if (depth > kMaxNestingDepth) {
        damage.Add("boxes are nested too deeply", static_cast<std::int64_t>(box.pos));
        return true;
    }
    const auto first = static_cast<std::int64_t>(start);
    if (source.Seek(first) != first)
        return false;
    while (!Interrupted()) {
        Mp4Box* const child = ReadBox(box, depth);
        if (!child)
            break;
        GMp4BoxTree::Append(box, *child);
        if (!GoToNext(*child, box))
            break;
    }
    return true;
}

bool GMp4BoxReader::GoToNext(const Mp4Box& box, const Mp4Box& father)
{
    const std::uint64_t next = box.End();
    // Behind the fields of a sample entry there may be anything.
    if (next > sourceSize && (&father == &tree.Root() || KindOfBox(box.type) != GMp4BoxKind::Place))
        damage.Add("box runs past the end of the file", static_cast<std::int64_t>(box.pos), next - sourceSize);
    if (next >= father.End() || father.End() - next < 8 || next > sourceSize)
        return false;
    return source.Seek(static_cast<std::int64_t>(next)) == static_cast<std::int64_t>(next);
}

bool GMp4BoxReader::ReadPayload(Mp4Box& box)
{
    const std::uint64_t start = box.pos + box.HeaderLength();
    const std::uint64_t size = box.size - box.HeaderLength();
    const auto position = static_cast<std::int64_t>(box.pos);
    if (start > sourceSize || size > sourceSize - start) {
        damage.Add("box runs past the end of the file", position, start > sourceSize ? 0 : sourceSize - start);
        return false;
    }
    if (size > kMaxPayload || size > budget) {
        damage.Add("box is too large", position, size);
        return false;
    }
    budget -= size;
    box.data.resize(static_cast<std::size_t>(size));
    source.Seek(static_cast<std::int64_t>(start));
    const auto count = static_cast<std::uint32_t>(size);
    if (size != 0 && source.ReadBulk(box.data.data(), count) != count) {
        damage.Add("box cannot be read", position, size);
        return false;
    }
    return true;
}

// QuickTime writers replace a movie header by changing its type to "free". Only such a one at the top of the file is
// used.
bool GMp4BoxReader::HidesMovieHeader(const Mp4Box& box)
{
    if (box.father != &tree.Root())
        return false;
    const auto position = static_cast<std::int64_t>(box.pos);
    std::array<std::uint8_t, kFreePeek> bytes{};
    source.Seek(position);
    const std::uint32_t got = source.Read(bytes.data(), kFreePeek);
    source.Seek(position);
    const std::size_t child = box.HeaderLength() + 4u;
    GByteReader reader(GBytes(bytes).first(got));
    reader.Skip(child);
    const std::uint32_t type = reader.FourCC();
    reader.Skip(4);
    return reader.Ok() && (type == FourCC("cmov") || type == FourCC("mvhd"));
}

}  // namespace vex
