#include "formats/avi/avi_coverage.h"

#include <algorithm>
#include <vector>

#include "formats/avi/riff_walker.h"

namespace vex {
namespace {

// Of the data; what headers of lists, padding and index chunks take.
constexpr std::int64_t kUsualRemainder = 16;  // a sixteenth
constexpr int kMostHeaders = 4096;

std::int64_t DataSize(const GAviLayout& layout, std::int64_t fileSize)
{
    std::int64_t size = 0;
    for (const GAviMoviRange& range : layout.moviRanges)
        size += std::max<std::int64_t>(std::min(range.end, fileSize) - range.start, 0);
    return size;
}

// The chunks of the streams between two named ones.
class GGapReader {
public:
    GGapReader(GFileBase& file, const GAviLayout& fileLayout) : source(file), layout(fileLayout) {}

    std::int64_t UnnamedBytes(std::int64_t from, std::int64_t until)
    {
        std::int64_t bytes = 0;
        std::int64_t position = from + (from & 1);
        GRiffChunk chunk;
        while (position + kRiffHeaderSize <= until && headersLeft > 0 && ReadRiffHeader(source, position, chunk)) {
            --headersLeft;
            if (chunk.code == kListCode) {  // what is in it is data, too
                position += kRiffListHeaderSize;
                continue;
            }
            if (chunk.BodyEnd() > until)
                break;
            if (layout.FindStream(chunk.code))
                bytes += kRiffHeaderSize + chunk.size;
            position = chunk.Next();
        }
        return bytes;
    }

private:
    GFileBase& source;
    const GAviLayout& layout;
    int headersLeft = kMostHeaders;
};

}  // namespace

GAviCoverage MeasureCoverage(GFileBase& source, const GAviLayout& layout)
{
    GAviCoverage coverage;
    for (const auto& stream : layout.streams)
        coverage.named += stream->NamedBytes();
    const std::int64_t fileSize = source.GetSize();
    const std::int64_t data = DataSize(layout, fileSize);
    if (data - coverage.named <= data / kUsualRemainder)
        return coverage;

    std::vector<GAviExtent> named;
    for (const auto& stream : layout.streams)
        stream->AddExtents(named);
    std::ranges::sort(named, {}, &GAviExtent::start);
    GGapReader gaps(source, layout);
    auto next = named.begin();
    for (const GAviMoviRange& range : layout.moviRanges) {
        const std::int64_t end = std::min(range.end, fileSize);
        std::int64_t position = range.start + 4;  // behind the type
        for (; next != named.end() && next->start < end; ++next) {
            coverage.unnamed += gaps.UnnamedBytes(position, std::min(next->start, end));
            position = std::max(position, next->end);
        }
        coverage.unnamed += gaps.UnnamedBytes(position, end);
    }
    return coverage;
}

}  // namespace vex
