// Vorbis in Ogg (Vorbis I, appendix A). The position counts samples.
#pragma once

#include <vorbis/codec.h>

#include "formats/ogg/ogg_stream.h"

namespace vex {

class GOgg2VorbisStream final : public GOGG2ReadStream {
public:
    explicit GOgg2VorbisStream(std::uint32_t serial);
    ~GOgg2VorbisStream() override;

    bool HeaderIn(const GOggPacket& packet) override;
    unsigned HeadersMissing() const override;
    std::uint32_t BuildMediaType(CMediaType& type) const override;

protected:
    std::int64_t Length(const GOggPacket& packet) const override;
    REFERENCE_TIME PositionTime(std::int64_t samples) const override
    {
        return OggTime(samples, kUnitsPerSecond, info.rate);
    }

private:
    vorbis_info info{};
    vorbis_comment comment{};
};

}  // namespace vex
