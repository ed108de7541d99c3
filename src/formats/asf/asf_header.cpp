#include "formats/asf/asf_header.h"

#include <algorithm>
#include <utility>

#include "formats/asf/asf_header_objects.h"
#include "formats/asf/asf_object.h"
#include "media/video_types.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::int64_t kHeaderFieldsSize = 6;             // number of objects, two reserved bytes
constexpr std::size_t kExtensionFieldsSize = 16 + 2 + 4;  // two reserved fields, size
constexpr std::int64_t kDataFieldsSize = 16 + 8 + 2;      // file ID, packets, reserved
constexpr std::size_t kIndexFieldsSize = 16 + 8 + 4 + 4;
constexpr std::size_t kIndexEntrySize = 6;
constexpr std::uint64_t kMaxIndexEntries = 1u << 22;  // of all indexes; at one a second they cover 48 days
constexpr int kMaxObjectsBehindData = 4096;
constexpr int kMaxHeaderObjects = 64 << 10;           // honest headers have a few dozen
constexpr std::uint64_t kMaxHeaderBytes = 64u << 20;  // of all objects that are read
constexpr std::size_t kMaxExtendedStreams = 1024;     // of honest files at most 127

GError AsfError(GErrorKind kind, const char* what, std::int64_t position)
{
    return {kind, what, static_cast<std::uint64_t>(position)};
}

// The children of the Header Object, in any order.
class GHeaderParser {
public:
    GHeaderParser(GFileBase& file, GDamageLog& damageLog, GAsfHeader& target)
        : source(file), damage(damageLog), header(target)
    {
    }

    GStatus ReadChildren(std::int64_t position, std::int64_t end)
    {
        for (int left = kMaxHeaderObjects; end - position >= kAsfObjectHeaderSize; --left) {
            if (left == 0)
                return AsfError(GErrorKind::Limit, "the header has too many objects", position);
            G_TRY(const GAsfObject object, ReadAsfObject(source, position));
            if (!FitsBefore(object, end))
                return AsfError(GErrorKind::Malformed, "an object does not fit the header", position);
            G_TRY_STATUS(ReadChild(object));
            position += static_cast<std::int64_t>(object.size);
        }
        return seen.contains(GAsfId::FileProperties)
                   ? GStatus()
                   : AsfError(GErrorKind::Malformed, "the header has no File Properties Object", position);
    }

    // Once all objects have been read.
    void Conclude()
    {
        for (const GAsfExtendedStream& extended : facts.extended) {
            GAsfEXReadStream* const stream = Find(extended.number);
            if (!stream) {
                Trace("Extended Stream Properties of an unknown stream %d\n", int{extended.number});
                continue;
            }
            if (extended.languageIndex < facts.languages.size())
                stream->language = facts.languages[extended.languageIndex];
            if (stream->kind == GAsfKind::Video && extended.timePerFrame <= INT32_MAX)
                SetFrameTime(stream->mediaType, static_cast<REFERENCE_TIME>(extended.timePerFrame));
        }
        for (const auto& stream : header.streams) {
            const auto own = std::ranges::find(facts.extended, stream->number, &GAsfExtendedStream::number);
            if (facts.averageRates[stream->number] != 0)
                stream->bitRate = facts.averageRates[stream->number];
            if (own != facts.extended.end() && own->dataBitRate != 0)
                stream->bitRate = own->dataBitRate;
        }
    }

private:
    struct GSeen {
        std::uint32_t bits = 0;
        bool contains(GAsfId id) const { return (bits >> static_cast<unsigned>(id) & 1) != 0; }
        // False when it is in there already.
        bool Insert(GAsfId id)
        {
            const bool fresh = !contains(id);
            bits |= 1u << static_cast<unsigned>(id);
            return fresh;
        }
    };

    GStatus ReadChild(const GAsfObject& object)
    {
        switch (object.id) {
        case GAsfId::FileProperties:
        case GAsfId::HeaderExtension:
        case GAsfId::BitrateMutualExclusion:
        case GAsfId::StreamBitrateProperties:
            if (!seen.Insert(object.id))
                return AsfError(GErrorKind::Malformed, "an object of the header is there twice", object.position);
            break;
        case GAsfId::StreamProperties:
            break;
        default:
            return {};
        }
        bytesRead += object.size;
        if (bytesRead > kMaxHeaderBytes)
            return AsfError(GErrorKind::Limit, "the objects of the header are too large", object.position);
        G_TRY(const std::vector<std::uint8_t> bytes, ReadAsfBody(source, object));
        const GByteReader body(bytes, static_cast<std::uint64_t>(object.BodyPosition()));
        if (object.id == GAsfId::FileProperties)
            return ReadAsfFileProperties(body, header);
        if (object.id == GAsfId::StreamProperties)
            return AddStream(body);
        if (object.id == GAsfId::HeaderExtension)
            return ReadExtension(body);
        if (object.id == GAsfId::BitrateMutualExclusion)
            Check(ReadAsfExclusion(body, header.exclusions), object.position);
        else
            Check(ReadAsfStreamBitrates(body, facts), object.position);
        return {};
    }

    // What is wrong in here costs languages or bit rates, not the file.
    GStatus ReadExtension(GByteReader extension)
    {
        extension.Skip(kExtensionFieldsSize);
        while (extension.Left() >= static_cast<std::size_t>(kAsfObjectHeaderSize)) {
            const auto position = static_cast<std::int64_t>(extension.FilePos());
            const GAsfId id = ReadAsfId(extension);
            const std::uint64_t size = extension.U64LE();
            if (size < static_cast<std::uint64_t>(kAsfObjectHeaderSize) ||
                size - static_cast<std::uint64_t>(kAsfObjectHeaderSize) > extension.Left()) {
                Check(false, position);
                break;
            }
            const GByteReader body = extension.Window(size - static_cast<std::uint64_t>(kAsfObjectHeaderSize));
            G_TRY_STATUS(ReadExtensionChild(id, body, position));
        }
        return {};
    }

    GStatus ReadExtensionChild(GAsfId id, const GByteReader& body, std::int64_t position)
    {
        if (id == GAsfId::LanguageList) {
            Check(ReadAsfLanguages(body, facts), position);
        } else if (id == GAsfId::AdvancedMutualExclusion) {
            Check(ReadAsfExclusion(body, header.exclusions), position);
        } else if (id == GAsfId::GroupMutualExclusion) {
            Check(ReadAsfGroupExclusion(body, header.exclusions), position);
        } else if (id == GAsfId::ExtendedStreamProperties && facts.extended.size() < kMaxExtendedStreams) {
            std::optional<GByteReader> embedded;
            Check(ReadAsfExtendedStream(body, facts, embedded), position);
            if (embedded)
                Check(AddStream(*embedded).Ok(), position);
        }
        return {};
    }

    GStatus AddStream(const GByteReader& body)
    {
        G_TRY(auto stream, ReadAsfStreamProperties(body));
        if (Find(stream->number))
            damage.Add("a stream is described twice", static_cast<std::int64_t>(body.FilePos()));
        else
            header.streams.push_back(std::move(stream));
        return {};
    }

    GAsfEXReadStream* Find(std::uint16_t number)
    {
        const auto found = std::ranges::find_if(header.streams, [&](const auto& one) { return one->number == number; });
        return found != header.streams.end() ? found->get() : nullptr;
    }

    void Check(bool sound, std::int64_t position)
    {
        if (!sound)
            damage.Add("an object of the header is cut off", position);
    }

    GFileBase& source;
    GDamageLog& damage;
    GAsfHeader& header;
    GAsfStreamFacts facts;
    GSeen seen;
    std::uint64_t bytesRead = 0;
};

// A broadcast has no sizes: what is there when it ends is its data.
GStatus ReadDataObject(GFileBase& source, std::int64_t position, GAsfHeader& header)
{
    const auto read = ReadAsfObject(source, position);
    if (!read.Ok() || read.Value().id != GAsfId::Data)
        return AsfError(GErrorKind::Malformed, "no Data Object behind the header", position);
    const GAsfObject object = read.Value();
    header.dataStart = object.BodyPosition() + kDataFieldsSize;
    const auto fields = static_cast<std::uint64_t>(kAsfObjectHeaderSize + kDataFieldsSize);
    const bool said = object.size > fields || (object.size == fields && !header.broadcast);
    const auto room = static_cast<std::uint64_t>(kAsfUntilFileEnd - position);
    header.dataEnd = said && object.size < room ? position + static_cast<std::int64_t>(object.size) : kAsfUntilFileEnd;
    return {};
}

GAsfSimpleIndex ReadSimpleIndex(GFileBase& source, const GAsfObject& object, std::uint64_t& entriesLeft)
{
    GAsfSimpleIndex index;
    std::array<std::uint8_t, kIndexFieldsSize> fields{};
    source.Seek(object.BodyPosition());
    if (source.Read(fields.data(), fields.size()) != fields.size())
        return index;
    GByteReader reader(fields);
    reader.Skip(kAsfGuidSize);
    index.interval = reader.U64LE();
    reader.Skip(4);  // maximum packet count
    const std::uint64_t declared = reader.U32LE();
    const std::uint64_t room = (std::max<std::uint64_t>(object.size, kAsfObjectHeaderSize + kIndexFieldsSize) -
                                kAsfObjectHeaderSize - kIndexFieldsSize) /
                               kIndexEntrySize;
    for (std::uint64_t left = std::min({declared, room, entriesLeft}); left > 0;) {
        std::array<std::uint8_t, 4096 * kIndexEntrySize> block{};
        const auto wanted = static_cast<std::uint32_t>(std::min<std::uint64_t>(left * kIndexEntrySize, block.size()));
        GByteReader entries(GBytes(block.data(), source.Read(block.data(), wanted)));
        const std::size_t got = entries.Left() / kIndexEntrySize;
        for (std::size_t i = 0; i < got; ++i) {
            index.packets.push_back(entries.U32LE());
            entries.Skip(2);  // packet count
        }
        left -= got;
        entriesLeft -= got;
        if (got * kIndexEntrySize < wanted)
            break;
    }
    return index;
}

// Whatever is wrong here costs an index: the user index serves instead.
void ReadIndexes(GFileBase& source, GAsfHeader& header, const std::atomic<bool>& interrupted)
{
    const std::int64_t fileSize = source.GetSize();
    std::uint64_t entriesLeft = kMaxIndexEntries;
    std::int64_t position = header.dataEnd;
    for (int i = 0; i < kMaxObjectsBehindData && position < fileSize && !interrupted.load(std::memory_order_acquire);
         ++i) {
        const auto object = ReadAsfObject(source, position);
        if (!object.Ok() || object.Value().size < static_cast<std::uint64_t>(kAsfObjectHeaderSize))
            break;
        if (object.Value().id == GAsfId::SimpleIndex)
            header.simpleIndexes.push_back(ReadSimpleIndex(source, object.Value(), entriesLeft));
        if (!FitsBefore(object.Value(), fileSize))
            break;
        position += static_cast<std::int64_t>(object.Value().size);
    }
}

}  // namespace

void GAsfExclusions::ExcludeEach(const GNumbers& numbers)
{
    for (std::size_t one = 0; one < kAsfStreamNumbers; ++one) {
        if (!numbers.test(one))
            continue;
        const bool before = excluded[one].test(one);
        excluded[one] |= numbers;
        excluded[one].set(one, before);
    }
}

void GAsfExclusions::ExcludeGroup(const GNumbers& group, const GNumbers& earlierGroups)
{
    if (group.none() || earlierGroups.none())
        return;
    for (std::size_t one = 0; one < kAsfStreamNumbers; ++one) {
        if (group.test(one))
            excluded[one] |= earlierGroups;
        if (earlierGroups.test(one))
            excluded[one] |= group;
    }
}

bool GAsfExclusions::Excludes(std::uint16_t one, std::uint16_t other) const
{
    return one < kAsfStreamNumbers && other < kAsfStreamNumbers && excluded[one].test(other);
}

std::uint64_t GAsfHeader::DataSize(std::int64_t fileSize) const
{
    const std::int64_t end = dataEnd == kAsfUntilFileEnd ? fileSize : dataEnd;
    return end > dataStart ? static_cast<std::uint64_t>(end - dataStart) : 0;
}

GResult<GAsfHeader> ReadAsfHeader(GFileBase& source, GDamageLog& damage, const std::atomic<bool>& interrupted)
{
    GAsfHeader header;
    const auto first = ReadAsfObject(source, 0);
    if (!first.Ok() || first.Value().id != GAsfId::Header)
        return AsfError(GErrorKind::Malformed, "the file does not begin with an ASF Header Object", 0);
    if (!FitsBefore(first.Value(), source.GetSize()))
        return AsfError(GErrorKind::Malformed, "the Header Object is cut off or has an impossible size", 0);
    const auto end = static_cast<std::int64_t>(first.Value().size);
    GHeaderParser parser(source, damage, header);
    G_TRY_STATUS(parser.ReadChildren(kAsfObjectHeaderSize + kHeaderFieldsSize, end));
    parser.Conclude();
    if (header.streams.empty())
        return AsfError(GErrorKind::Malformed, "the header describes no stream", end);
    G_TRY_STATUS(ReadDataObject(source, end, header));
    if (header.dataEnd != kAsfUntilFileEnd)
        ReadIndexes(source, header, interrupted);
    return header;
}

}  // namespace vex
