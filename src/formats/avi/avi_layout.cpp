#include "formats/avi/avi_layout.h"

namespace vex {
namespace {

constexpr std::uint32_t kUnfilledSize = 0xFFFFFFFFu;

// The index that `code` counts up to by its first two characters; kMaxStreams and above when it names no stream.
std::size_t StreamIndex(std::uint32_t code)
{
    const std::uint32_t tens = (code & 0xFF) - '0';
    const std::uint32_t units = (code >> 8 & 0xFF) - '0';
    if (tens > 10 || units > 9)
        return GAvi2ReadStream::kMaxStreams;
    return tens * 10 + units;
}

// What may stand at the start of "movi" data.
bool LooksLikeMoviData(std::uint32_t code)
{
    const bool isIndex = (code & 0xFFFF) == ('i' | 'x' << 8);
    return code == kListCode || code == kJunkCode || isIndex || StreamIndex(code) < GAvi2ReadStream::kMaxStreams;
}

}  // namespace

GAvi2ReadStream* GAviLayout::FindStream(std::uint32_t code) const
{
    const std::size_t place = StreamIndex(code);
    return place < streams.size() ? streams[place].get() : nullptr;
}

std::int64_t RiffEnd(std::int64_t position, std::uint32_t size)
{
    return size == 0 || size == kUnfilledSize ? kRiffEndUnknown : position + kRiffHeaderSize + size;
}

GAviMoviRange MoviRangeOf(GFileBase& source, const GRiffChunk& list, std::int64_t riffEnd)
{
    GAviMoviRange range{list.Body(), list.BodyEnd(), false};
    GRiffChunk first;
    const bool unfilled =
        list.size == kUnfilledSize ||
        (list.size == 0 && ReadRiffHeader(source, range.start + 4, first) && LooksLikeMoviData(first.code));
    if (unfilled && riffEnd > range.start) {
        range.end = riffEnd;
        range.endGuessed = true;
    }
    return range;
}

}  // namespace vex
