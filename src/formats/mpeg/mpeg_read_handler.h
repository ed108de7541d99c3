// Reads MPEG transport and program streams.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "formats/mpeg/mpeg_navigation.h"
#include "formats/mpeg/mpeg_read_stream.h"
#include "formats/mpeg/mpeg_search.h"
#include "formats/mpeg/mpeg_walker.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"

namespace vex {

enum class GMpegPinNames : std::uint8_t {
    First,   // "Video", "Audio"
    Second,  // "Video (224)", "Audio /English (128)"
};

// Packets come in the order of the file, those of a stream joined from one time to the next. A seek reports the target
// as reached; reading goes on about ten seconds before it.
class GMpeg2ReadHandler final : public GReadHandler {
public:
    explicit GMpeg2ReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>(),
                               GMpegPinNames pinNames = GMpegPinNames::Second);

    REFERENCE_TIME Duration() const override { return search ? search->duration : 0; }
    std::span<const GStreamInfo> Streams() const override { return infos; }

    void StartRun(std::span<const std::uint32_t> wanted) override;
    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    std::vector<GProperty> Properties() const override;

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;

private:
    GStreamInfo Describe(const GMpeg2ReadStream& stream) const;
    void GoTo(std::int64_t position);
    GReadStatus ReadTransport(GNextPacket& next);
    GReadStatus ReadProgram(GNextPacket& next);
    GMpeg2ReadStream* FeedProgram(const GProgramUnit& unit);
    void Skip(std::int64_t from, std::int64_t to);
    GReadStatus EndStreams(GNextPacket& next, std::int64_t position);
    void Announce(GMpeg2ReadStream& stream, GNextPacket& next);
    GMpeg2ReadStream* Find(std::uint32_t number);

    const GMpegPinNames names;

    // Fixed from Open to Close, but for what the reader moves in it.
    GMpegLayout layout;
    GMpegNavigation navigation;
    std::vector<GMpeg2StreamPtr> streams;
    std::vector<GStreamInfo> infos;
    std::vector<std::uint8_t> streamOfPid;  // index and 1; 0: none that is wanted

    // Reader thread. Looks and reading have a window each, so that a short look does not cost a large block.
    std::unique_ptr<GScanWindow> lookWindow;
    std::unique_ptr<GScanWindow> readWindow;
    std::unique_ptr<GMpegSearch> search;
    std::unique_ptr<GTransportWalker> transport;
    std::unique_ptr<GProgramWalker> program;
    bool landed = false;     // a seek may lead into the middle of a packet
    std::size_t ending = 0;  // streams whose end was delivered
    GPesUnit* announced = nullptr;
};

}  // namespace vex
