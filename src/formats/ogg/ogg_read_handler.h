// Reads Ogg files with Vorbis, Theora and OGM streams.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "formats/ogg/ogg_header_scan.h"
#include "formats/ogg/ogg_index.h"
#include "formats/ogg/ogg_page_source.h"
#include "formats/ogg/ogg_pin_names.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"

namespace vex {

// A stream's number is its serial number in the file.
class GOGG2ReadHandler final : public GReadHandler {
public:
    // `file` is what a path is opened with; the index opens it a second time, by NewInstance.
    explicit GOGG2ReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>(),
                              GOggPinNames pinNames = GOggPinNames::Second, GOggIndexPauses growthPauses = {});
    ~GOGG2ReadHandler() override { Close(); }

    REFERENCE_TIME Duration() const override;
    std::span<const GStreamInfo> Streams() const override { return infos; }
    bool IsIndexComplete() const override { return !index || !index->IsScanning(); }

    void StartRun(std::span<const std::uint32_t> wanted) override;
    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    std::vector<GProperty> Properties() const override { return properties; }

    // Null when no stream can be indexed.
    const GOggIndex* Index() const { return index.get(); }

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;

private:
    // What the reader does with a stream in this run.
    struct GReading {
        bool wanted = true;
        std::uint64_t skip = 0;  // packets still to be passed over
    };

    void DescribeStreams();
    GStreamInfo Describe(const GOGG2ReadStream& stream, std::size_t place) const;
    void StartIndex();

    void MoveTo(std::int64_t position);
    std::int64_t PositionOf(REFERENCE_TIME time);
    REFERENCE_TIME FindNextKeyFrame(GOGG2ReadStream& video, REFERENCE_TIME time, std::int64_t from);

    void PassPage();
    bool TakeFrom(GOGG2ReadStream& stream, GReading& reading, GOggPacket& packet);
    void Announce(GOGG2ReadStream& stream, const GOggPacket& packet, GNextPacket& next);

    const GOggPinNames names;
    const GOggIndexPauses pauses;

    // Fixed from Open to Close, but for the streams' packets, which are the reader thread's.
    GOggStreams streams;
    std::vector<GStreamInfo> infos;
    std::vector<GProperty> properties;
    REFERENCE_TIME durationAtOpen = 0;  // 100 ns
    std::unique_ptr<GOggIndex> index;   // ends before the streams

    // Reader thread.
    std::optional<GOggPageSource> pages;
    GOggPage page;
    std::vector<GReading> readings;  // by place in `streams`
    bool atEnd = false;              // no page is left in the file as it is now
    GBytes payload;                  // of the packet announced last; in its stream's buffer
};

}  // namespace vex
