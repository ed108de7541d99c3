// A byte source over bytes in memory that counts what is asked of it and can be made to fail.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "io/file_base.h"

namespace vex::test {

struct GMemoryCounters {
    std::uint64_t reads = 0;
    std::uint64_t bytes = 0;
    std::int64_t failFrom = std::numeric_limits<std::int64_t>::max();  // a read that reaches this position fails
};

class GMemorySource : public GFileBase {
public:
    explicit GMemorySource(std::vector<std::uint8_t> bytes, GMemoryCounters* counters = nullptr)
        : data(std::move(bytes)), counted(counters)
    {
    }

    int Open(const char*) override { return 1; }
    std::uint32_t Read(void* buffer, std::uint32_t count) override
    {
        const auto there = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, data.size() - Offset()));
        if (counted != nullptr) {
            if (position + there > counted->failFrom)
                return 0;
            ++counted->reads;
            counted->bytes += there;
        }
        if (there > 0)
            std::memcpy(buffer, data.data() + Offset(), there);
        position += there;
        return there;
    }
    std::int64_t Seek(std::int64_t offset) override
    {
        position = std::clamp<std::int64_t>(offset, 0, GetSize());
        return position;
    }
    std::int64_t Tell() override { return position; }
    std::int64_t GetSize() override { return static_cast<std::int64_t>(data.size()); }
    int Close() override { return 1; }

private:
    std::size_t Offset() const { return static_cast<std::size_t>(position); }

    std::vector<std::uint8_t> data;
    GMemoryCounters* counted;
    std::int64_t position = 0;
};

}  // namespace vex::test
