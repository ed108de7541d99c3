// Opens AVI bytes with the handler and reads packets the way the frame does.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "formats/avi/avi_read_handler.h"
#include "support/avi_builder.h"
#include "support/memory_file.h"

namespace vex::test {

// Packet streams are named by the two digits of their chunk codes.
inline constexpr std::uint32_t kStream00 = '0' | '0' << 8;
inline constexpr std::uint32_t kStream01 = '0' | '1' << 8;
inline constexpr std::uint32_t kStream02 = '0' | '2' << 8;

inline constexpr REFERENCE_TIME kSecond = 10'000'000;  // 100 ns

struct GReadPacket {
    GNextPacket next;
    std::vector<std::uint8_t> payload;
    std::size_t capacity = 0;  // bytes of the buffer that it was read into
    bool delivered = false;    // ReadPayload said so
};

class GAviReading {
public:
    // The scan pauses for `pause` before it looks whether the file has grown.
    explicit GAviReading(std::vector<std::uint8_t> bytes,
                         std::chrono::milliseconds pause = std::chrono::milliseconds(1))
        : disk(std::make_shared<GMemoryDisk>(std::move(bytes))),
          handler(std::make_unique<GMemoryFile>(disk), {pause, pause}),
          opened(handler.Open("memory").Ok())
    {
    }
    explicit GAviReading(const char* path)
        : handler(std::make_unique<GCacheFile>(), {std::chrono::milliseconds(1), std::chrono::milliseconds(1)}),
          opened(handler.Open(path).Ok())
    {
    }

    // There are no packets otherwise.
    bool IsOpen() const { return opened; }

    // The next packet; false at the end of what there is for now.
    bool Read(GReadPacket& packet)
    {
        GReadStatus status = GReadStatus::NotYet;
        while (status == GReadStatus::NotYet)
            status = handler.ReadPacket(packet.next);
        if (status == GReadStatus::End)
            return false;
        GPacket2 buffer;
        packet.delivered = handler.ReadPayload(buffer);
        packet.capacity = buffer.data.Capacity();
        packet.payload.assign(buffer.data.Span().begin(), buffer.data.Span().end());
        return true;
    }
    std::vector<GReadPacket> ReadAll()
    {
        std::vector<GReadPacket> packets;
        for (GReadPacket packet; Read(packet);)
            packets.push_back(packet);
        return packets;
    }
    std::vector<GReadPacket> ReadFrom(REFERENCE_TIME time, GSeekMode mode = GSeekMode::Independent)
    {
        handler.Seek(time, mode);
        return ReadAll();
    }

    GAvi2ReadHandler& Handler() { return handler; }
    GMemoryDisk& Disk() { return *disk; }
    std::string Index() const { return handler.Properties().at(0).value; }
    GDamageReport Damage() const { return handler.Damage(); }

private:
    std::shared_ptr<GMemoryDisk> disk;
    GAvi2ReadHandler handler;
    bool opened;
};

inline std::vector<GReadPacket> ReadFile(const std::vector<std::uint8_t>& bytes)
{
    return GAviReading(bytes).ReadAll();
}

inline std::vector<GReadPacket> OfStream(const std::vector<GReadPacket>& packets, std::uint32_t stream)
{
    std::vector<GReadPacket> own;
    for (const GReadPacket& packet : packets) {
        if (packet.next.stream == stream)
            own.push_back(packet);
    }
    return own;
}

// The first payload byte of every packet in order, 0 for an empty one: who came when.
inline std::vector<int> Marks(const std::vector<GReadPacket>& packets)
{
    std::vector<int> marks;
    for (const GReadPacket& packet : packets)
        marks.push_back(packet.payload.empty() ? 0 : packet.payload.front());
    return marks;
}

inline std::vector<bool> KeyFlags(const std::vector<GReadPacket>& packets)
{
    std::vector<bool> flags;
    for (const GReadPacket& packet : packets)
        flags.push_back(packet.next.keyFrame);
    return flags;
}

// One video stream; chunk i is filled with the byte i + 1 and has 16 + i bytes.
inline GAviTestFile NumberedVideo(int count, GAviTestIndex index)
{
    GAviTestFile file{.streams = {VideoStream()}, .parts = {{}}, .index = index};
    for (int i = 0; i < count; ++i)
        file.parts[0].push_back(Chunk("00dc", static_cast<std::size_t>(16 + i), static_cast<std::uint8_t>(i + 1)));
    return file;
}

// The marks of NumberedVideo(count).
inline std::vector<int> Numbers(int count)
{
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

}  // namespace vex::test
