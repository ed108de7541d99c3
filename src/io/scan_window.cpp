#include "io/scan_window.h"

#include <algorithm>
#include <cstring>

namespace vex {

GScanWindow::GScanWindow(GFileBase& byteSource, const std::atomic<bool>* interrupt, std::size_t block)
    : source(byteSource), interrupted(interrupt), capacity(std::max<std::size_t>(block, 2))
{
}

// A large read fails as a whole. So that one bad sector does not cost the block, the rest is read in small pieces up to
// it.
std::size_t GScanWindow::Read(std::int64_t from, std::size_t offset, std::size_t count)
{
    if (source.Seek(from) != from)
        return 0;
    std::size_t got = source.ReadBulk(memory.get() + offset, static_cast<std::uint32_t>(count));
    while (got < count) {
        const std::int64_t next = from + static_cast<std::int64_t>(got);
        const auto piece = static_cast<std::uint32_t>(std::min<std::size_t>(count - got, kUnreadableStep));
        if (next >= source.GetSize() || source.Seek(next) != next)
            break;
        const std::uint32_t more = source.Read(memory.get() + offset + got, piece);
        if (more == 0)
            break;
        got += more;
    }
    return got;
}

void GScanWindow::Load(std::int64_t from)
{
    if (!memory)
        memory = std::make_unique_for_overwrite<std::uint8_t[]>(capacity);
    const std::int64_t oldStart = start;
    const std::size_t oldLength = length;
    const std::int64_t oldEnd = oldStart + static_cast<std::int64_t>(oldLength);
    const std::int64_t newEnd = from + static_cast<std::int64_t>(capacity);
    start = from;
    length = 0;
    std::size_t missing = capacity;
    if (from >= oldStart && from < oldEnd) {  // forwards: the tail stays
        length = static_cast<std::size_t>(oldEnd - from);
        std::memmove(memory.get(), memory.get() + (from - oldStart), length);
        missing = capacity - length;
    } else if (oldLength > 0 && from < oldStart && newEnd > oldStart) {  // backwards: the head stays
        missing = static_cast<std::size_t>(oldStart - from);
        const std::size_t kept = std::min(oldLength, capacity - missing);
        std::memmove(memory.get() + missing, memory.get(), kept);
        length = Read(from, 0, missing);
        atEnd = length < missing || (atEnd && kept == oldLength);
        length += length < missing ? 0 : kept;
        return;
    }
    const std::size_t got = Read(from + static_cast<std::int64_t>(length), length, missing);
    length += got;
    atEnd = got < missing;
}

void GScanWindow::LoadBehind(std::int64_t position, std::size_t count)
{
    if (atEnd && Holds(position, 0))
        return;  // the file has no more bytes there
    const auto before = static_cast<std::int64_t>(capacity - std::min(count, capacity / 2));
    Load(std::max<std::int64_t>(position - before, 0));
    // A block with a part that cannot be read was read up to there.
    if (!Holds(position, 1) && before > kUnreadableStep)
        Load(std::max<std::int64_t>(position - kUnreadableStep, 0));
}

std::int64_t GScanWindow::LastBefore(std::int64_t until) { return std::min(until, source.GetSize()) - 1; }

std::size_t GScanWindow::Provide(std::int64_t position, std::size_t count)
{
    if (position < 0)
        return 0;
    count = std::min(count, capacity / 2);
    if (!Holds(position, count) && !(atEnd && length > 0 && Holds(position, 0))) {
        const bool backwards = length > 0 && position < start;
        if (backwards)
            LoadBehind(position, count);
        else
            Load(position);
        if (!Holds(position, 0))
            return 0;
    }
    return std::min(count, length - static_cast<std::size_t>(position - start));
}

}  // namespace vex
