#include "formats/mpeg/mpeg_stream_finder.h"

#include <algorithm>

#include "formats/mpeg/mpeg_audio_streams.h"
#include "formats/mpeg/mpeg_video_streams.h"

namespace vex {
namespace {

constexpr std::int64_t kTablePackets = 5577;
constexpr std::int64_t kStreamPackets = 55770;
constexpr int kProgramSteps = 700;
constexpr int kProgramStepsAtLeast = 100;
// Looked at for first times, whether or not the streams are found before.
constexpr int kProgramTimePackets = 100;
constexpr std::size_t kProgramOffer = 2048;       // bytes of a packet that are offered to the parsers
constexpr std::int64_t kProgramSearch = 1 << 20;  // bytes passed over in the whole scan

constexpr std::size_t kMostStreams = 64;
// Of PIDs at a time, and of each: enough for a sequence header with its matrices and for two frames of sound.
constexpr std::size_t kMostPending = 64;
constexpr std::size_t kMostPendingBytes = 8192;

// Sub-pictures in private stream 1 of a DVD.
bool IsSubPicture(std::uint8_t subStream) { return subStream >= 0x20 && subStream < 0x40; }

struct GOfferRules {
    bool transport = false;
    const GProgramEntry* entry = nullptr;  // what the program map says; null when it does not
    bool last = false;                     // no more bytes of the packet are going to come
};

// The map says that it is AC-3: a sync word is believed wherever it is. Other private data has some by chance.
bool IsListedAc3(const GProgramEntry* entry)
{
    constexpr std::uint8_t kAc3Type = 0x81;
    return entry && (entry->streamType == kAc3Type || entry->ac3);
}

GMpegParse ParseAudio(GBytes payload, const GOfferRules& rules)
{
    for (const GMpegTrust trust : {GMpegTrust::Confirmed, GMpegTrust::Anywhere}) {
        if (trust == GMpegTrust::Anywhere && !rules.last)
            break;
        if (GMpegParse aac = GMpeg2AACStream::Parse(payload, trust); aac.stream)
            return aac;
        if (rules.entry && rules.entry->IsAac())
            continue;
        if (GMpegParse audio = GMpeg2AUDIOStream::Parse(payload, trust); audio.stream)
            return audio;
    }
    return {.stream = nullptr, .cut = !rules.last};
}

GMpegParse ParseVideo(GBytes payload, const GOfferRules& rules)
{
    GMpegParse mpeg = GMpeg2MPEG2Stream::Parse(payload, rules.last);
    if (mpeg.stream)
        return mpeg;
    GMpegParse avc = GMpeg2AVC1Stream::Parse(payload, rules.last);
    avc.cut = avc.cut || mpeg.cut;
    return avc;
}

GMpegParse ParsePrivate(GBytes payload, const GOfferRules& rules)
{
    if (GMpegParse dts = GMpeg2DTSStream::Parse(payload); dts.stream)
        return dts;
    const bool anywhere = !rules.transport || (rules.last && IsListedAc3(rules.entry));
    if (GMpegParse ac3 = GMpeg2AC3Stream::Parse(payload, anywhere ? GMpegTrust::Anywhere : GMpegTrust::Confirmed);
        ac3.stream)
        return ac3;
    GMpegParse vc1 = GMpeg2VC1Stream::Parse(payload, rules.last);
    if (vc1.stream)
        return vc1;
    GMpegParse lpcm = GMpeg2LPCMStream::Parse(payload);
    lpcm.cut = !rules.last;
    return lpcm;
}

// Bytes that led nowhere by their stream id, or that have none.
GMpegParse ParseWhole(GBytes bytes)
{
    if (GMpegParse dts = GMpeg2DTSStream::Parse(bytes); dts.stream)
        return dts;
    if (GMpegParse ac3 = GMpeg2AC3Stream::Parse(bytes, GMpegTrust::Followed); ac3.stream)
        return ac3;
    return GMpeg2MPEG2Stream::Parse(bytes, false);
}

GMpegParse ParsePacket(GBytes bytes, const GOfferRules& rules)
{
    GPesHeader header;
    const GPesResult result = ReadPesHeader(bytes, rules.transport ? GPesSyntax::Mpeg2 : GPesSyntax::Either, header);
    if (result == GPesResult::NeedMore)
        return {.stream = nullptr, .cut = !rules.last};
    if (result == GPesResult::Malformed)
        return ParseWhole(bytes);
    if (header.scrambled)
        return {};
    GBytes payload = bytes.subspan(header.headerSize);
    GOfferRules known = rules;
    if (!header.Unbounded() && payload.size() >= header.PayloadSize()) {
        payload = payload.first(header.PayloadSize());
        known.last = true;
    }
    GMpegParse parsed;
    const bool aac = rules.entry && rules.entry->IsAac();  // some writers give it the id of private data
    if (mpeg_code::IsAudio(header.streamId) || (aac && !mpeg_code::IsVideo(header.streamId)))
        parsed = ParseAudio(payload, known);
    else if (mpeg_code::IsVideo(header.streamId))
        return ParseVideo(payload, known);
    else if (header.streamId == mpeg_code::kPrivate1 || header.streamId == mpeg_code::kExtended)
        parsed = ParsePrivate(payload, known);
    if (parsed.stream || parsed.cut)
        return parsed;
    return ParseWhole(payload);
}

std::string Hex(unsigned number)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = "0x";
    if (number > 0xFF)
        text += {kDigits[number >> 12 & 15], kDigits[number >> 8 & 15]};
    return text + kDigits[number >> 4 & 15] + kDigits[number & 15];
}

}  // namespace

void GMpegStreamFinder::Scan(GDamageLog& damage)
{
    if (layout.IsTransport()) {
        ReadTables();
        ScanTransport();
    } else {
        ScanProgram();
    }
    for (const GMpeg2StreamPtr& stream : streams) {
        stream->firstPts = firsts[stream->number].smallest;
        if (stream->firstPts.value_or(0) < 0)  // the clock wraps among the first pictures
            *stream->firstPts += kPtsWrap;
        const bool subStream = !layout.IsTransport() && stream->number >> 8 == mpeg_code::kPrivate1;
        const auto headerBytes =
            stream->HeaderBytes(subStream ? static_cast<std::uint8_t>(stream->number & 0xFF) : std::uint8_t{0});
        const GPesSyntax syntax = layout.IsTransport() ? GPesSyntax::Mpeg2 : GPesSyntax::Either;
        stream->assembler = std::make_unique<GPesAssembler>(syntax, headerBytes, damage);
    }
}

void GMpegStreamFinder::ReadTables()
{
    GTransportWalker walker(window, layout);
    const std::int64_t until = layout.origin + kTablePackets * layout.packetSize;
    GTransportPacket packet;
    while (walker.position < until && !tables.Complete() && !WasInterrupted()) {
        const GMpegStep step = walker.Next(packet);
        if (step == GMpegStep::End)
            return;
        if (step == GMpegStep::Lost)
            walker.Resync(until);
        else if (!packet.error && !packet.scrambled)
            tables.Push(packet);
    }
}

void GMpegStreamFinder::ScanTransport()
{
    GTransportWalker walker(window, layout);
    const std::int64_t until = layout.origin + kStreamPackets * layout.packetSize;
    GTransportPacket packet;
    while (walker.position < until && !WasInterrupted()) {
        const GMpegStep step = walker.Next(packet);
        if (step == GMpegStep::End)
            break;
        if (step == GMpegStep::Lost)
            walker.Resync(until);
        else if (!packet.error && !packet.scrambled && !packet.payload.empty() && packet.pid != 0 &&
                 packet.pid != kNullPid)
            TakeTransport(packet);
    }
    while (!pending.empty()) {
        const auto node = pending.extract(pending.begin());
        bool cut = false;
        Offer(node.key(), node.mapped().bytes, tables.Find(static_cast<std::uint16_t>(node.key())), true, cut);
    }
}

void GMpegStreamFinder::TakeTransport(const GTransportPacket& packet)
{
    const std::uint16_t pid = packet.pid;
    const bool begins = packet.unitStart && HasStartCode(packet.payload);
    if (begins) {
        GPesHeader header;
        if (ReadPesHeader(packet.payload, GPesSyntax::Mpeg2, header) == GPesResult::Whole)
            SeeTime(pid, header);
    }
    const GProgramEntry* entry = tables.Find(pid);
    if (Find(pid) || (entry && !entry->MayHaveParser()))
        return;
    bool cut = false;
    auto waiting = pending.find(pid);
    if (begins && waiting != pending.end()) {
        const auto node = pending.extract(waiting);
        if (Offer(pid, node.mapped().bytes, entry, true, cut))
            return;
        waiting = pending.end();
    }
    if (begins) {
        if (!Offer(pid, packet.payload, entry, false, cut) && cut && pending.size() < kMostPending)
            pending[pid] = {.bytes = {packet.payload.begin(), packet.payload.end()},
                            .nextOffer = packet.payload.size() * 2};
        return;
    }
    if (waiting == pending.end()) {
        Add(GMpeg2MPEG2Stream::Parse(packet.payload, false), pid, entry);
        return;
    }
    GPending& start = waiting->second;
    start.bytes.insert(start.bytes.end(), packet.payload.begin(), packet.payload.end());
    const bool last = start.bytes.size() >= kMostPendingBytes;
    if (!last && start.bytes.size() < start.nextOffer)
        return;
    start.nextOffer = start.bytes.size() * 2;
    if (Offer(pid, start.bytes, entry, last, cut) || last || !cut)
        pending.erase(waiting);
}

void GMpegStreamFinder::ScanProgram()
{
    GProgramWalker walker(window, layout);
    std::int64_t searched = 0;
    int packets = 0;
    GProgramUnit unit;
    for (int step = 0; step < kProgramSteps && searched < kProgramSearch && !WasInterrupted();) {
        switch (walker.Next(unit)) {
        case GMpegStep::End:
            return;
        case GMpegStep::Lost: {
            const std::int64_t from = walker.position;
            walker.Resync(from + kProgramSearch - searched);
            searched += walker.position - from;
            continue;
        }
        case GMpegStep::Unit:
            break;
        }
        ++step;
        if (unit.code == mpeg_code::kPrivate2)
            SeeNavigation(walker.Bytes(unit, kNavigationBytes), unit.position);
        else if (unit.IsPacket())
            TakeProgram(unit, walker.Bytes(unit, kProgramOffer));
        packets += unit.IsPacket() ? 1 : 0;
        allFound = allFound || (step > kProgramStepsAtLeast && HasPictureAndSound());
        if (allFound && packets >= kProgramTimePackets)
            return;
    }
}

// The times of a later part begin anew: they do not tell when a stream starts.
void GMpegStreamFinder::SeeNavigation(GBytes packet, std::int64_t position)
{
    const auto entry = ReadNavigationEntry(packet, position);
    if (!entry)
        return;
    laterPart = laterPart || navigation.IsLater(*entry);
    if (navigation.Empty())
        navigation.Append(*entry);
}

void GMpegStreamFinder::TakeProgram(const GProgramUnit& unit, GBytes bytes)
{
    GPesHeader header;
    if (ReadPesHeader(bytes, GPesSyntax::Either, header) != GPesResult::Whole)
        return;
    std::uint8_t subStream = header.extension;
    if (unit.code == mpeg_code::kPrivate1) {
        if (header.headerSize >= bytes.size())
            return;
        subStream = bytes[header.headerSize];
        if (IsSubPicture(subStream))
            return;
    }
    const std::uint32_t number = ProgramStreamKey(unit.code, subStream);
    if (!laterPart)
        SeeTime(number, header);
    bool cut = false;
    if (!allFound && !Find(number))
        Offer(number, bytes, nullptr, true, cut);
}

bool GMpegStreamFinder::HasPictureAndSound() const
{
    const auto picture = [](const GMpeg2StreamPtr& stream) { return IsPicture(stream->kind); };
    return std::ranges::any_of(streams, picture) && !std::ranges::all_of(streams, picture);
}

GMpeg2ReadStream* GMpegStreamFinder::Find(std::uint32_t number) const
{
    const auto stream = std::ranges::find(streams, number, &GMpeg2ReadStream::number);
    return stream == streams.end() ? nullptr : stream->get();
}

void GMpegStreamFinder::SeeTime(std::uint32_t number, const GPesHeader& header)
{
    GFirst& first = firsts[number];
    if (!header.pts)
        return;
    const std::int64_t ticks = first.clock.Unwrap(*header.pts);
    first.smallest = std::min(first.smallest.value_or(ticks), ticks);
}

// Whether the packet that `bytes` begin with made a stream. `cut`: more bytes of it may.
bool GMpegStreamFinder::Offer(std::uint32_t number, GBytes bytes, const GProgramEntry* entry, bool last, bool& cut)
{
    GMpegParse parsed = ParsePacket(bytes, {.transport = layout.IsTransport(), .entry = entry, .last = last});
    cut = parsed.cut;
    return Add(std::move(parsed), number, entry);
}

bool GMpegStreamFinder::Add(GMpegParse&& parsed, std::uint32_t number, const GProgramEntry* entry)
{
    if (!parsed.stream || streams.size() >= kMostStreams)
        return false;
    GMpeg2ReadStream& stream = *parsed.stream;
    stream.number = number;
    const bool shared = !layout.IsTransport() && number >> 8 == mpeg_code::kPrivate1;
    stream.id = static_cast<std::uint16_t>(shared ? number & 0xFF : number);
    if (!layout.IsTransport() && number >> 8 == mpeg_code::kExtended)
        stream.id = mpeg_code::kExtended;
    if (entry) {
        stream.streamType = entry->streamType;
        stream.language = entry->language;
    }
    streams.push_back(std::move(parsed.stream));
    return true;
}

std::string GMpegStreamFinder::Met() const
{
    std::string list;
    const auto add = [&list](const std::string& name) {
        constexpr std::size_t kLongest = 160;
        if ((", " + list + ", ").find(", " + name + ", ") == std::string::npos && list.size() < kLongest)
            list += (list.empty() ? "" : ", ") + name;
    };
    for (const GProgramEntry& entry : tables.Entries()) {
        const char* name = StreamTypeName(entry.streamType);
        add(name ? name : "type " + Hex(entry.streamType));
    }
    if (list.empty())
        for (const auto& [number, first] : firsts)
            add("stream " + Hex(number));
    return list.empty() ? "none" : list;
}

}  // namespace vex
