// Reads ASF files.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "formats/asf/asf_data_reader.h"
#include "formats/asf/asf_header.h"
#include "formats/asf/asf_user_index.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"

namespace vex {

// A stream's number is its number in the file. A seek reports its target as reached: what lies between the packet it
// landed on and the target comes with times before the segment.
class GAsfExReadHandler final : public GReadHandler {
public:
    struct GTimes {
        std::chrono::milliseconds growthPause{500};  // between two looks of the index thread at a file that lacks data
        std::chrono::milliseconds indexWait{1'000};  // of a seek for the index thread, at most
    };

    explicit GAsfExReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>())
        : GAsfExReadHandler(std::move(file), GTimes())
    {
    }
    GAsfExReadHandler(std::unique_ptr<GFileBase> file, GTimes waits);
    ~GAsfExReadHandler() override { Close(); }

    REFERENCE_TIME Duration() const override;
    std::span<const GStreamInfo> Streams() const override { return infos; }
    bool IsIndexComplete() const override { return !userIndex || !userIndex->IsScanning(); }

    void StartRun(std::span<const std::uint32_t> wanted) override { reader->Want(wanted); }
    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    std::vector<GProperty> Properties() const override;

    // Null when no stream can be indexed.
    const GAsfUserIndex* UserIndex() const { return userIndex.get(); }

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;

private:
    void DescribeStreams();
    void StartUserIndex();
    void WaitForIndex(REFERENCE_TIME time) const;
    std::int64_t SeekPacketOffset(REFERENCE_TIME time);
    std::optional<std::int64_t> GetIndexOffset_SimpleIndexObject(REFERENCE_TIME time, std::size_t place) const;

    const GTimes times;

    // Fixed from Open to Close, but for the streams' objects in progress, which are the reader thread's.
    GAsfHeader header;
    std::vector<GStreamInfo> infos;
    std::unique_ptr<GAsfUserIndex> userIndex;  // has a lock of its own

    std::unique_ptr<GAsfDataReader> reader;  // reader thread; uses `header`
};

}  // namespace vex
