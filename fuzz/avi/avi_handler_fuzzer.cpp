// The AVI handler over hostile bytes. The last byte of an input is not part of the file: it says how much of the file is
// there at first, the rest of which arrives while it is read, and where to seek.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <vector>

#include "formats/avi/avi_read_handler.h"
#include "tests/support/memory_file.h"

namespace {

using namespace vex;

constexpr int kMaxPackets = 4096;

void ReadSome(GAvi2ReadHandler& handler, std::int64_t fileSize)
{
    GNextPacket next;
    GPacket2 packet;
    for (int i = 0; i < kMaxPackets; ++i) {
        const GReadStatus status = handler.ReadPacket(next);
        if (status == GReadStatus::End)
            return;
        if (status == GReadStatus::NotYet)
            continue;
        handler.ReadPayload(packet);
        if (static_cast<std::int64_t>(packet.data.Size()) > fileSize || next.start < 0 || next.stop < next.start)
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t control = data[--size];
    const std::span<const std::uint8_t> file(data, size);
    const auto first = file.first((control & 1) != 0 ? size / 256 * control + size % 256 : size);

    const auto disk = std::make_shared<test::GMemoryDisk>(std::vector(first.begin(), first.end()));
    const auto pause = std::chrono::milliseconds(1);
    GAvi2ReadHandler handler(std::make_unique<test::GMemoryFile>(disk), {pause, pause});
    if (!handler.Open("memory").Ok())
        return 0;
    const auto fileSize = static_cast<std::int64_t>(size);
    ReadSome(handler, fileSize);
    disk->Append(file.subspan(first.size()));
    ReadSome(handler, fileSize);
    handler.Seek(handler.Duration() / 8 * (control >> 5), GSeekMode::KeyFrame);
    ReadSome(handler, fileSize);
    handler.Seek(handler.LongestStreamDuration() / 8 * (control >> 5), GSeekMode::Independent);
    ReadSome(handler, fileSize);
    handler.Damage();
    return 0;
}
