// Theora in Ogg (Theora I, appendix A). The position counts frames.
#pragma once

#include "formats/ogg/ogg_stream.h"
#include "media/xiph_headers.h"

namespace vex {

class GOgg2TheoraStream final : public GOGG2ReadStream {
public:
    explicit GOgg2TheoraStream(std::uint32_t serial) : GOGG2ReadStream(GOggKind::Theora, serial) {}

    bool HeaderIn(const GOggPacket& packet) override;
    unsigned HeadersMissing() const override;
    std::uint32_t BuildMediaType(CMediaType& type) const override;

    bool IsKeyFrame(const GOggPacket& packet) const override;
    REFERENCE_TIME GranuleToTime(std::int64_t granule) const override;
    REFERENCE_TIME PacketTime(const GOggPacket& packet) override;

protected:
    std::int64_t GranulePosition(std::int64_t granule) const override;
    std::int64_t Length(const GOggPacket&) const override { return 1; }
    REFERENCE_TIME PositionTime(std::int64_t frames) const override { return OggTime(frames, frameDuration, 1); }
    std::int64_t FirstPosition(std::int64_t firstLength) const override { return -firstLength; }

private:
    GTheoraIdentification identification;
    REFERENCE_TIME frameDuration = 0;  // 100 ns
    unsigned granuleShift = 0;
    std::int64_t granuleOffset = 0;  // 1: granules count frames from 1
};

}  // namespace vex
