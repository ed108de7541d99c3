// A window over a byte source for searches that look at a file byte by byte, forwards or backwards.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "io/bytes.h"
#include "io/file_base.h"

namespace vex {

// How a search ended.
enum class GScanEnd : std::uint8_t {
    Found,
    NotFound,     // nothing in the range, or the file ended first
    Interrupted,  // the flag was set
};

struct GScanResult {
    GScanEnd end = GScanEnd::NotFound;
    std::int64_t position = -1;  // Found: of the first byte that fits
    bool Found() const { return end == GScanEnd::Found; }
};

// Reads the source in blocks, so that a search costs the bytes it passes and each of them once, in either direction.
// Moves the source's position. One thread at a time.
class GScanWindow {
public:
    static constexpr std::size_t kDefaultBlock = 64u << 10;  // bytes

    // Both outlive the window. `interrupt`, which may be null, ends a search that it finds set between two blocks.
    // Memory: one block, allocated at the first use.
    explicit GScanWindow(GFileBase& byteSource, const std::atomic<bool>* interrupt = nullptr,
                         std::size_t block = kDefaultBlock);

    // The bytes at `position`: `count` of them, or fewer where the file ends or cannot be read. Valid until the next
    // call. `count` is at most half a block. A position ahead of the window reads on from there, one behind it reads
    // the block that ends there.
    GBytes At(std::int64_t position, std::size_t count)
    {
        if (count > capacity / 2 || !Holds(position, count)) [[unlikely]]
            count = Provide(position, count);
        return {memory.get() + (count > 0 ? static_cast<std::size_t>(position - start) : 0), count};
    }

    // Those of the `count` bytes at `position` that are in the window already. Reads nothing; valid until the next
    // call.
    GBytes Held(std::int64_t position, std::size_t count) const
    {
        if (!Holds(position, 0))
            return {};
        const auto offset = static_cast<std::size_t>(position - start);
        return {memory.get() + offset, count < length - offset ? count : length - offset};
    }

    // The first position in [from, until) at which `fits` says true of the `width` bytes there (fewer at the end of the
    // file, at least one). Both searches pass over what cannot be read.
    template <class Fits>
    GScanResult FindForward(std::int64_t from, std::int64_t until, std::size_t width, Fits&& fits)
    {
        for (std::int64_t position = from < 0 ? 0 : from; position < until; ++position) {
            if (!Holds(position, width) && IsInterrupted())
                return {GScanEnd::Interrupted, -1};
            const GBytes bytes = At(position, width);
            if (bytes.empty()) {
                if (position >= source.GetSize())
                    break;
                position += kUnreadableStep - 1;
                continue;
            }
            if (fits(bytes))
                return {GScanEnd::Found, position};
        }
        return {};
    }
    // The last such position, looked for from the end.
    template <class Fits>
    GScanResult FindBackward(std::int64_t from, std::int64_t until, std::size_t width, Fits&& fits)
    {
        for (std::int64_t position = LastBefore(until); position >= from && position >= 0; --position) {
            if (!Holds(position, width)) {
                if (IsInterrupted())
                    return {GScanEnd::Interrupted, -1};
                LoadBehind(position, width);
                if (!Holds(position, 1)) {  // it cannot be read: on before it
                    position = start + static_cast<std::int64_t>(length);
                    continue;
                }
            }
            if (fits(At(position, width)))
                return {GScanEnd::Found, position};
        }
        return {};
    }

    // Forgets what was read: the file may have changed.
    void Forget() { length = 0; }

private:
    bool Holds(std::int64_t position, std::size_t count) const
    {
        return position >= start && position <= start + static_cast<std::int64_t>(length) &&
               static_cast<std::size_t>(start + static_cast<std::int64_t>(length) - position) >= count;
    }
    // Makes the window hold `position`; how many of `count` bytes there are.
    std::size_t Provide(std::int64_t position, std::size_t count);
    // Moves the window to `from`. What it shares with the old one is not read again.
    void Load(std::int64_t from);
    // Reads at `from` to `offset` of the memory; the bytes read.
    std::size_t Read(std::int64_t from, std::size_t offset, std::size_t count);
    // Places the window so that it ends with the bytes at `position`: the steps to come are in it too.
    void LoadBehind(std::int64_t position, std::size_t count);
    // The last position of the file before `until`.
    std::int64_t LastBefore(std::int64_t until);
    bool IsInterrupted() const { return interrupted && interrupted->load(std::memory_order_acquire); }

    static constexpr std::int64_t kUnreadableStep = 2048;  // bytes

    GFileBase& source;
    const std::atomic<bool>* const interrupted;
    const std::size_t capacity;
    std::unique_ptr<std::uint8_t[]> memory;
    std::int64_t start = 0;  // file position of the window's first byte
    std::size_t length = 0;
    bool atEnd = false;  // the window ends where the file does, or where it cannot be read
};

}  // namespace vex
