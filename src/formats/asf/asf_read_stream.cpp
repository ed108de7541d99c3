#include "formats/asf/asf_read_stream.h"

#include <algorithm>
#include <cstring>
#include <new>
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
    // A few bytes must not cost a walk over all the places that 255 rows of 64 KiB have.
    const std::size_t rowsThere =
        std::min<std::size_t>(spread.span, (rows.size() + spread.packetLength - 1) / spread.packetLength);
    const std::size_t columns = std::size_t{spread.packetLength} / spread.chunkLength;
    for (std::size_t column = 0; column < columns && written < rows.size(); ++column) {
        for (std::size_t row = 0; row < rowsThere; ++row) {
            const std::size_t from = row * spread.packetLength + column * spread.chunkLength;
            if (from >= rows.size())
                break;
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
        const std::size_t offset = start.offset.value_or(static_cast<std::uint32_t>(object.Size()));
        if (offset > object.Size()) {  // a part between is lost, and with it the object
            Drop();
            return GAsfJoin::Malformed;
        }
        return offset < object.Size() ? GAsfJoin::Malformed : Continue(payloadSize);
    }
    if (start.offset.value_or(0) != 0) {
        Drop();
        return *start.offset > start.size ? GAsfJoin::Malformed : GAsfJoin::Skipped;
    }
    if (payloadSize > start.size)
        return GAsfJoin::Malformed;
    return Start(start) ? GAsfJoin::Joined : GAsfJoin::Skipped;
}

GAsfJoin GAsfEXReadStream::Continue(std::uint64_t payloadSize)
{
    if (!receiving)
        return GAsfJoin::Skipped;
    return payloadSize > objectSize - object.Size() ? GAsfJoin::Malformed : GAsfJoin::Joined;
}

// False when memory is short: no object is begun, and the payloads that belong to it are skipped.
bool GAsfEXReadStream::Start(const GObjectStart& start)
{
    Drop();
    try {
        object.Resize(std::min(start.size, kFirstRoom));
    } catch (const std::bad_alloc&) {
        Trace("No memory for a media object of stream %d\n", int{number});
        return false;
    }
    object.Clear();
    receiving = true;
    keyFrame = start.keyFrame || kind == GAsfKind::Audio;
    objectSize = start.size;
    presentationTime = start.time;
    return true;
}

bool GAsfEXReadStream::Append(GBytes bytes)
{
    try {
        object.Append(bytes);
        return true;
    } catch (const std::bad_alloc&) {
        Trace("No memory for a media object of stream %d\n", int{number});
        Drop();
        return false;
    }
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
