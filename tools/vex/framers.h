// How extracted payloads are framed so that other tools read them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "dshow/media_type.h"
#include "host/sink_pin.h"
#include "tools/vex/report.h"

namespace vex {

// Where framed bytes go.
using GByteSink = std::function<void(std::span<const std::uint8_t>)>;

// Turns the samples of one stream into a file. One thread at a time.
class GFramer {
public:
    virtual ~GFramer() = default;

    // The properties of the pin, as IVexInspect shows them. Before Begin.
    virtual void Describe(const GJson& properties) { static_cast<void>(properties); }
    // What the file starts with.
    virtual void Begin(const GByteSink&) {}
    virtual void Sample(const GSampleView& sample, const GByteSink& out) = 0;
    virtual void Finish(const GByteSink&) {}

    // Samples that did not have the shape their media type promises; their bytes are left out or cut.
    std::uint64_t Misshapen() const { return misshapen; }

protected:
    std::uint64_t misshapen = 0;
};

struct GFraming {
    std::string format;     // "annexb", "adts", "raw" ...
    std::string extension;  // without the dot
    std::unique_ptr<GFramer> framer;
};

// Picks the framing for a media type. The result is raw if no other fits the type, or if `raw` is true.
GFraming ChooseFraming(const CMediaType& type, bool raw);

// For H.264 with length-prefixed units, described by a FORMAT_MPEG2Video block: writes the parameter sets once, and
// start codes in place of the lengths. Null for any other type, and when the block is too short.
std::unique_ptr<GFramer> MakeAnnexBFramer(const CMediaType& type);
// AAC with an AudioSpecificConfig behind the wave format: a header per frame (ISO/IEC 13818-7). Null when the
// configuration is missing or cannot be said in a header.
std::unique_ptr<GFramer> MakeAdtsFramer(const CMediaType& type);
// Text as SubRip entries; SubStation Alpha events behind their file header.
std::unique_ptr<GFramer> MakeSubRipFramer(const CMediaType& type);
std::unique_ptr<GFramer> MakeSubStationFramer(const CMediaType& type);
// Vorbis on Ogg pages, behind the three headers of a FORMAT_VorbisFormat2 block. Null when they are not all there.
std::unique_ptr<GFramer> MakeVorbisFramer(const CMediaType& type);
// The same where the headers are the first samples.
std::unique_ptr<GFramer> MakeInBandVorbisFramer(const CMediaType& type);

}  // namespace vex
