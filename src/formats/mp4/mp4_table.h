// A table of a full box, kept as the file stores it: nothing is expanded per sample.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "io/byte_reader.h"
#include "io/bytes.h"

namespace vex {

// Big-endian entries of a fixed size. Immutable, so any thread may read it.
class GMp4Table {
public:
    GMp4Table() = default;
    // Entries start at byte `start`. Of the `declared` ones those count that lie in the payload.
    GMp4Table(std::vector<std::uint8_t> payload, std::size_t start, std::uint32_t declared, std::size_t entrySize)
        : bytes(std::move(payload)), first(start), stride(entrySize)
    {
        const std::size_t room = bytes.size() > first ? (bytes.size() - first) / stride : 0;
        count = room < declared ? static_cast<std::uint32_t>(room) : declared;
    }

    std::uint32_t Count() const { return count; }
    // The 32-bit (64-bit) number at `offset` bytes into an entry. `index` is below Count().
    std::uint32_t U32(std::uint32_t index, std::size_t offset = 0) const { return At(index, offset).U32BE(); }
    std::uint64_t U64(std::uint32_t index) const { return At(index, 0).U64BE(); }

private:
    GByteReader At(std::uint32_t index, std::size_t offset) const
    {
        return GByteReader(GBytes(bytes).subspan(first + index * stride + offset));
    }

    std::vector<std::uint8_t> bytes;
    std::size_t first = 0;
    std::size_t stride = 1;
    std::uint32_t count = 0;
};

// A place in "stts", the runs of samples that last equally long. It only moves forward, in time that all calls together
// spend on the runs they pass.
class GMp4TimeCursor {
public:
    // In timescale units. Sums that do not fit stay at the largest number.
    std::uint64_t Dts() const { return dts; }
    // Passes `samples` of them, or those that the table still has.
    void Advance(const GMp4Table& durations, std::uint64_t samples)
    {
        while (samples > 0 && run < durations.Count()) {
            const std::uint64_t left = std::uint64_t{durations.U32(run)} - used;
            const std::uint64_t taken = samples < left ? samples : left;
            const std::uint64_t passed = taken * durations.U32(run, 4);  // both fit 32 bits
            dts = passed > kLast - dts ? kLast : dts + passed;
            samples -= taken;
            used = taken < left ? used + static_cast<std::uint32_t>(taken) : 0;
            run += taken < left ? 0 : 1;
        }
    }

    // How many samples from here lie before `time`, at most `limit`; of several that start at `time` the first one of
    // the run is the next. `time` is not before Dts().
    std::uint32_t SamplesUntil(const GMp4Table& durations, std::uint64_t time, std::uint32_t limit) const
    {
        std::uint64_t from = dts;
        std::uint32_t passed = 0;
        std::uint32_t skipped = used;
        for (std::uint32_t i = run; i < durations.Count() && passed < limit; ++i, skipped = 0) {
            const std::uint64_t left = std::min(durations.U32(i) - skipped, limit - passed);
            const std::uint64_t delta = durations.U32(i, 4);
            if (left * delta >= time - from)
                return passed + (delta > 0 ? static_cast<std::uint32_t>((time - from) / delta) : 0);
            from += left * delta;
            passed += static_cast<std::uint32_t>(left);
        }
        return passed;
    }

private:
    static constexpr std::uint64_t kLast = std::numeric_limits<std::uint64_t>::max();

    std::uint64_t dts = 0;
    std::uint32_t run = 0;
    std::uint32_t used = 0;  // samples of the run that are passed
};

}  // namespace vex
