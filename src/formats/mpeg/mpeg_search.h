// Times at places of the file: the duration, and where a seek lands.
#pragma once

#include <optional>
#include <span>

#include "formats/mpeg/mpeg_navigation.h"
#include "formats/mpeg/mpeg_read_stream.h"
#include "formats/mpeg/mpeg_walker.h"

namespace vex {

// A seek lands this much before its target, 100 ns: what decoders need to have a picture by then.
inline constexpr REFERENCE_TIME kMpegSeekMargin = 100'000'000;

// Fixed from the end of the scan on, but for what the last seek found. Everything given outlives the search.
class GMpegSearch {
public:
    GMpegSearch(GScanWindow& scanWindow, const GMpegLayout& fileLayout, std::span<const GMpeg2StreamPtr> fileStreams,
                const GMpegNavigation& packs, std::int64_t size)
        : window(scanWindow), layout(fileLayout), streams(fileStreams), navigation(packs), fileSize(size)
    {
    }

    // 1 when `duration` was found, else 0.
    int ComputeDuration();
    // The position to read on from, bytes.
    std::int64_t SeekTo(REFERENCE_TIME target);

    REFERENCE_TIME duration = 0;  // 100 ns

private:
    struct GPoint {
        std::int64_t position = 0;  // bytes
        REFERENCE_TIME time = 0;    // 100 ns
    };

    int TransportDuration();
    int ProgramDuration();
    std::optional<std::int64_t> AlignedNearEnd();
    std::int64_t Guess(const GPoint& low, const GPoint& high, REFERENCE_TIME target, bool halve) const;

    // The time of the first packet of a known stream in [from, until) that has one.
    std::optional<REFERENCE_TIME> FindTime(std::int64_t from, std::int64_t until);
    std::optional<REFERENCE_TIME> TransportTime(const GTransportPacket& packet, std::int64_t position) const;
    std::optional<REFERENCE_TIME> ProgramTime(std::int64_t position);
    std::optional<REFERENCE_TIME> TimeIn(std::uint32_t number, std::uint64_t pts, std::int64_t position) const;

    GScanWindow& window;
    const GMpegLayout& layout;
    const std::span<const GMpeg2StreamPtr> streams;
    const GMpegNavigation& navigation;
    const std::int64_t fileSize;
    std::optional<GPoint> lastSeek;  // its target, and where it led
};

}  // namespace vex
