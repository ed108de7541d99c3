// Packets: what travels from the reader thread to a pin.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

#include "platform/pipeline.h"

namespace vex {

// A growable byte buffer that does not zero what it is about to overwrite and keeps its memory when emptied.
class GBuffer {
public:
    std::uint8_t* Data() { return memory.get(); }
    const std::uint8_t* Data() const { return memory.get(); }
    std::size_t Size() const { return size; }
    std::size_t Capacity() const { return capacity; }
    bool Empty() const { return size == 0; }
    std::span<std::uint8_t> Span() { return {memory.get(), size}; }
    std::span<const std::uint8_t> Span() const { return {memory.get(), size}; }

    // Sets the size; old contents survive only up to the old size when `keep` bytes of them are asked for. Throws
    // std::bad_alloc. The caller has held `bytes` against the bytes that back it.
    void Resize(std::size_t bytes, std::size_t keep = 0)
    {
        if (bytes > capacity)
            Grow(bytes, keep);
        size = bytes;
    }
    void Truncate(std::size_t bytes)
    {
        if (bytes < size)
            size = bytes;
    }
    void Assign(std::span<const std::uint8_t> bytes)
    {
        Resize(bytes.size());
        if (!bytes.empty())
            std::memcpy(memory.get(), bytes.data(), bytes.size());
    }
    void Append(std::span<const std::uint8_t> bytes)
    {
        const std::size_t old = size;
        Resize(old + bytes.size(), old);
        if (!bytes.empty())
            std::memcpy(memory.get() + old, bytes.data(), bytes.size());
    }
    void Clear() { size = 0; }
    void Free()
    {
        memory.reset();
        size = capacity = 0;
    }

private:
    static constexpr std::size_t kSmallest = 1024;  // bytes
    static constexpr std::size_t kSpare = 65536;    // bytes at most

    void Grow(std::size_t bytes, std::size_t keep)
    {
        // A little more, so that the buffer serves the next payload of its kind too.
        std::size_t room = bytes < kSmallest ? kSmallest : bytes + (bytes / 4 < kSpare ? bytes / 4 : kSpare);
        if (keep > 0 && room < capacity + capacity / 2)  // appending: grow in proportion
            room = capacity + capacity / 2;
        auto fresh = std::make_unique_for_overwrite<std::uint8_t[]>(room);
        keep = keep < size ? keep : size;
        if (keep > 0)
            std::memcpy(fresh.get(), memory.get(), keep);
        memory = std::move(fresh);
        capacity = room;
    }

    std::unique_ptr<std::uint8_t[]> memory;
    std::size_t size = 0;
    std::size_t capacity = 0;
};

// One packet. Made (or taken from the pool) by the reader thread, owned by a queue while queued, by the pin thread
// after it is popped; it belongs to one thread at a time. Formats whose pins need more derive from it.
struct GPacket2 {
    GPacket2() = default;
    virtual ~GPacket2() = default;
    GPacket2(const GPacket2&) = delete;
    GPacket2& operator=(const GPacket2&) = delete;

    // Payload bytes, as the queue limits count them.
    virtual std::size_t GetSize() const { return data.Size() + unread; }

    // Forgets everything but the buffers, before the packet is used again.
    virtual void Recycle()
    {
        stream = 0;
        discontinuity = keyFrame = continuation = header = false;
        start = stop = mediaStart = mediaStop = kNoTime;
        position = 0;
        unread = 0;
        data.Clear();
    }

    std::uint32_t stream = 0;        // matched against a pin's streamNumber
    bool discontinuity = false;      // copied into the sample
    bool keyFrame = false;           // the payload begins at a random-access point
    bool continuation = false;       // continues the packet before it
    bool header = false;             // a codec header sent in-band: delivered at once, ahead of any reordering
    REFERENCE_TIME start = kNoTime;  // 100 ns; kNoTime: none
    REFERENCE_TIME stop = kNoTime;   // 100 ns
    LONGLONG mediaStart = kNoTime;   // media time units of the format (for most: start / 100000)
    LONGLONG mediaStop = kNoTime;
    // A payload left to the pin's thread: `unread` bytes at `position` of the file, and `data` is empty.
    std::int64_t position = 0;
    std::uint32_t unread = 0;
    GBuffer data;
};

using GPacketPtr = std::unique_ptr<GPacket2>;

// Media times are the reference time in units of 10 ms.
inline constexpr REFERENCE_TIME kUnitsPerMediaTime = 100'000;

}  // namespace vex
