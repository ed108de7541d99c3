// Where the key frames of a stream are, found by a thread that scans the packets beside the reader.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "formats/asf/asf_header.h"
#include "formats/asf/asf_packet.h"
#include "framework/contract/index_thread.h"

namespace vex {

// What the scan has to know; constant.
struct GAsfScanPlan {
    std::uint16_t stream = kAsfNoStream;  // the reference stream
    bool video = false;                   // only key frames count
    GAsfLimits limits{};
    std::int64_t dataStart = 0;
    std::int64_t dataEnd = 0;  // kAsfUntilFileEnd: the data ends with the file
    REFERENCE_TIME preroll = 0;
    REFERENCE_TIME latest = 0;                   // no object is later, preroll included; 0: not known
    std::chrono::milliseconds growthPause{500};  // between looks at a file that lacks data
};

class GAsfUserIndex final : public GIndexThread {
public:
    explicit GAsfUserIndex(const GAsfScanPlan& scanPlan) : GIndexThread("asf index"), plan(scanPlan) {}
    ~GAsfUserIndex() override { Stop(); }

    // The time of the last entry, without preroll; 0 when there is none. Any thread.
    REFERENCE_TIME IndexedUpTo() const { return upTo.load(std::memory_order_acquire); }
    // The packet to start from for a time without preroll: of the last entry at or before it, or the first one. Empty
    // if there is no entry or the time lies behind the duration. Any thread.
    std::optional<std::int64_t> Find(REFERENCE_TIME time) const G_EXCLUDES(lock);

private:
    struct GEntry {
        REFERENCE_TIME time = 0;  // 100 ns, preroll included
        std::int64_t offset = 0;  // of the packet, from the start of the file
    };
    enum class GScanned : std::uint8_t { Unreadable, Missing, Nothing, Match };
    struct GFound {
        REFERENCE_TIME time = 0;  // of the object that matches, preroll included
        std::uint64_t rest = 0;   // bytes of the reference stream's last object that later packets hold
    };

    void Build(GFileBase& source) override { MakeUserIndex(source); }
    void MakeUserIndex(GFileBase& source);
    GScanned ScanPacket(GScanWindow& window, std::int64_t position, std::int64_t end, GFound& found) const;
    bool Append(const GEntry& entry) G_EXCLUDES(lock);

    const GAsfScanPlan plan;
    std::atomic<REFERENCE_TIME> upTo{0};
    mutable GMutex lock;
    std::vector<GEntry> entries G_GUARDED_BY(lock);  // times grow
};

}  // namespace vex
