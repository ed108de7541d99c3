// Reads FLV files: an audio and a video stream, in the order of their tags.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "formats/flv/flv_reader.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"

namespace vex {

// Streams() has audio first; their numbers are the tag types. A seek reports the target as reached: what lies between
// the key frame it landed on and the target comes with times before the segment.
class GFlvReadHandler final : public GReadHandler {
public:
    explicit GFlvReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>());

    REFERENCE_TIME Duration() const override { return reader ? reader->duration : 0; }
    std::span<const GStreamInfo> Streams() const override { return infos; }

    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    bool AcceptsSeek(REFERENCE_TIME time) const override { return time <= 0 || time < Duration(); }
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    std::vector<GProperty> Properties() const override;

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;

private:
    GStatus DescribeStreams();
    bool HasStream(std::uint8_t type) const;

    // Fixed from Open to Close, but for what the reader thread moves in it.
    std::unique_ptr<GFlvReader> reader;
    std::vector<GStreamInfo> infos;

    FlvTag announced;  // reader thread: what ReadPacket announced last
};

}  // namespace vex
