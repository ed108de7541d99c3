// Reads MP4, QuickTime and 3GP files.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "formats/mp4/mp4_movie.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"

namespace vex {

// Streams are numbered by their track IDs. Packets come in steps of a tenth of a second of the movie: each track in
// turn up to the horizon, then the horizon moves on.
class GMp4ReadHandler final : public GReadHandler {
public:
    explicit GMp4ReadHandler(std::unique_ptr<GFileBase> byteSource = std::make_unique<GCacheFile>());

    REFERENCE_TIME Duration() const override { return duration; }
    std::span<const GStreamInfo> Streams() const override { return infos; }

    void StartRun(std::span<const std::uint32_t> wanted) override;
    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    // The time up to which the tracks are in the file, as far as its size was seen, 100 ns. Any thread while open.
    REFERENCE_TIME AvailableTime() const;

    std::vector<GProperty> Properties() const override;

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;
    bool LeaveAnnounced(GPacket2& packet) override;
    std::size_t CutLeft(const GPacket2& packet, std::size_t there) override;

private:
    // A track with a pin.
    struct GReading {
        Mp4Track* track = nullptr;  // in `movie`
        bool disabled = false;      // the last seek went beyond its end
        bool ending = false;        // its end is yet to be told
    };

    bool DescribeStreams();
    bool NextPass();
    REFERENCE_TIME HorizonTime() const;
    std::int64_t SeekForRead(std::uint64_t position, std::uint64_t size);
    GReadStatus Announce(GReading& reading, GNextPacket& next);

    // Fixed from Open to Close.
    Mp4Movie movie;
    std::vector<GStreamInfo> infos;
    REFERENCE_TIME duration = 0;  // 100 ns

    std::atomic<std::int64_t> sizeSeen{0};  // bytes of the file when it last mattered; reader thread writes

    // Reader thread.
    std::vector<GReading> readings;  // in the order of the tracks
    std::size_t turn = 0;            // of `readings`; behind the last one: the pass is over
    std::uint64_t horizon = 0;       // movie timescale units
    REFERENCE_TIME horizonTime = 0;  // 100 ns
    struct {
        const Mp4Track* track = nullptr;
        std::uint64_t position = 0;
        std::uint64_t size = 0;  // bytes
    } announced;
};

}  // namespace vex
