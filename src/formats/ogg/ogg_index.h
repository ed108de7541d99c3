// Where to read from for a time, found by a thread that walks the file beside the reader.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <vector>

#include "formats/ogg/ogg_page_source.h"
#include "formats/ogg/ogg_stream.h"
#include "framework/contract/index_thread.h"

namespace vex {

// How long the thread waits at the end of the file before it looks for growth; doubled from the shortest to the
// longest.
struct GOggIndexPauses {
    std::chrono::milliseconds shortest{100};
    std::chrono::milliseconds longest{500};
};

// One entry for each key frame of a video stream, or about one for each MiB of an audio stream.
class GOggIndex final : public GIndexThread {
public:
    struct GEntry {
        std::int64_t offset = 0;  // of the page on which the key frame begins, or of the audio page
        REFERENCE_TIME time = 0;  // 100 ns
    };

    // `referenceStream`, a video or audio stream with its headers, outlives this; only its constant parts are used.
    GOggIndex(const GOGG2ReadStream& referenceStream, GOggIndexPauses growthPauses);
    ~GOggIndex() override { Stop(); }

    // The latest time seen so far, 100 ns. Any thread.
    REFERENCE_TIME IndexedUpTo() const { return upTo.load(std::memory_order_acquire); }
    // The last entry at or before `time`; nothing when the index does not reach beyond it. Any thread.
    std::optional<GEntry> Find(REFERENCE_TIME time) const G_EXCLUDES(lock);

private:
    void Build(GFileBase& source) override;
    void AddAudio(GOggPageSource& pages, const GOggPage& page);
    void AddVideo(GOggPage& page);
    void Reached(REFERENCE_TIME time);
    void Append(const GEntry& entry) G_EXCLUDES(lock);

    const GOGG2ReadStream& reference;
    const GOggIndexPauses pauses;
    std::unique_ptr<GOGG2ReadStream> twin;  // index thread; video only
    std::atomic<REFERENCE_TIME> upTo{0};
    mutable GMutex lock;
    std::vector<GEntry> entries G_GUARDED_BY(lock);  // offsets and times do not decrease
};

}  // namespace vex
