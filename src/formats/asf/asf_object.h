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

// Nothing is checked but that 24 bytes can be read.
GResult<GAsfObject> ReadAsfObject(GFileBase& source, std::int64_t position);

// True when the object has room for its own header and ends at or before `end`.
bool FitsBefore(const GAsfObject& object, std::int64_t end);

// The object's body. The object must end within the file. One that is larger than any honest object of the header is
// refused.
GResult<std::vector<std::uint8_t>> ReadAsfBody(GFileBase& source, const GAsfObject& object);

}  // namespace vex
