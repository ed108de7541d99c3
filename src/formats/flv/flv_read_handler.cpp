#include "formats/flv/flv_read_handler.h"

#include <algorithm>

namespace vex {
namespace {

// Of the file header's type flags.
constexpr std::size_t kFlagsAt = 4;
constexpr std::uint8_t kAudioFlag = 4;
constexpr std::uint8_t kVideoFlag = 1;

GStreamInfo Describe(std::uint8_t type, WStringView name, CMediaType mediaType)
{
    GStreamInfo info;
    info.number = type;
    info.pinName = name;
    info.mediaTypes.push_back(std::move(mediaType));
    return info;
}

}  // namespace

GFlvReadHandler::GFlvReadHandler(std::unique_ptr<GFileBase> file)
    : GReadHandler(std::move(file), "FLV Handler Error, Do not open file!\n")
{
}

GStatus GFlvReadHandler::OpenContainer()
{
    reader = std::make_unique<GFlvReader>(*source, damage, Interrupted());
    G_TRY_STATUS(reader->Open());
    return DescribeStreams();
}

void GFlvReadHandler::CloseContainer()
{
    reader.reset();
    infos.clear();
    announced = {};
}

GStatus GFlvReadHandler::DescribeStreams()
{
    const std::uint8_t flags = reader->fileHeader[kFlagsAt] & (kAudioFlag | kVideoFlag);
    if (reader->audioFormat && flags != kVideoFlag)
        infos.push_back(Describe(kFlvAudio, VEX_W("Audio Pin"), reader->audioFormat->MediaType()));
    if (reader->videoFormat)
        infos.push_back(Describe(kFlvVideo, VEX_W("Video Pin"), reader->videoFormat->MediaType()));
    if (!infos.empty())
        return {};
    if (reader->unsupported.Any())
        return GError{GErrorKind::Unsupported, reader->unsupported.Reason(), 0};
    if (reader->audioFormat)
        return GError{GErrorKind::Unsupported, "the header announces video alone, and the file has none", kFlagsAt};
    return GError{GErrorKind::Malformed, "the first tags declare neither an audio nor a video format", 0};
}

bool GFlvReadHandler::HasStream(std::uint8_t type) const
{
    return std::ranges::any_of(infos, [type](const GStreamInfo& info) { return info.number == type; });
}

GReadStatus GFlvReadHandler::ReadPacket(GNextPacket& next)
{
    switch (reader->FillStep()) {
    case GFlvStep::Again:
        return GReadStatus::Again;
    case GFlvStep::Failed:
        return GReadStatus::End;
    case GFlvStep::Filled:
        break;
    }
    announced = reader->tag;
    reader->GotoNextTag();
    if (announced.size == 0 || !HasStream(announced.type))
        return GReadStatus::Again;
    next = {};
    next.stream = announced.type;
    next.size = announced.size;
    next.keyFrame = announced.IsAudio() || announced.IsVideoKey();
    next.start = announced.time;
    next.stop = announced.time + 1;
    return GReadStatus::Packet;
}

bool GFlvReadHandler::ReadPayload(GPacket2& packet)
{
    reader->ReadPayload(announced, packet.data);
    if (packet.data.Size() < announced.size)
        damage.Add("payload cannot be read", announced.payloadPos, announced.size - packet.data.Size());
    return !packet.data.Empty();
}

std::optional<REFERENCE_TIME> GFlvReadHandler::Seek(REFERENCE_TIME time, GSeekMode)
{
    if (reader->SeekFlvTag(time) == GFlvLanding::Error)
        return std::nullopt;
    return std::max<REFERENCE_TIME>(time, 0);
}

std::vector<GProperty> GFlvReadHandler::Properties() const
{
    if (!reader->unsupported.Any())
        return {};
    return {{.name = "without pin", .type = GProperty::Type::Text, .value = reader->unsupported.Kinds()}};
}

}  // namespace vex
