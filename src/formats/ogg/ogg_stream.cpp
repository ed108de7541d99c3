#include "formats/ogg/ogg_stream.h"

#include <algorithm>
#include <limits>
#include <new>

#include "formats/ogg/ogg_gstream.h"
#include "formats/ogg/ogg_theora_stream.h"
#include "formats/ogg/ogg_vorbis_stream.h"
#include "formats/ogg/ogm_streams.h"
#include "io/checked_math.h"
#include "io/limits.h"

namespace vex {
namespace {

// Entries of libogg's lacing table.
constexpr int kLacingSize = 0xFF;   // a segment's size; 255: the packet goes on
constexpr int kLacingHole = 0x400;  // pages are missing here

// Packets are held back until this much waits for a granule: bytes, and segments, which an empty packet has too. One
// page holds less than 64 KiB in at most 255 segments.
constexpr long kMostHeld = 1L << 20;
constexpr long kMostHeldSegments = 1L << 14;

constexpr REFERENCE_TIME kLongestTime = REFERENCE_TIME{1} << 60;

std::int64_t AddCut(std::int64_t a, std::int64_t b)
{
    using GLimits = std::numeric_limits<std::int64_t>;
    return CheckedAdd(a, b).value_or(b < 0 ? GLimits::min() : GLimits::max());
}

}  // namespace

GOggKind IdentifyHeader(GBytes packet)
{
    constexpr struct {
        GOggKind kind;
        std::string_view signature;
    } kSignatures[] = {
        {GOggKind::Theora, "theora"},  {GOggKind::Vorbis, "vorbis"}, {GOggKind::OgmVideo, "video"},
        {GOggKind::OgmAudio, "audio"}, {GOggKind::OgmText, "text"},  {GOggKind::GStream, "GStream"},
    };
    for (const auto& row : kSignatures) {
        if (HasTextAt(packet, 1, row.signature))
            return row.kind;
    }
    return GOggKind::NotHeader;
}

REFERENCE_TIME OggTime(std::int64_t value, std::int64_t mul, std::int64_t div)
{
    if (div == 0)
        return 0;
    const bool negative = ((value < 0) != (mul < 0)) != (div < 0);
    return std::clamp(MulDiv64(value, mul, div).value_or(negative ? -kLongestTime : kLongestTime), -kLongestTime,
                      kLongestTime);
}

GOGG2ReadStream::GOGG2ReadStream(GOggKind kind, std::uint32_t serial) : streamKind(kind), serialNumber(serial)
{
    if (ogg_stream_init(&state, static_cast<int>(serial)) != 0)
        throw std::bad_alloc();
}

GOGG2ReadStream::~GOGG2ReadStream() { ogg_stream_clear(&state); }

std::unique_ptr<GOGG2ReadStream> GOGG2ReadStream::Create(GOggKind kind, std::uint32_t serial)
{
    switch (kind) {
    case GOggKind::OgmAudio:
        return std::make_unique<GOgg2AudioStream>(serial);
    case GOggKind::OgmVideo:
        return std::make_unique<GOgg2VideoStream>(serial);
    case GOggKind::Vorbis:
        return std::make_unique<GOgg2VorbisStream>(serial);
    case GOggKind::Theora:
        return std::make_unique<GOgg2TheoraStream>(serial);
    case GOggKind::OgmText:
        return std::make_unique<GOgg2TextStream>(serial);
    case GOggKind::GStream:
        return std::make_unique<GOgg2GStream>(serial);
    case GOggKind::None:
    case GOggKind::NotHeader:
        break;
    }
    return nullptr;
}

std::unique_ptr<GOGG2ReadStream> GOGG2ReadStream::Twin() const
{
    auto twin = Create(streamKind, serialNumber);
    for (const GHeader& header : headers) {
        if (header.filled)
            twin->HeaderIn({.data = header.data, .granule = 0, .beginsStream = header.beginsStream});
    }
    return twin;
}

void GOGG2ReadStream::StoreHeader(std::size_t slot, const GOggPacket& packet)
{
    if (slot >= kHeaderSlots)
        return;
    headers[slot].data.assign(packet.data.begin(), packet.data.end());
    headers[slot].beginsStream = packet.beginsStream;
    headers[slot].filled = true;
}

REFERENCE_TIME GOGG2ReadStream::GranuleToTime(std::int64_t granule) const
{
    return granule < 0 ? -1 : PositionTime(GranulePosition(granule));
}

REFERENCE_TIME GOGG2ReadStream::PacketTime(const GOggPacket& packet)
{
    if (packet.granule >= 0) {
        position = GranulePosition(packet.granule);
        countingBack = false;
    } else {
        Advance(countingBack ? Length(packet) : Step(packet));
    }
    anyPosition = true;
    return PositionTime(position);
}

void GOGG2ReadStream::Advance(std::int64_t units) { position = AddCut(position, units); }

void GOGG2ReadStream::Reset()
{
    ogg_stream_reset(&state);
    pageOffsets.clear();
    openPage = -1;
    position = 0;
    positionKnown = anyPosition = countingBack = false;
    keyFrameWait = true;
}

long GOGG2ReadStream::WaitingPackets() const
{
    return static_cast<long>(
        std::count_if(state.lacing_vals + state.lacing_returned, state.lacing_vals + state.lacing_packet,
                      [](int lacing) { return (lacing & kLacingHole) == 0 && (lacing & kLacingSize) < 255; }));
}

void GOGG2ReadStream::PageIn(GOggPage& page)
{
    const long before = WaitingPackets();
    if (ogg_stream_pagein(&state, &page.page) != 0)
        return;
    const long added = WaitingPackets() - before;
    const bool continued = ogg_page_continued(&page.page) != 0 && openPage >= 0;
    // libogg drops the end of a packet whose beginning it has not seen.
    const bool joined = continued && added == ogg_page_packets(&page.page);
    for (long i = 0; i < added; ++i)
        pageOffsets.push_back(i == 0 && joined ? openPage : page.offset);
    const int segments = page.page.header[26];
    const bool open = segments > 0 && page.page.header[26 + segments] == 255;
    if (!open)
        openPage = -1;
    else if (!continued || added > 0)
        openPage = page.offset;
    if (state.body_fill - state.body_returned > static_cast<long>(kMaxPacketSize)) {
        ogg_stream_reset(&state);
        pageOffsets.clear();
        openPage = -1;
        positionKnown = false;
    }
}

bool GOGG2ReadStream::PeekRaw(GOggPacket& packet, bool& hole)
{
    ogg_packet raw{};
    const int got = ogg_stream_packetpeek(&state, &raw);
    hole = got < 0;
    if (got <= 0)
        return false;
    packet.data = {raw.packet, static_cast<std::size_t>(raw.bytes)};
    packet.granule = raw.granulepos;
    packet.pageOffset = pageOffsets.empty() ? 0 : pageOffsets.front();
    packet.beginsStream = raw.b_o_s != 0;
    return true;
}

GOGG2ReadStream::GPeek GOGG2ReadStream::Peek(GOggPacket& packet, bool lastChance)
{
    bool hole = false;
    while (PeekRaw(packet, hole)) {
        if (IdentifyHeader(packet.data) != GOggKind::NotHeader) {
            Pop();
            continue;
        }
        return positionKnown || CountBack(lastChance) ? GPeek::Packet : GPeek::Held;
    }
    if (!hole)
        return GPeek::None;
    positionKnown = false;
    return GPeek::Hole;
}

void GOGG2ReadStream::Pop()
{
    ogg_packet taken{};
    ogg_stream_packetout(&state, &taken);
    if (!pageOffsets.empty())
        pageOffsets.pop_front();
}

bool GOGG2ReadStream::TakeHeader(GOggPacket& packet)
{
    bool hole = false;
    while (!PeekRaw(packet, hole)) {
        if (!hole)
            return false;
    }
    Pop();
    return true;
}

// Places the position ahead of the first packet, so that the packets up to the first granule lead to it.
bool GOGG2ReadStream::CountBack(bool lastChance)
{
    positionKnown = true;
    countingBack = false;
    if (!CountsBack())
        return true;
    std::int64_t total = 0;
    std::int64_t first = -1;
    const auto lowest = [&] { return anyPosition ? position : FirstPosition(std::max<std::int64_t>(first, 0)); };
    bool hole = false;
    GOggPacket packet;
    long body = state.body_returned;
    for (long i = state.lacing_returned; i < state.lacing_packet && !hole;) {
        long size = 0;
        int lacing = 0;
        do {
            lacing = state.lacing_vals[i];
            hole = (lacing & kLacingHole) != 0;
            size += hole ? 0 : lacing & kLacingSize;
            packet.granule = state.granule_vals[i++];
        } while (!hole && (lacing & kLacingSize) == 255 && i < state.lacing_packet);
        packet.data = {state.body_data + body, static_cast<std::size_t>(size)};
        body += size;
        if (hole || IdentifyHeader(packet.data) != GOggKind::NotHeader)
            continue;
        const std::int64_t length = Length(packet);
        first = first < 0 ? length : first;
        total = AddCut(total, length);
        if (packet.granule < 0)
            continue;
        position = std::max(AddCut(GranulePosition(packet.granule), -total), lowest());
        countingBack = true;
        return true;
    }
    position = lowest();
    positionKnown = hole || lastChance || state.body_fill - state.body_returned > kMostHeld ||
                    state.lacing_fill - state.lacing_returned > kMostHeldSegments;
    return positionKnown;
}

}  // namespace vex
