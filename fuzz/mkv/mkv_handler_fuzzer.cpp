// The Matroska handler over hostile bytes. The last byte of an input is not part of the file: it says where to seek.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <vector>

#include "formats/mkv/mkv_read_handler.h"
#include "framework/media/codec_guids.h"
#include "tests/support/memory_file.h"

namespace {

using namespace vex;

constexpr int kMaxCalls = 4096;

struct GTotals {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    bool operator==(const GTotals&) const = default;
};

GTotals ReadSome(GMkvReadHandler& handler, GMkvBlockPacket& packet)
{
    GTotals totals;
    GNextPacket next;
    for (int i = 0; i < kMaxCalls; ++i) {
        const GReadStatus status = handler.ReadPacket(next);
        if (status == GReadStatus::End)
            break;
        if (status == GReadStatus::NotYet)
            continue;
        if (next.stop < next.start || next.size == 0)
            std::abort();
        packet.Recycle();
        if (!handler.ReadPayload(packet))
            continue;
        const auto& sizes = packet.block.frameSizes;
        if (std::accumulate(sizes.begin(), sizes.end(), std::uint64_t{0}) != packet.data.Size() || sizes.size() > 256)
            std::abort();
        ++totals.packets;
        totals.bytes += packet.data.Size();
    }
    return totals;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t control = data[--size];
    const auto disk = std::make_shared<test::GMemoryDisk>(std::vector(data, data + size));
    auto source = std::make_unique<test::GMemoryFile>(disk);
    source->Open("");
    GMkvReadHandler handler;
    if (!handler.Open(std::move(source)).Ok())
        return 0;
    const CMediaType vorbis(MEDIATYPE_Audio, MEDIASUBTYPE_Vorbis);
    for (const GStreamInfo& stream : handler.Streams())
        handler.HeaderPackets(stream.number, vorbis);
    handler.Properties();
    handler.Attachments();

    GMkvBlockPacket packet;
    const GTotals first = ReadSome(handler, packet);
    handler.Seek(0, GSeekMode::Independent);
    if (ReadSome(handler, packet) != first)
        std::abort();  // what a file holds does not depend on what was read of it before
    const REFERENCE_TIME target =
        (control & 1) != 0 ? handler.Duration() / 8 * (control >> 5) : REFERENCE_TIME{10'000} << (control >> 3);
    const REFERENCE_TIME reached = handler.Seek(target, GSeekMode::KeyFrame);
    if (reached < target)
        std::abort();
    ReadSome(handler, packet);
    handler.Seek(target, GSeekMode::Independent);
    ReadSome(handler, packet);
    handler.Damage();
    return 0;
}
