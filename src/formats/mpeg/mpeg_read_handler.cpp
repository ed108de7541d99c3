#include "formats/mpeg/mpeg_read_handler.h"

#include <algorithm>
#include <utility>

#include "formats/mpeg/mpeg_stream_finder.h"
#include "media/language.h"
#include "platform/text.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::size_t kLookBlock = 16 << 10;  // bytes
// Half of it holds the largest packet of a program stream.
constexpr std::size_t kReadBlock = 192 << 10;

// What one call may do.
constexpr int kStepPackets = 1024;
constexpr int kStepUnits = 64;
constexpr std::int64_t kStepSearch = 64 << 10;  // bytes

const char* ContainerName(GMpegContainer type)
{
    switch (type) {
    case GMpegContainer::Transport188:
        return "transport stream";
    case GMpegContainer::Transport192:
        return "transport stream, packets of 192 bytes";
    case GMpegContainer::Mpeg2Program:
        return "MPEG-2 program stream";
    case GMpegContainer::Mpeg1Program:
        return "MPEG-1 program stream";
    case GMpegContainer::Unknown:
        break;
    }
    return "";
}

GProperty Integer(const char* name, std::uint32_t value)
{
    return {.name = name, .type = GProperty::Type::Integer, .value = std::to_string(value)};
}

GProperty Text(const char* name, std::string value)
{
    return {.name = name, .type = GProperty::Type::Text, .value = std::move(value)};
}

std::string PinName(const GMpeg2ReadStream& stream, const std::string& language, GMpegPinNames names)
{
    const std::string kind = IsPicture(stream.kind) ? "Video" : "Audio";
    if (names == GMpegPinNames::First)
        return kind;
    return kind + (language.empty() ? " (" : " /" + language + " (") + std::to_string(stream.id) + ")";
}

}  // namespace

GMpeg2ReadHandler::GMpeg2ReadHandler(std::unique_ptr<GFileBase> file, GMpegPinNames pinNames)
    : GReadHandler(std::move(file)), names(pinNames)
{
}

GStatus GMpeg2ReadHandler::OpenContainer()
{
    lookWindow = std::make_unique<GScanWindow>(*source, &Interrupted(), kLookBlock);
    readWindow = std::make_unique<GScanWindow>(*source, &Interrupted(), kReadBlock);
    layout = DetectMpegLayout(*lookWindow);
    if (layout.containerType == GMpegContainer::Unknown)
        return GError{GErrorKind::Malformed, "neither a transport stream nor a program stream begins here", 0};
    // A packet and what follows it are in the window: a look from one to the other does not move it.
    GMpegStreamFinder finder(*readWindow, layout, Interrupted());
    finder.Scan(damage);
    if (finder.WasInterrupted())
        return GError{GErrorKind::Aborted, "the search for streams was interrupted", 0};
    if (finder.streams.empty())
        return GError{GErrorKind::Unsupported, "no stream can be played; met were:", 0, 0, finder.Met()};
    streams = std::move(finder.streams);
    navigation = std::move(finder.navigation);
    const std::int64_t size = source->GetSize();
    if (!layout.IsTransport())
        navigation.Extend(*lookWindow, size);
    search = std::make_unique<GMpegSearch>(*lookWindow, layout, streams, navigation, size);
    search->ComputeDuration();
    if (finder.WasInterrupted())
        return GError{GErrorKind::Aborted, "the search for the duration was interrupted", 0};
    for (const GMpeg2StreamPtr& stream : streams)
        infos.push_back(Describe(*stream));
    if (layout.IsTransport())
        transport = std::make_unique<GTransportWalker>(*readWindow, layout);
    else
        program = std::make_unique<GProgramWalker>(*readWindow, layout);
    StartRun({});
    GoTo(layout.origin);
    return {};
}

void GMpeg2ReadHandler::CloseContainer()
{
    announced = nullptr;
    program.reset();
    transport.reset();
    search.reset();
    readWindow.reset();
    lookWindow.reset();
    streamOfPid.clear();
    infos.clear();
    streams.clear();
    navigation.Clear();
    layout = {};
}

GStreamInfo GMpeg2ReadHandler::Describe(const GMpeg2ReadStream& stream) const
{
    GStreamInfo info;
    info.number = stream.number;
    info.mediaTypes = stream.MediaTypes();
    info.language = LanguageNameFrom3(stream.language);
    info.pinName = WideFromUtf8(PinName(stream, info.language, names));
    info.properties.push_back(Integer(layout.IsTransport() ? "pid" : "stream_id", stream.number));
    if (stream.streamType)
        info.properties.push_back(Integer("stream_type", *stream.streamType));
    if (!stream.language.empty())
        info.properties.push_back(Text("language_code", stream.language));
    // The samples are a file as they are, whatever the media type suggests.
    if (stream.kind == GMpeg2Kind::Avc || stream.kind == GMpeg2Kind::Aac)
        info.properties.push_back({.name = "byte_stream", .type = GProperty::Type::Boolean, .value = "true"});
    return info;
}

GMpeg2ReadStream* GMpeg2ReadHandler::Find(std::uint32_t number)
{
    const auto stream = std::ranges::find(streams, number, &GMpeg2ReadStream::number);
    return stream == streams.end() ? nullptr : stream->get();
}

void GMpeg2ReadHandler::StartRun(std::span<const std::uint32_t> wanted)
{
    streamOfPid.assign(layout.IsTransport() ? kPidCount : 0, 0);
    for (std::size_t i = 0; i < streams.size(); ++i) {
        GMpeg2ReadStream& stream = *streams[i];
        stream.wanted = std::ranges::find(wanted, stream.number) != wanted.end();
        if (layout.IsTransport() && stream.wanted)
            streamOfPid[stream.number] = static_cast<std::uint8_t>(i + 1);
    }
}

// At the start of the file data may come before the first time; behind a seek it has no place.
void GMpeg2ReadHandler::GoTo(std::int64_t position)
{
    const bool atStart = position <= layout.origin;
    if (transport)
        transport->position = position;
    else
        program->position = position;
    for (const GMpeg2StreamPtr& stream : streams)
        stream->Reset(atStart);
    landed = !atStart;
    ending = 0;
    announced = nullptr;
}

GReadStatus GMpeg2ReadHandler::ReadPacket(GNextPacket& next)
{
    if (!search)
        return GReadStatus::End;
    return transport ? ReadTransport(next) : ReadProgram(next);
}

GReadStatus GMpeg2ReadHandler::ReadTransport(GNextPacket& next)
{
    GTransportPacket packet;
    for (int i = 0; i < kStepPackets; ++i) {
        const std::int64_t position = transport->position;
        const GMpegStep step = transport->Next(packet);
        if (step == GMpegStep::End)
            return EndStreams(next, position);
        if (step == GMpegStep::Lost) {
            transport->Resync(position + kStepSearch);
            Skip(position, transport->position);
            return GReadStatus::Again;
        }
        landed = false;
        const std::uint8_t index = streamOfPid[packet.pid];
        if (index == 0 || packet.payload.empty())
            continue;
        if (packet.error || packet.scrambled) [[unlikely]] {
            damage.Add(packet.error ? "a transport packet carries the error mark" : "a transport packet is scrambled",
                       position, layout.packetSize);
            continue;
        }
        GMpeg2ReadStream& stream = *streams[index - 1u];
        stream.assembler->Push(packet.unitStart, packet.payload, position);
        if (stream.assembler->Ready()) {
            Announce(stream, next);
            return GReadStatus::Packet;
        }
    }
    return GReadStatus::Again;
}

GReadStatus GMpeg2ReadHandler::ReadProgram(GNextPacket& next)
{
    GProgramUnit unit;
    for (int i = 0; i < kStepUnits; ++i) {
        const std::int64_t position = program->position;
        const GMpegStep step = program->Next(unit);
        if (step == GMpegStep::End)
            return EndStreams(next, position);
        if (step == GMpegStep::Lost) {
            program->Resync(position + kStepSearch);
            Skip(position, program->position);
            return GReadStatus::Again;
        }
        landed = false;
        GMpeg2ReadStream* const stream = unit.IsPacket() ? FeedProgram(unit) : nullptr;
        if (stream && stream->assembler->Ready()) {
            Announce(*stream, next);
            return GReadStatus::Packet;
        }
    }
    return GReadStatus::Again;
}

// The stream that the packet belongs to; null when it is not wanted.
GMpeg2ReadStream* GMpeg2ReadHandler::FeedProgram(const GProgramUnit& unit)
{
    const GBytes bytes = program->Bytes(unit);
    std::uint8_t subStream = 0;
    if (unit.code == mpeg_code::kPrivate1 || unit.code == mpeg_code::kExtended) {
        GPesHeader header;
        if (ReadPesHeader(bytes, GPesSyntax::Either, header) != GPesResult::Whole || header.headerSize >= bytes.size())
            return nullptr;
        subStream = unit.code == mpeg_code::kPrivate1 ? bytes[header.headerSize] : header.extension;
    }
    GMpeg2ReadStream* const stream = Find(ProgramStreamKey(unit.code, subStream));
    if (!stream || !stream->wanted)
        return nullptr;
    stream->assembler->Push(true, bytes, unit.position);
    return stream;
}

// Zeros between packs are padding.
void GMpeg2ReadHandler::Skip(std::int64_t from, std::int64_t to)
{
    const GBytes start = readWindow->Held(from, 4);
    const bool padding = program && std::ranges::all_of(start, [](std::uint8_t byte) { return byte == 0; });
    if (!landed && !padding && to > from)
        damage.Add("no packet here", from, static_cast<std::uint64_t>(to - from));
}

GReadStatus GMpeg2ReadHandler::EndStreams(GNextPacket& next, std::int64_t position)
{
    const std::int64_t size = source->GetSize();
    if (ending == 0 && position < size)
        damage.Add("the file ends within a packet", position, static_cast<std::uint64_t>(size - position));
    while (ending < streams.size()) {
        GMpeg2ReadStream& stream = *streams[ending++];
        if (!stream.wanted)
            continue;
        stream.assembler->End(position);
        if (stream.assembler->Ready()) {
            Announce(stream, next);
            return GReadStatus::Packet;
        }
    }
    return GReadStatus::End;
}

void GMpeg2ReadHandler::Announce(GMpeg2ReadStream& stream, GNextPacket& next)
{
    announced = &stream.assembler->Take();
    next = {};
    next.stream = stream.number;
    next.size = static_cast<std::uint32_t>(announced->data.Size());
    next.keyFrame = stream.IsSyncPoint(announced->data.Span());
    next.start = announced->pts ? stream.NextTime(navigation.Continuous(*announced->pts, announced->position)) : 0;
    next.stop = next.start + 1;
}

// The buffers change places: the packet's is used for the stream's next unit.
bool GMpeg2ReadHandler::ReadPayload(GPacket2& packet)
{
    std::swap(packet.data, announced->data);
    return !packet.data.Empty();
}

std::optional<REFERENCE_TIME> GMpeg2ReadHandler::Seek(REFERENCE_TIME time, GSeekMode)
{
    if (!search)
        return std::nullopt;
    Trace("==========================\n");
    GoTo(search->SeekTo(time));
    return search->duration > 0 ? std::max<REFERENCE_TIME>(time, 0) : 0;
}

std::vector<GProperty> GMpeg2ReadHandler::Properties() const
{
    return {Text("kind", ContainerName(layout.containerType))};
}

}  // namespace vex
