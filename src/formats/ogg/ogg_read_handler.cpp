#include "formats/ogg/ogg_read_handler.h"

#include <algorithm>
#include <utility>

#include "formats/ogg/ogg_comments.h"
#include "formats/ogg/ogg_seek.h"
#include "media/language.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint32_t kReadSize = 65'536;  // bytes asked for at once
// Bytes read in one call of ReadPacket: a millisecond's worth of pages that nobody wants.
constexpr std::int64_t kBytesPerCall = 1'048'576;
constexpr std::string_view kLanguage = "language";

std::string LanguageOf(const GOGG2ReadStream& stream)
{
    const std::string_view code = FindComment(stream.Comments(), kLanguage);
    return code.size() == 2 ? LanguageNameFrom2(code) : LanguageNameFrom3(code);
}

// "chapter01" and "chapter01name".
bool IsChapter(const GOggComment& comment)
{
    constexpr std::string_view kChapter = "chapter";
    const std::string_view name = comment.name;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    return name.starts_with(kChapter) && name.size() >= kChapter.size() + 2 && isDigit(name[kChapter.size()]) &&
           isDigit(name[kChapter.size() + 1]);
}

GProperty TextProperty(const GOggComment& comment)
{
    return {.name = comment.name, .type = GProperty::Type::Text, .value = comment.value};
}

// Vorbis and Theora headers, or the empty text that lets a subtitle renderer begin.
std::vector<GLeadSample> LeadSamples(const GOGG2ReadStream& stream)
{
    std::vector<GLeadSample> leads;
    if (stream.Kind() == GOggKind::OgmText)
        leads.push_back({.data = {0}, .start = 0, .stop = 1, .sync = true, .discontinuity = true});
    if (stream.Kind() != GOggKind::Vorbis && stream.Kind() != GOggKind::Theora)
        return leads;
    for (std::size_t slot = 0; slot < GOGG2ReadStream::kHeaderSlots; ++slot) {
        const GBytes header = stream.Header(slot);
        leads.push_back({.data = {header.begin(), header.end()}});
    }
    return leads;
}

}  // namespace

GOGG2ReadHandler::GOGG2ReadHandler(std::unique_ptr<GFileBase> file, GOggPinNames pinNames, GOggIndexPauses growthPauses)
    : GReadHandler(std::move(file)), names(pinNames), pauses(growthPauses)
{
}

GStatus GOGG2ReadHandler::OpenContainer()
{
    {
        G_TRY(streams, ReadOggHeaders(*source, damage));
    }
    readings.resize(streams.size());
    durationAtOpen = FindOggDuration(*source, streams, Interrupted());
    Trace("Duration %lld SEC\n", static_cast<long long>(durationAtOpen / kUnitsPerSecond));
    DescribeStreams();
    pages.emplace(*source, &damage, kReadSize);
    MoveTo(0);
    StartIndex();
    return {};
}

void GOGG2ReadHandler::CloseContainer()
{
    index.reset();
    pages.reset();
    payload = {};
    readings.clear();
    streams.clear();
    infos.clear();
    properties.clear();
    durationAtOpen = 0;
    atEnd = false;
}

void GOGG2ReadHandler::StartIndex()
{
    const GOGG2ReadStream* const video = FirstVideo(streams);
    const GOGG2ReadStream& reference = video ? *video : *streams.front();
    if (!reference.IsVideo() && !reference.IsAudio())
        return;
    index = std::make_unique<GOggIndex>(reference, pauses);
    if (!index->Start(source->NewInstance(), Path()))
        Trace("No thread for the index\n");
}

void GOGG2ReadHandler::DescribeStreams()
{
    for (const auto& stream : streams) {
        infos.push_back(Describe(*stream, infos.size()));
        for (const GOggComment& comment : stream->Comments()) {
            if (IsChapter(comment))
                properties.push_back(TextProperty(comment));
        }
    }
}

GStreamInfo GOGG2ReadHandler::Describe(const GOGG2ReadStream& stream, std::size_t place) const
{
    GStreamInfo info;
    info.number = stream.Serial();
    CMediaType type;
    info.minimumBuffer = stream.BuildMediaType(type);
    info.language = LanguageOf(stream);
    info.pinName = OggPinName(names, type.majortype, place, info.language);
    info.mediaTypes.push_back(std::move(type));
    for (const GOggComment& comment : stream.Comments()) {
        if (!IsChapter(comment))
            info.properties.push_back(TextProperty(comment));
    }
    if (stream.Kind() == GOggKind::GStream)
        info.target = GStreamTarget::Filter;
    info.leadSamples = LeadSamples(stream);
    // A comment header with a picture in it is larger than any packet behind it.
    for (const GLeadSample& lead : info.leadSamples)
        info.minimumBuffer = std::max(info.minimumBuffer, static_cast<std::uint32_t>(lead.data.size()));
    info.dropBeforeSegment = stream.Kind() == GOggKind::Vorbis;
    return info;
}

REFERENCE_TIME GOGG2ReadHandler::Duration() const
{
    return index ? std::max(durationAtOpen, index->IndexedUpTo()) : durationAtOpen;
}

void GOGG2ReadHandler::StartRun(std::span<const std::uint32_t> wanted)
{
    for (std::size_t i = 0; i < streams.size(); ++i)
        readings[i].wanted = std::ranges::find(wanted, streams[i]->Serial()) != wanted.end();
}

void GOGG2ReadHandler::PassPage()
{
    if (page.BeginsStream())
        return;
    for (std::size_t i = 0; i < streams.size(); ++i) {
        if (streams[i]->Serial() != page.Serial())
            continue;
        if (readings[i].wanted)
            streams[i]->PageIn(page);
        return;
    }
}

// Packets passed over count for the times of those behind them.
bool GOGG2ReadHandler::TakeFrom(GOGG2ReadStream& stream, GReading& reading, GOggPacket& packet)
{
    for (;;) {
        const auto peeked = stream.Peek(packet, atEnd);
        if (peeked == GOGG2ReadStream::GPeek::Hole) {
            if (!page.afterDamage)
                damage.Add("an Ogg page is missing", page.offset);
            continue;
        }
        if (peeked != GOGG2ReadStream::GPeek::Packet)
            return false;
        stream.Pop();
        const bool waits = stream.WaitingForKeyFrame() && !stream.IsKeyFrame(packet);
        const bool skipped = reading.skip > 0;
        if (skipped)
            --reading.skip;
        else if (!waits)
            stream.ClearKeyFrameWait();
        if (!skipped && !waits && packet.data.size() >= stream.PayloadOffset(packet))
            return true;
        stream.PacketTime(packet);
    }
}

void GOGG2ReadHandler::Announce(GOGG2ReadStream& stream, const GOggPacket& packet, GNextPacket& next)
{
    payload = packet.data.subspan(stream.PayloadOffset(packet));
    next = {};
    next.stream = stream.Serial();
    next.size = static_cast<std::uint32_t>(payload.size());
    next.keyFrame = stream.IsKeyFrame(packet);
    next.start = stream.PacketTime(packet);
    next.stop = std::max(stream.StopTime(packet), next.start);
    next.mediaStart = stream.MediaTimeStart(packet);
    next.mediaStop = stream.MediaTimeStop(packet);
}

GReadStatus GOGG2ReadHandler::ReadPacket(GNextPacket& next)
{
    std::int64_t budget = kBytesPerCall;
    while (!Interrupted().load(std::memory_order_acquire)) {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            GOggPacket packet;
            if (!TakeFrom(*streams[i], readings[i], packet))
                continue;
            Announce(*streams[i], packet, next);
            return GReadStatus::Packet;
        }
        if (pages->Next(page, budget)) {
            atEnd = false;
            PassPage();
        } else if (budget <= 0) {
            break;
        } else if (std::exchange(atEnd, true)) {
            pages->ReportTail();
            return GReadStatus::End;
        }
    }
    return GReadStatus::Again;
}

bool GOGG2ReadHandler::ReadPayload(GPacket2& packet)
{
    packet.data.Assign(payload);
    return true;
}

void GOGG2ReadHandler::MoveTo(std::int64_t position)
{
    for (const auto& stream : streams)
        stream->Reset();
    for (GReading& reading : readings)
        reading.skip = 0;
    pages->MoveTo(position);
    payload = {};
    atEnd = false;
}

// Bytes from the start of the file.
std::int64_t GOGG2ReadHandler::PositionOf(REFERENCE_TIME time)
{
    const REFERENCE_TIME duration = Duration();
    if (time <= 0)
        return 0;
    if (time >= duration)
        return source->GetSize();
    if (const auto entry = index ? index->Find(time) : std::nullopt) {
        Trace("GetAt: %lld\n\n", static_cast<long long>(entry->time));
        return entry->offset;
    }
    return FindOggPosition(*source, streams, time, duration, Interrupted());
}

std::optional<REFERENCE_TIME> GOGG2ReadHandler::Seek(REFERENCE_TIME time, GSeekMode mode)
{
    Trace("Seek: %lld\n\n", static_cast<long long>(time));
    const std::int64_t from = PositionOf(time);
    MoveTo(from);
    GOGG2ReadStream* const video = FirstVideo(streams);
    if (mode == GSeekMode::KeyFrame && time > 0 && video)
        return FindNextKeyFrame(*video, time, from);
    return time;
}

// The time of the first key frame of `video` behind `time`, which is read from `from`; `time` when there is none. All
// streams are then read from `from` again, the video from that key frame on.
REFERENCE_TIME GOGG2ReadHandler::FindNextKeyFrame(GOGG2ReadStream& video, REFERENCE_TIME time, std::int64_t from)
{
    Trace("FindNextKeyFrame = %lld\n", static_cast<long long>(time));
    const REFERENCE_TIME frame = video.GranuleToTime(1);
    std::uint64_t passed = 0;
    bool behind = false;
    bool lastChance = false;
    REFERENCE_TIME reached = time;
    while (!Interrupted().load(std::memory_order_acquire)) {
        GOggPacket packet;
        const auto peeked = video.Peek(packet, lastChance);
        if (peeked == GOGG2ReadStream::GPeek::Hole)
            continue;
        if (peeked == GOGG2ReadStream::GPeek::Packet) {
            const REFERENCE_TIME next = video.CurrentTime() + frame;
            behind = behind || (packet.granule >= 0 ? video.GranuleToTime(packet.granule) : next) > time;
            if (behind && video.IsKeyFrame(packet)) {
                Trace("==FindNextKeyFrame : %lld\n", static_cast<long long>(next));
                reached = next;
                break;
            }
            video.Pop();
            video.PacketTime(packet);
            ++passed;
            continue;
        }
        std::int64_t budget = kBytesPerCall;
        if (pages->Next(page, budget)) {
            if (!page.BeginsStream() && page.Serial() == video.Serial())
                video.PageIn(page);
        } else if (budget > 0 && std::exchange(lastChance, true)) {
            break;
        }
    }
    MoveTo(from);
    if (!Interrupted().load(std::memory_order_acquire))
        readings[static_cast<std::size_t>(std::ranges::find(streams, &video, &std::unique_ptr<GOGG2ReadStream>::get) -
                                          streams.begin())]
            .skip = passed;
    return reached;
}

}  // namespace vex
