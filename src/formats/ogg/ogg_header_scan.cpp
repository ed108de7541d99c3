#include "formats/ogg/ogg_header_scan.h"

#include <algorithm>
#include <limits>
#include <string>

namespace vex {
namespace {

constexpr std::int64_t kScannedBytes = 131'072;
// Each stream costs 28 KiB of tables; honest files have a handful.
constexpr std::size_t kMaxStreams = 255;

// First packets of codecs that are not read here.
constexpr struct {
    std::string_view signature;
    const char* name;
} kOtherCodecs[] = {
    {"OpusHead", "Opus"},
    {"\x7F"
     "FLAC",
     "FLAC"},
    {"fLaC", "FLAC"},
    {"Speex   ", "Speex"},
    {"fishead", "Skeleton"},
    {"CMML", "CMML"},
    {"\x80kate", "Kate"},
    {"\x80"
     "daala",
     "Daala"},
    {"BBCD", "Dirac"},
    {"OVP80", "VP8"},
    {"PCM     ", "PCM"},
    {"CELT    ", "CELT"},
    {"\x8BMNG", "MNG"},
    {"\x8AJNG", "JNG"},
    {"\x89PNG", "PNG"},
    {"YUV4MPEG", "YUV4MPEG"},
    {"UVS ", "uncompressed video"},
    {"Annodex", "Annodex"},
    {"OggMIDI", "MIDI"},
};

const char* NameOfOther(GBytes packet)
{
    for (const auto& row : kOtherCodecs) {
        if (HasTextAt(packet, 0, row.signature))
            return row.name;
    }
    return "an unknown codec";
}

class GHeaderScan {
public:
    GHeaderScan(GFileBase& source, GDamageLog& damage) : pages(source, &damage, kScannedBytes) {}

    GResult<GOggStreams> Run()
    {
        pages.MoveTo(0, kScannedBytes);
        if (!pages.Fill())
            return GError{GErrorKind::EndOfStream, "the file is empty", 0};
        GOggPage page;
        std::int64_t budget = std::numeric_limits<std::int64_t>::max();
        while (pages.Next(page, budget)) {
            if (page.BeginsStream())
                Begin(page);
            else if (GOGG2ReadStream* const stream = FindStream(streams, page.Serial()))
                Continue(*stream, page);
        }
        const bool begun = !streams.empty();
        std::erase_if(streams, [](const auto& stream) { return stream->HeadersMissing() != 0; });
        if (streams.empty())
            return Nothing(begun);
        return std::move(streams);
    }

private:
    GError Nothing(bool begun) const
    {
        if (!others.empty())
            return {GErrorKind::Unsupported, "no stream of the Ogg file can be played; it holds", 0, 0, others};
        if (begun)
            return {GErrorKind::Malformed, "headers of the Ogg stream are missing", 0};
        return {GErrorKind::Malformed, "no Ogg stream begins in the first 128 KiB", 0};
    }

    void Begin(GOggPage& page)
    {
        ogg_stream_state first{};
        if (ogg_stream_init(&first, static_cast<int>(page.Serial())) != 0)
            throw std::bad_alloc();
        ogg_packet raw{};
        const bool whole = ogg_stream_pagein(&first, &page.page) == 0 && ogg_stream_packetout(&first, &raw) == 1;
        const GBytes packet = whole ? GBytes(raw.packet, static_cast<std::size_t>(raw.bytes)) : GBytes();
        const GOggKind kind = whole ? IdentifyHeader(packet) : GOggKind::None;
        if (kind == GOggKind::NotHeader)
            Mention(NameOfOther(packet));
        ogg_stream_clear(&first);
        if (FindStream(streams, page.Serial()) || streams.size() >= kMaxStreams)
            return;
        auto stream = GOGG2ReadStream::Create(kind, page.Serial());
        if (!stream)
            return;
        stream->PageIn(page);
        GOggPacket header;
        if (!stream->TakeHeader(header) || !stream->HeaderIn(header))
            return;
        while (stream->TakeHeader(header))
            stream->HeaderIn(header);
        streams.push_back(std::move(stream));
    }

    // Only the further headers of Vorbis and Theora, and the comments of OGM, which look like the former, are headers
    // here.
    void Continue(GOGG2ReadStream& stream, GOggPage& page)
    {
        stream.PageIn(page);
        GOggPacket packet;
        while (stream.TakeHeader(packet)) {
            const GOggKind kind = IdentifyHeader(packet.data);
            if (!packet.beginsStream && (kind == GOggKind::Vorbis || kind == GOggKind::Theora))
                stream.HeaderIn(packet);
        }
    }

    void Mention(const char* name)
    {
        if (others.find(name) == std::string::npos)
            others += (others.empty() ? "" : ", ") + std::string(name);
    }

    GOggPageSource pages;
    GOggStreams streams;
    std::string others;  // codecs met that are not read here
};

}  // namespace

GOGG2ReadStream* FindStream(const GOggStreams& streams, std::uint32_t serial)
{
    const auto found = std::ranges::find(streams, serial, [](const auto& stream) { return stream->Serial(); });
    return found != streams.end() ? found->get() : nullptr;
}

GOGG2ReadStream* FirstVideo(const GOggStreams& streams)
{
    const auto found = std::ranges::find_if(streams, [](const auto& stream) { return stream->IsVideo(); });
    return found != streams.end() ? found->get() : nullptr;
}

GResult<GOggStreams> ReadOggHeaders(GFileBase& source, GDamageLog& damage) { return GHeaderScan(source, damage).Run(); }

}  // namespace vex
