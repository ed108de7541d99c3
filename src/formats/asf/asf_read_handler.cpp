#include "formats/asf/asf_read_handler.h"

#include <algorithm>
#include <utility>

#include "formats/asf/asf_selection.h"
#include "media/language.h"
#include "platform/text.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::chrono::milliseconds kInterruptCheck{5};

// "de-at" is shown by its first part. A code that the list does not have is shown as it is.
std::string LanguageName(const std::string& code)
{
    const std::string primary = code.substr(0, code.find('-'));
    std::string name;
    if (primary.size() == 2)
        name = LanguageNameFrom2(primary);
    else if (primary.size() == 3)
        name = LanguageNameFrom3(primary);
    return name.empty() ? code : name;
}

GStreamInfo DescribeStream(const GAsfEXReadStream& stream)
{
    GStreamInfo info;
    info.number = stream.number;
    info.mediaTypes.push_back(stream.mediaType);
    info.language = LanguageName(stream.language);
    if (stream.kind == GAsfKind::Video)
        info.pinName = VEX_W("Video Pin");
    else if (stream.language.empty())
        info.pinName = VEX_W("Audio Pin");
    else
        info.pinName = WideFromUtf8("Audio Pin." + info.language);
    if (stream.encrypted)
        info.properties.push_back({.name = "encrypted", .type = GProperty::Type::Boolean, .value = "true"});
    return info;
}

// The last video stream that is played, or null.
const GAsfEXReadStream* SeekReference(const GAsfStreams& streams)
{
    const GAsfEXReadStream* last = nullptr;
    for (const auto& stream : streams)
        if (stream->kind == GAsfKind::Video && stream->enabled && stream->selected)
            last = stream.get();
    return last;
}

// The first video stream that is played, else the first audio stream; null when there is none.
const GAsfEXReadStream* IndexReference(const GAsfStreams& streams)
{
    for (const GAsfKind kind : {GAsfKind::Video, GAsfKind::Audio})
        for (const auto& stream : streams)
            if (stream->kind == kind && stream->enabled && stream->selected)
                return stream.get();
    return nullptr;
}

}  // namespace

GAsfExReadHandler::GAsfExReadHandler(std::unique_ptr<GFileBase> file, GTimes waits)
    : GReadHandler(std::move(file), "AsfEX File Handler Error(the file cannot be opened)\n"), times(waits)
{
}

GStatus GAsfExReadHandler::OpenContainer()
{
    auto read = ReadAsfHeader(*source, damage, Interrupted());
    if (!read.Ok()) {
        Trace("AsfEX File Handler Error(%s)\n", Describe(read.Error()).c_str());
        return read.Error();
    }
    header = std::move(read).Value();
    SelectAsfStreams(header);
    DescribeStreams();
    reader = std::make_unique<GAsfDataReader>(*source, header, damage, Interrupted());
    StartUserIndex();
    return {};
}

void GAsfExReadHandler::CloseContainer()
{
    userIndex.reset();
    reader.reset();
    infos.clear();
    header = {};
}

void GAsfExReadHandler::DescribeStreams()
{
    for (const auto& stream : header.streams)
        if (stream->enabled && stream->selected)
            infos.push_back(DescribeStream(*stream));
}

void GAsfExReadHandler::StartUserIndex()
{
    const GAsfEXReadStream* const reference = IndexReference(header.streams);
    if (!reference) {
        Trace("No stream to index\n");
        return;
    }
    GAsfScanPlan plan;
    plan.stream = reference->number;
    plan.video = reference->kind == GAsfKind::Video;
    // A broadcast may still grow.
    plan.limits = {header.packetSize, header.dataEnd == kAsfUntilFileEnd ? UINT64_MAX : header.DataSize(0)};
    plan.dataStart = header.dataStart;
    plan.dataEnd = header.dataEnd;
    plan.preroll = header.preroll;
    plan.latest = header.playDuration > 0 ? header.preroll + header.playDuration : 0;
    plan.growthPause = times.growthPause;
    userIndex = std::make_unique<GAsfUserIndex>(plan);
    if (!userIndex->Start(source->NewInstance(), Path()))
        Trace("No thread for the index\n");
}

// Of a broadcast, as far as its packets are known.
REFERENCE_TIME GAsfExReadHandler::Duration() const
{
    if (header.playDuration > 0)
        return std::max<REFERENCE_TIME>(header.playDuration - header.preroll, 0);
    return userIndex ? userIndex->IndexedUpTo() : 0;
}

GReadStatus GAsfExReadHandler::ReadPacket(GNextPacket& next)
{
    switch (reader->Next()) {
    case GAsfStep::Again:
        return GReadStatus::Again;
    case GAsfStep::End:
        Trace("-----FAILED(hr) - GetPacketInfo()\n");
        return GReadStatus::End;
    case GAsfStep::Object:
        break;
    }
    const GAsfEXReadStream& stream = reader->Complete();
    next = {};
    next.stream = stream.number;
    next.size = stream.objectSize;
    next.keyFrame = stream.keyFrame;
    next.start = std::max<REFERENCE_TIME>(stream.presentationTime - header.preroll, 0);
    next.stop = next.start + 1;
    return GReadStatus::Packet;
}

bool GAsfExReadHandler::ReadPayload(GPacket2& packet)
{
    reader->Complete().Take(packet.data);
    return true;
}

std::optional<REFERENCE_TIME> GAsfExReadHandler::Seek(REFERENCE_TIME time, GSeekMode)
{
    time = std::max<REFERENCE_TIME>(time, 0);
    reader->MoveTo(SeekPacketOffset(time));
    return time;
}

// Right after Open the scan may not have come as far as the target; then a seek would end the stream.
void GAsfExReadHandler::WaitForIndex(REFERENCE_TIME time) const
{
    const auto deadline = GSteadyClock::now() + times.indexWait;
    while (userIndex->IsScanning() && userIndex->IndexedUpTo() < time && GSteadyClock::now() < deadline &&
           !Interrupted().load(std::memory_order_acquire)) {
        const std::uint64_t seen = userIndex->Progress();
        if (userIndex->IsScanning() && userIndex->IndexedUpTo() < time)
            userIndex->WaitForProgress(seen, kInterruptCheck);
    }
}

std::int64_t GAsfExReadHandler::SeekPacketOffset(REFERENCE_TIME time)
{
    if (time == 0)
        return header.dataStart;
    if (userIndex)
        WaitForIndex(time);
    if (const GAsfEXReadStream* const video = SeekReference(header.streams)) {
        const auto place = static_cast<std::size_t>(std::ranges::count_if(header.streams, [&](const auto& stream) {
            return stream->kind == GAsfKind::Video && stream->number < video->number;
        }));
        if (const auto offset = GetIndexOffset_SimpleIndexObject(time, place))
            return *offset;
    }
    if (const auto offset = userIndex ? userIndex->Find(time) : std::nullopt)
        return *offset;
    Trace("No index for a seek to %lld: to the end\n", static_cast<long long>(time));
    return source->GetSize();
}

// Trusted as far as the scan has come.
std::optional<std::int64_t> GAsfExReadHandler::GetIndexOffset_SimpleIndexObject(REFERENCE_TIME time,
                                                                                std::size_t place) const
{
    if (!userIndex || time > userIndex->IndexedUpTo() || place >= header.simpleIndexes.size())
        return std::nullopt;
    const GAsfSimpleIndex& index = header.simpleIndexes[place];
    if (index.interval == 0)
        return std::nullopt;
    // The first entry behind the target.
    const std::uint64_t entry = static_cast<std::uint64_t>(time + header.preroll) / index.interval + 1;
    if (entry >= index.packets.size())
        return std::nullopt;
    const std::uint64_t offset = std::uint64_t{index.packets[static_cast<std::size_t>(entry)]} * header.packetSize;
    const std::int64_t end = header.DataEnd(source->GetSize());
    if (end < header.dataStart || offset > static_cast<std::uint64_t>(end - header.dataStart)) {
        Trace("The simple index points beyond the file\n");
        return std::nullopt;
    }
    return header.dataStart + static_cast<std::int64_t>(offset);
}

std::vector<GProperty> GAsfExReadHandler::Properties() const
{
    if (header.broadcast)
        return {{.name = "broadcast", .type = GProperty::Type::Boolean, .value = "true"}};
    return {};
}

}  // namespace vex
