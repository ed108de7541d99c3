#include "formats/asf/asf_object.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace vex {
namespace {

// Bytes. The objects read here hold a codec configuration of at most 64 KiB, names, or a few numbers a stream.
constexpr std::uint64_t kMaxBodySize = 4u << 20;

}  // namespace

GAsfId ReadAsfId(GByteReader& reader)
{
    GUID guid{};
    guid.Data1 = reader.U32LE();
    guid.Data2 = reader.U16LE();
    guid.Data3 = reader.U16LE();
    std::ranges::copy(reader.Bytes(sizeof guid.Data4), guid.Data4);
    const auto row = std::ranges::find_if(kAsfIds, [&](const GAsfIdRow& one) { return IsEqualGUID(one.guid, guid); });
    return row != std::end(kAsfIds) ? row->id : GAsfId::Unknown;
}

GResult<GAsfObject> ReadAsfObject(GFileBase& source, std::int64_t position)
{
    std::array<std::uint8_t, kAsfObjectHeaderSize> bytes{};
    if (source.Seek(position) != position || source.Read(bytes.data(), bytes.size()) != bytes.size())
        return GError{GErrorKind::EndOfStream, "the file ends before an object", static_cast<std::uint64_t>(position)};
    GByteReader reader(bytes);
    GAsfObject object;
    object.id = ReadAsfId(reader);
    object.position = position;
    object.size = reader.U64LE();
    return object;
}

bool FitsBefore(const GAsfObject& object, std::int64_t end)
{
    return end >= object.BodyPosition() && object.size >= static_cast<std::uint64_t>(kAsfObjectHeaderSize) &&
           object.size <= static_cast<std::uint64_t>(end - object.position);
}

GResult<std::vector<std::uint8_t>> ReadAsfBody(GFileBase& source, const GAsfObject& object)
{
    const std::uint64_t size = object.size - static_cast<std::uint64_t>(kAsfObjectHeaderSize);
    const auto position = static_cast<std::uint64_t>(object.position);
    if (size > kMaxBodySize)
        return GError{GErrorKind::Limit, "an object of the header is larger than 4 MiB", position};
    std::vector<std::uint8_t> body(static_cast<std::size_t>(size));
    const auto count = static_cast<std::uint32_t>(size);
    if (source.Seek(object.BodyPosition()) != object.BodyPosition() || source.ReadBulk(body.data(), count) != count)
        return GError{GErrorKind::Malformed, "an object of the header is cut off", position};
    return body;
}

}  // namespace vex
