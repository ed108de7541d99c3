// A byte source in front of another that counts what is asked of it and can be made to fail.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "support/memory_file.h"

namespace vex::test {

struct GSourceWatch {
    std::uint64_t reads = 0;
    std::uint64_t bytes = 0;
    std::int64_t failFrom = std::numeric_limits<std::int64_t>::max();  // a read that reaches beyond this position fails
};

class GWatchedSource final : public GFileBase {
public:
    // `watcher` is not owned and outlives the source.
    GWatchedSource(std::unique_ptr<GFileBase> watched, GSourceWatch& watcher)
        : inner(std::move(watched)), watch(watcher)
    {
    }

    int Open(const char* path) override { return inner->Open(path); }
    std::uint32_t Read(void* buffer, std::uint32_t count) override
    {
        if (inner->Tell() + count > watch.failFrom)
            return 0;
        const std::uint32_t got = inner->Read(buffer, count);
        ++watch.reads;
        watch.bytes += got;
        return got;
    }
    std::int64_t Seek(std::int64_t offset) override { return inner->Seek(offset); }
    std::int64_t Tell() override { return inner->Tell(); }
    std::int64_t GetSize() override { return inner->GetSize(); }
    int Close() override { return inner->Close(); }

private:
    std::unique_ptr<GFileBase> inner;
    GSourceWatch& watch;
};

// Bytes as an open source.
inline std::unique_ptr<GFileBase> OpenInMemory(std::vector<std::uint8_t> bytes)
{
    auto source = std::make_unique<GMemoryFile>(std::make_shared<GMemoryDisk>(std::move(bytes)));
    source->Open("");
    return source;
}

}  // namespace vex::test
