// Reads AVI files, OpenDML ones and ones without an index included.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "formats/avi/avi_layout.h"
#include "formats/avi/avi_scanner.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"

namespace vex {

// Streams() is in header order: a stream's place there is its 0-based number.
class GAvi2ReadHandler final : public GReadHandler {
public:
    // `file` is what a path is opened with; the scanner opens it a second time, by NewInstance.
    explicit GAvi2ReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>(),
                              GAviScanPauses scanPauses = {});
    ~GAvi2ReadHandler() override { Close(); }

    REFERENCE_TIME Duration() const override { return duration; }
    std::span<const GStreamInfo> Streams() const override { return infos; }
    REFERENCE_TIME LongestStreamDuration() const override;
    bool IsIndexComplete() const override { return !scanner || !scanner->IsScanning(); }

    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    std::vector<GProperty> Properties() const override;

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;
    bool LeaveAnnounced(GPacket2& packet) override;
    std::size_t CutLeft(const GPacket2& packet, std::size_t there) override;

private:
    void DescribeStreams();
    GAvi2ReadStream* EarliestStream() const;
    bool ReadAnnounced(GBuffer& data);

    const GAviScanPauses pauses;

    // Fixed from Open to Close.
    GAviLayout layout;
    std::vector<GStreamInfo> infos;
    REFERENCE_TIME duration = 0;  // 100 ns

    // Reader thread.
    GAviChunk announced;        // what ReadPacket announced last
    std::int64_t sizeSeen = 0;  // the file's, in bytes, when it last mattered

    std::unique_ptr<GAviIndexScanner> scanner;  // null when the file has an index; ends before what it works on
};

}  // namespace vex
