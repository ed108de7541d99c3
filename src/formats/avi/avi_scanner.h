// Builds the chunk tables of an AVI file without a usable index, from its data, on a thread of its own, and keeps pace
// with a file that is still being written.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

#include "formats/avi/avi_layout.h"
#include "framework/contract/damage_log.h"
#include "framework/contract/index_thread.h"
#include "io/scan_window.h"

namespace vex {

// How long the scanner waits before it looks again whether the file has grown. A stop wakes it at once.
struct GAviScanPauses {
    std::chrono::milliseconds withinData{100};     // a chunk is not there yet
    std::chrono::milliseconds betweenParts{1000};  // the next "movi" list is not there yet
};

// Tells a read that failed from one beyond the end of the file.
class GFaultNotingSource final : public GFileBase {
public:
    // `open` outlives it.
    explicit GFaultNotingSource(GFileBase& open) : source(open) {}

    // Whether a read has failed since TakeFault.
    bool HasFault() const { return fault; }
    bool TakeFault() { return std::exchange(fault, false); }

    int Open(const char* path) override { return source.Open(path); }
    std::uint32_t Read(void* buffer, std::uint32_t count) override;
    std::int64_t Seek(std::int64_t offset) override { return source.Seek(offset); }
    std::int64_t Tell() override { return source.Tell(); }
    std::int64_t GetSize() override { return source.GetSize(); }
    int Close() override { return source.Close(); }

private:
    GFileBase& source;
    bool fault = false;
};

class GAviIndexScanner final : public GIndexThread {
public:
    // Appends to the streams of `fileLayout`, which must outlive the scanner and have a "movi" range.
    GAviIndexScanner(const GAviLayout& fileLayout, GDamageLog& damageLog, GAviScanPauses scanPauses);
    ~GAviIndexScanner() override { Stop(); }

private:
    enum class GStep : std::uint8_t { Again, Done };
    enum class GSearch : std::uint8_t { Found, NotFound, CutOff };
    enum class GWhere : std::uint8_t { InsideRiff, BetweenRiffs };
    enum class GVerdict : std::uint8_t {
        Take,
        LookAgain,  // the scan stands elsewhere now, or the file has changed
        Wait,       // only growth can help
    };

    void Build(GFileBase& openSource) override;
    void OutOfMemory() override { damage.Add("out of memory for the index", position); }
    GStep ScanOne();
    GStep ScanList(const GRiffChunk& list);
    GStep ScanChunk(const GRiffChunk& chunk);
    GStep NextRange();
    GSearch FindMovi(std::int64_t from, std::int64_t until, GWhere where);
    bool EndsGuessedRange(const GRiffChunk& chunk) const;
    GVerdict JudgeOversize(const GRiffChunk& chunk);
    GVerdict JudgePayload(const GRiffChunk& chunk);
    // The position of the first chunk code of any stream at or behind `from`, at any alignment; -1 when there is none.
    std::int64_t FindFrame(std::int64_t from);
    bool IsKeyFrameChunk(const GAvi2ReadStream& stream, const GRiffChunk& chunk);
    GStep WaitForGrowth(std::chrono::milliseconds pause);
    GStep ReadAgain();

    const GAviLayout& layout;
    GDamageLog& damage;
    const GAviScanPauses pauses;
    const std::uint32_t maxChunk;  // bytes

    // Scan thread only.
    GFaultNotingSource* source = nullptr;  // open while Build runs
    std::optional<GScanWindow> window;
    std::int64_t sizeSeen = 0;  // of the file, when growth was last looked for
    std::int64_t position = 0;  // where the last chunk ended
    std::int64_t faultAt = -1;  // `position` when reading failed last
    int faults = 0;             // in a row there
    std::int64_t phase = 0;     // 0, or 1 while chunks are found at odd positions
    GAviMoviRange range;
    std::int64_t riffEnd = 0;  // of the RIFF that `range` lies in
};

}  // namespace vex
