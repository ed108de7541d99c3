#include "formats/asf/asf_object.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace vex {
namespace {

// Bytes. The objects read here hold a codec configuration of at most 64 KiB, names, or a few numbers a stream.
constexpr std::uint64_t kMaxBodySize = 4u << 20;

struct GRow {
    GUID guid;
    GAsfId id;
};

constexpr GRow kRows[] = {
    {{0x75B22630, 0x668E, 0x11CF, {0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C}}, GAsfId::Header},
    {{0x75B22636, 0x668E, 0x11CF, {0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C}}, GAsfId::Data},
    {{0x33000890, 0xE5B1, 0x11CF, {0x89, 0xF4, 0x00, 0xA0, 0xC9, 0x03, 0x49, 0xCB}}, GAsfId::SimpleIndex},
    {{0x8CABDCA1, 0xA947, 0x11CF, {0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65}}, GAsfId::FileProperties},
    {{0xB7DC0791, 0xA9B7, 0x11CF, {0x8E, 0xE6, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65}}, GAsfId::StreamProperties},
    {{0x5FBF03B5, 0xA92E, 0x11CF, {0x8E, 0xE3, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65}}, GAsfId::HeaderExtension},
    {{0xD6E229DC, 0x35DA, 0x11D1, {0x90, 0x34, 0x00, 0xA0, 0xC9, 0x03, 0x49, 0xBE}}, GAsfId::BitrateMutualExclusion},
    {{0x7BF875CE, 0x468D, 0x11D1, {0x8D, 0x82, 0x00, 0x60, 0x97, 0xC9, 0xA2, 0xB2}}, GAsfId::StreamBitrateProperties},
    {{0x14E6A5CB, 0xC672, 0x4332, {0x83, 0x99, 0xA9, 0x69, 0x52, 0x06, 0x5B, 0x5A}}, GAsfId::ExtendedStreamProperties},
    {{0xA08649CF, 0x4775, 0x4670, {0x8A, 0x16, 0x6E, 0x35, 0x35, 0x75, 0x66, 0xCD}}, GAsfId::AdvancedMutualExclusion},
    {{0xD1465A40, 0x5A79, 0x4338, {0xB7, 0x1B, 0xE3, 0x6B, 0x8F, 0xD6, 0xC2, 0x49}}, GAsfId::GroupMutualExclusion},
    {{0x7C4346A9, 0xEFE0, 0x4BFC, {0xB2, 0x29, 0x39, 0x3E, 0xDE, 0x41, 0x5C, 0x85}}, GAsfId::LanguageList},
    {{0xF8699E40, 0x5B4D, 0x11CF, {0xA8, 0xFD, 0x00, 0x80, 0x5F, 0x5C, 0x44, 0x2B}}, GAsfId::AudioMedia},
    {{0xBC19EFC0, 0x5B4D, 0x11CF, {0xA8, 0xFD, 0x00, 0x80, 0x5F, 0x5C, 0x44, 0x2B}}, GAsfId::VideoMedia},
    {{0xBFC3CD50, 0x618F, 0x11CF, {0x8B, 0xB2, 0x00, 0xAA, 0x00, 0xB4, 0xE2, 0x20}}, GAsfId::AudioSpread},
};

}  // namespace

GAsfId ReadAsfId(GByteReader& reader)
{
    GUID guid{};
    guid.Data1 = reader.U32LE();
    guid.Data2 = reader.U16LE();
    guid.Data3 = reader.U16LE();
    std::ranges::copy(reader.Bytes(sizeof guid.Data4), guid.Data4);
    const auto row = std::ranges::find_if(kRows, [&](const GRow& one) { return IsEqualGUID(one.guid, guid); });
    return row != std::end(kRows) ? row->id : GAsfId::Unknown;
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
