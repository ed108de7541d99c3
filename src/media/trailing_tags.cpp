#include "media/trailing_tags.h"

#include "io/byte_reader.h"

namespace vex {

bool EndsWithId3v1(GBytes end) { return end.size() >= kId3v1Size && HasTextAt(end, end.size() - kId3v1Size, "TAG"); }

std::optional<std::uint64_t> ApeTagSize(GBytes end)
{
    constexpr std::uint32_t kHasHeader = 1u << 31;
    constexpr std::uint32_t kIsHeader = 1u << 29;
    if (end.size() < kApeFooterSize)
        return std::nullopt;
    const GBytes footer = end.last(kApeFooterSize);
    if (!HasTextAt(footer, 0, "APETAGEX"))
        return std::nullopt;
    GByteReader reader(footer);
    reader.Skip(8 + 4);                         // signature, version
    const std::uint64_t size = reader.U32LE();  // footer included, header not
    reader.Skip(4);                             // number of items
    const std::uint32_t flags = reader.U32LE();
    if ((flags & kIsHeader) != 0 || size < kApeFooterSize)
        return std::nullopt;
    return size + ((flags & kHasHeader) != 0 ? kApeFooterSize : 0);
}

std::uint64_t TrailingTagsSize(GBytes end)
{
    const std::size_t id3 = EndsWithId3v1(end) ? kId3v1Size : 0;
    return id3 + ApeTagSize(end.first(end.size() - id3)).value_or(0);
}

}  // namespace vex
