// Builds the chunk tables of an AVI file without a usable index, from its data, on a thread of its own, and keeps pace with
// a file that is still being written.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "formats/avi/avi_layout.h"
#include "framework/media/damage_log.h"
#include "io/file_base.h"
#include "platform/threads.h"

namespace vex {

// How long the scanner waits before it looks again whether the file has grown. A stop wakes it at once.
struct GAviScanPauses {
    std::chrono::milliseconds withinData{100};     // a chunk is not there yet
    std::chrono::milliseconds betweenParts{1000};  // the next "movi" list is not there yet
};

class GAviIndexScanner : private CAMThread {
public:
    // Appends to the streams of `fileLayout`, which must outlive the scanner and have a "movi" range, and reads through
    // `file`, which must not be open.
    GAviIndexScanner(std::unique_ptr<GFileBase> file, const GAviLayout& fileLayout, GDamageLog& damageLog,
                     GAviScanPauses scanPauses);
    ~GAviIndexScanner() override;

    bool Start(const char* path);
    // Returns when the thread has ended. Harmless when it already has.
    void Stop();

    // More chunks may turn up without the file growing. What is in the tables when this says no is all there is for now.
    bool IsScanning() const { return state.load(std::memory_order_acquire) == GState::Scanning; }

    // Counts what the scanner has done. WaitForProgress returns once it is no longer `seen`, after a millisecond at most.
    std::uint64_t Progress() const G_EXCLUDES(lock);
    void WaitForProgress(std::uint64_t seen) const G_EXCLUDES(lock);

private:
    enum class GState : std::uint8_t { Scanning, WaitingForGrowth, Finished };
    enum class GStep : std::uint8_t { Again, Done };
    enum class GSearch : std::uint8_t { Found, NotFound, CutOff };
    enum class GWhere : std::uint8_t { InsideRiff, BetweenRiffs };
    enum class GVerdict : std::uint8_t {
        Take,
        LookAgain,  // the scan stands elsewhere now, or the file has changed
        Wait,       // only growth can help
    };

    DWORD ThreadProc() override;
    void Scan();
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
    std::span<const std::uint8_t> SearchBlockAt(std::int64_t from);
    bool IsKeyFrameChunk(const GAvi2ReadStream& stream, const GRiffChunk& chunk);
    GStep WaitForGrowth(std::chrono::milliseconds pause);
    void SetState(GState next) G_EXCLUDES(lock);
    void CountProgress() G_EXCLUDES(lock);

    const GAviLayout& layout;
    GDamageLog& damage;
    const GAviScanPauses pauses;
    std::string path;            // set before the thread starts
    std::uint32_t maxChunk = 0;  // bytes; likewise

    // Scan thread only.
    std::unique_ptr<GFileBase> source;
    std::int64_t sizeSeen = 0;  // of the file, when growth was last looked for
    std::int64_t position = 0;  // where the last chunk ended
    std::int64_t phase = 0;     // 0, or 1 while chunks are found at odd positions
    GAviMoviRange range;
    std::int64_t riffEnd = 0;               // of the RIFF that `range` lies in
    std::vector<std::uint8_t> searchBlock;  // what FindFrame read last
    std::int64_t searchStart = 0;           // and where

    std::atomic<GState> state{GState::Finished};
    mutable GMutex lock;
    mutable GCondition advanced;
    std::uint64_t progress G_GUARDED_BY(lock) = 0;
};

}  // namespace vex
