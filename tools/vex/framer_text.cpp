// Text subtitles as files that players open.
#include <cstdio>
#include <string>
#include <string_view>

#include "media/subtitle_types.h"
#include "tools/vex/framers.h"

namespace vex {

namespace {

std::string_view CodecHeader(const CMediaType& type)
{
    const GBytes header = SubtitleCodecHeader(type);
    return {reinterpret_cast<const char*>(header.data()), header.size()};
}

std::span<const std::uint8_t> Bytes(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string_view Text(const GSampleView& sample)
{
    std::string_view text(reinterpret_cast<const char*>(sample.data.data()), sample.data.size());
    while (!text.empty() && (text.back() == '\0' || text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

struct GClock {
    unsigned hours;
    unsigned minutes;
    unsigned seconds;
    unsigned ms;
};

GClock Clock(REFERENCE_TIME time)
{
    const auto ms = static_cast<std::uint64_t>(time < 0 ? 0 : time) / (kUnitsPerSecond / 1000);
    return {static_cast<unsigned>(ms / 3'600'000), static_cast<unsigned>(ms / 60'000 % 60),
            static_cast<unsigned>(ms / 1000 % 60), static_cast<unsigned>(ms % 1000)};
}

class GSubRipFramer final : public GFramer {
public:
    void Sample(const GSampleView& sample, const GByteSink& out) override
    {
        if (sample.start == kNoTime) {
            ++misshapen;
            return;
        }
        if (Text(sample).empty())  // the sample that lets a renderer begin
            return;
        const GClock from = Clock(sample.start);
        const GClock to = Clock(sample.stop == kNoTime ? sample.start : sample.stop);
        char head[96];
        std::snprintf(head, sizeof head, "%llu\r\n%02u:%02u:%02u,%03u --> %02u:%02u:%02u,%03u\r\n", ++number,
                      from.hours, from.minutes, from.seconds, from.ms, to.hours, to.minutes, to.seconds, to.ms);
        out(Bytes(head));
        out(Bytes(Text(sample)));
        out(Bytes("\r\n\r\n"));
    }

private:
    unsigned long long number = 0;
};

// Matroska keeps an event's fields but its times in the payload, with the reading order in front.
class GSubStationFramer final : public GFramer {
public:
    explicit GSubStationFramer(std::string fileHeader) : header(std::move(fileHeader)) {}

    void Begin(const GByteSink& out) override
    {
        out(Bytes(header));
        if (!header.empty() && header.back() != '\n')
            out(Bytes("\r\n"));
        if (header.find("[Events]") == std::string::npos)
            out(Bytes(
                "\r\n[Events]\r\nFormat: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\r\n"));
    }

    void Sample(const GSampleView& sample, const GByteSink& out) override
    {
        const std::string_view text = Text(sample);
        const std::size_t order = text.find(',');
        const std::size_t layer = order == std::string_view::npos ? order : text.find(',', order + 1);
        if (layer == std::string_view::npos || sample.start == kNoTime) {
            ++misshapen;
            return;
        }
        const GClock from = Clock(sample.start);
        const GClock to = Clock(sample.stop == kNoTime ? sample.start : sample.stop);
        char times[64];
        std::snprintf(times, sizeof times, ",%u:%02u:%02u.%02u,%u:%02u:%02u.%02u", from.hours, from.minutes,
                      from.seconds, from.ms / 10, to.hours, to.minutes, to.seconds, to.ms / 10);
        out(Bytes("Dialogue: "));
        out(Bytes(text.substr(order + 1, layer - order - 1)));
        out(Bytes(times));
        out(Bytes(text.substr(layer)));
        out(Bytes("\r\n"));
    }

private:
    const std::string header;
};

}  // namespace

std::unique_ptr<GFramer> MakeSubRipFramer(const CMediaType&) { return std::make_unique<GSubRipFramer>(); }

std::unique_ptr<GFramer> MakeSubStationFramer(const CMediaType& type)
{
    return std::make_unique<GSubStationFramer>(std::string(CodecHeader(type)));
}

}  // namespace vex
