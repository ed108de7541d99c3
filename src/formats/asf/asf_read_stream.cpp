#include "formats/asf/asf_read_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/trace.h"

namespace vex {
namespace {

// Bytes of room made for an object before any have come. A larger one grows with the bytes that arrive: 127 streams may
// each claim one as large as the file.
constexpr std::uint32_t kFirstRoom = 256u << 10;

void Reorder(const GAsfSpread& spread, GBytes rows, std::span<std::uint8_t> order)
{
    std::size_t written = 0;
    for (std::size_t column = 0; column < std::size_t{spread.packetLength} / spread.chunkLength; ++column) {
        for (std::size_t row = 0; row < spread.span; ++row) {
            const std::size_t from = row * spread.packetLength + column * spread.chunkLength;
            if (from >= rows.size())
                continue;
            const std::size_t count = std::min<std::size_t>(spread.chunkLength, rows.size() - from);
            std::memcpy(order.data() + written, rows.data() + from, count);
            written += count;
        }
    }
}

}  // namespace

void DescrambleAsfAudio(const GAsfSpread& spread, GBuffer& object, GBuffer& spare)
{
    if (spread.span == 0 || spread.packetLength == spread.chunkLength || object.Empty())
        return;
    if (spread.packetLength == 0 || spread.chunkLength == 0) {
        Trace("Audio spread without a length\n");
        return;
    }
    if (spread.chunkLength > spread.packetLength)
        return;
    spare.Assign(object.Span());  // bytes that no row covers keep their place
    Reorder(spread, object.Span(), spare.Span());
    std::swap(object, spare);
}

GAsfJoin GAsfEXReadStream::Begin(const GObjectStart& start, std::uint64_t payloadSize)
{
    if (receiving && presentationTime > start.time)
        return GAsfJoin::Malformed;
    if (receiving && presentationTime == start.time) {
        if (start.offset > object.Size()) {  // a part between is lost, and with it the object
            Drop();
            return GAsfJoin::Malformed;
        }
        return start.offset < object.Size() ? GAsfJoin::Malformed : Continue(payloadSize);
    }
    if (start.offset != 0) {
        Drop();
        return start.offset > start.size ? GAsfJoin::Malformed : GAsfJoin::Skipped;
    }
    if (payloadSize > start.size)
        return GAsfJoin::Malformed;
    Start(start);
    return GAsfJoin::Joined;
}

GAsfJoin GAsfEXReadStream::Continue(std::uint64_t payloadSize)
{
    if (!receiving)
        return GAsfJoin::Skipped;
    return payloadSize > objectSize - object.Size() ? GAsfJoin::Malformed : GAsfJoin::Joined;
}

void GAsfEXReadStream::Start(const GObjectStart& start)
{
    object.Resize(std::min(start.size, kFirstRoom));
    object.Clear();
    receiving = true;
    keyFrame = start.keyFrame || kind == GAsfKind::Audio;
    objectSize = start.size;
    presentationTime = start.time;
}

void GAsfEXReadStream::Take(GBuffer& data)
{
    if (spread)
        DescrambleAsfAudio(*spread, object, spare);
    std::swap(data, object);
    Drop();
}

void GAsfEXReadStream::Drop()
{
    object.Clear();
    receiving = false;
    objectSize = 0;
}

}  // namespace vex
