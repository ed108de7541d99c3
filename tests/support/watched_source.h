// A byte source in front of another that counts what is asked of it and can be made to fail.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "support/memory_file.h"
#include "support/watchdog.h"

namespace vex::test {

// Any thread.
struct GSourceWatch {
    std::atomic<std::uint64_t> reads{0};
    std::atomic<std::uint64_t> bytes{0};
    // A read that touches a byte of [failFrom, failUntil) fails.
    std::atomic<std::int64_t> failFrom{std::numeric_limits<std::int64_t>::max()};
    std::atomic<std::int64_t> failUntil{std::numeric_limits<std::int64_t>::max()};
    // Meanwhile the source of another thread does not open.
    std::atomic<bool> holdsNew{false};
    // To be set before the source is opened. Asked ahead of each read, whether by the source of another thread or not:
    // true lets it fail.
    std::function<bool(bool ofNew)> onRead;
    bool refusesNew = false;  // there is no second source
};

class GWatchedSource final : public GFileBase {
public:
    // `watcher` is not owned and outlives the source and its new instances.
    GWatchedSource(std::unique_ptr<GFileBase> watched, GSourceWatch& watcher, bool newInstance = false)
        : inner(std::move(watched)), watch(watcher), isNew(newInstance)
    {
    }

    std::unique_ptr<GFileBase> NewInstance() const override
    {
        auto again = watch.refusesNew ? nullptr : inner->NewInstance();
        return again ? std::make_unique<GWatchedSource>(std::move(again), watch, true) : nullptr;
    }
    int Open(const char* path) override
    {
        for (const GHangCheck hang("a source that is never let go"); isNew && watch.holdsNew; hang.Check())
            std::this_thread::yield();
        return inner->Open(path);
    }
    std::uint32_t Read(void* buffer, std::uint32_t count) override
    {
        return Fails(inner->Tell(), count) ? 0 : Counted(inner->Read(buffer, count));
    }
    std::uint32_t ReadBulk(void* buffer, std::uint32_t count) override
    {
        return Fails(inner->Tell(), count) ? 0 : Counted(inner->ReadBulk(buffer, count));
    }
    bool ReadsAnywhere() const override { return inner->ReadsAnywhere(); }
    std::uint32_t ReadAt(std::int64_t offset, void* buffer, std::uint32_t count) override
    {
        return Fails(offset, count) ? 0 : Counted(inner->ReadAt(offset, buffer, count));
    }
    std::int64_t Seek(std::int64_t offset) override { return inner->Seek(offset); }
    std::int64_t Tell() override { return inner->Tell(); }
    std::int64_t GetSize() override { return inner->GetSize(); }
    int Close() override { return inner->Close(); }
    GError OpenError() const override { return inner->OpenError(); }

private:
    bool Fails(std::int64_t from, std::uint32_t count) const
    {
        if (watch.onRead && watch.onRead(isNew))
            return true;
        return from + count > watch.failFrom && from < watch.failUntil;
    }
    std::uint32_t Counted(std::uint32_t got)
    {
        ++watch.reads;
        watch.bytes += got;
        return got;
    }

    std::unique_ptr<GFileBase> inner;
    GSourceWatch& watch;
    const bool isNew;
};

// Bytes as an open source.
inline std::unique_ptr<GFileBase> OpenInMemory(std::vector<std::uint8_t> bytes)
{
    auto source = std::make_unique<GMemoryFile>(std::make_shared<GMemoryDisk>(std::move(bytes)));
    source->Open("");
    return source;
}

}  // namespace vex::test
