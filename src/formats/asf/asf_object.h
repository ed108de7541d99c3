// Objects, the building blocks of an ASF file: a GUID, a size, a body. All numbers are little-endian.
#pragma once

#include <cstdint>
#include <vector>

#include "io/byte_reader.h"
#include "io/file_base.h"
#include "io/result.h"
#include "platform/types.h"

namespace vex {

enum class GAsfId : std::uint8_t {
    Unknown,
    // Top level.
    Header,
    Data,
    SimpleIndex,
    // In the header.
    FileProperties,
    StreamProperties,
    HeaderExtension,
    BitrateMutualExclusion,
    StreamBitrateProperties,
    // In the header extension.
    ExtendedStreamProperties,
    AdvancedMutualExclusion,
    GroupMutualExclusion,
    LanguageList,
    // Stream types and error-correction types.
    AudioMedia,
    VideoMedia,
    AudioSpread,
};

struct GAsfIdRow {
    GUID guid;
    GAsfId id;
};

inline constexpr GAsfIdRow kAsfIds[] = {
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

inline constexpr std::size_t kAsfGuidSize = 16;
inline constexpr std::int64_t kAsfObjectHeaderSize = 24;  // GUID and size

GAsfId ReadAsfId(GByteReader& reader);

// An object of the file. Positions are absolute.
struct GAsfObject {
    GAsfId id = GAsfId::Unknown;
    std::int64_t position = 0;
    std::uint64_t size = 0;  // as declared, with the 24 bytes of GUID and size

    std::int64_t BodyPosition() const { return position + kAsfObjectHeaderSize; }
};

// Fails only if 24 bytes cannot be read; the size is not checked.
GResult<GAsfObject> ReadAsfObject(GFileBase& source, std::int64_t position);

// True when the object has room for its own header and ends at or before `end`.
bool FitsBefore(const GAsfObject& object, std::int64_t end);

// The object's body. The object must end within the file. One that is larger than any honest object of the header is
// refused.
GResult<std::vector<std::uint8_t>> ReadAsfBody(GFileBase& source, const GAsfObject& object);

}  // namespace vex
