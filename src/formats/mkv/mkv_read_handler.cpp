#include "formats/mkv/mkv_read_handler.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

#include "formats/mkv/mkv_seek.h"
#include "io/limits.h"
#include "media/codec_guids.h"
#include "media/xiph_headers.h"
#include "platform/trace.h"

namespace vex {
namespace {

// Blocks of tracks without a pin that ReadPacket passes over in one call.
constexpr int kMaxSkipped = 64;

constexpr std::size_t kVorbisHeaders = 3;

bool IsOfFrames(const GMkvContentEncoding& encoding)
{
    return (encoding.contentEncodingScope.value & GMkvContentEncoding::kFrames) != 0;
}

std::uint32_t StrippedBytes(const GMkvTrack& track)
{
    std::size_t bytes = 0;
    for (const GMkvContentEncoding& encoding : track.contentEncodings)
        if (IsOfFrames(encoding) && encoding.contentCompAlgo.value == GMkvContentEncoding::kHeaderStripping)
            bytes = std::max(bytes, encoding.contentCompSettings.size());
    return static_cast<std::uint32_t>(std::min<std::size_t>(bytes, kMaxCodecDataSize));
}

std::size_t CountChapters(const std::vector<GMkvChapterAtom>& atoms)
{
    std::size_t count = atoms.size();
    for (const GMkvChapterAtom& atom : atoms)
        count += CountChapters(atom.atoms);
    return count;
}

// "2024-05-01T12:00:00Z" of nanoseconds since the start of 2001.
std::string DateText(std::int64_t nanoseconds)
{
    using namespace std::chrono;
    constexpr sys_days kEpoch = year{2001} / January / 1;
    const auto time = sys_seconds(kEpoch) + floor<seconds>(std::chrono::nanoseconds(nanoseconds));
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

}  // namespace

GStatus GMkvReadHandler::OpenContainer()
{
    G_TRY_STATUS(file.Open(*source, damage));
    described = DescribeMkvTracks(file);
    for (const GMkvDescribedTrack& track : described) {
        infos.push_back(track.info);
        entries.push_back({.number = track.track->trackNumber.value,
                           .described = &track,
                           .strippedBytes = StrippedBytes(*track.track),
                           .encoded = std::ranges::any_of(track.track->contentEncodings, IsOfFrames),
                           .subtitle = track.track->trackType.value == GMkvTrack::kSubtitle});
    }
    std::ranges::stable_sort(entries, {}, &GTrackEntry::number);
    return {};
}

void GMkvReadHandler::CloseContainer()
{
    announcedEntry = nullptr;
    entries.clear();
    infos.clear();
    described.clear();
    file.Close();
    demux.Reset();
    const GMutexLock held(attachmentLock);
    attachmentSource.reset();
}

const GMkvReadHandler::GTrackEntry* GMkvReadHandler::FindEntry(std::uint64_t trackNumber) const
{
    const auto found = std::ranges::lower_bound(entries, trackNumber, {}, &GTrackEntry::number);
    return found == entries.end() || found->number != trackNumber ? nullptr : &*found;
}

const GMkvDescribedTrack* GMkvReadHandler::FindStream(std::uint32_t stream) const
{
    const auto found =
        std::ranges::find_if(described, [&](const GMkvDescribedTrack& track) { return track.info.number == stream; });
    return found == described.end() ? nullptr : &*found;
}

std::uint64_t GMkvReadHandler::MinCache(std::uint32_t stream) const
{
    const GMkvDescribedTrack* const track = FindStream(stream);
    return track ? track->track->minCache.value : 0;
}

GReadStatus GMkvReadHandler::ReadPacket(GNextPacket& next)
{
    announcedEntry = nullptr;
    for (int skipped = 0; skipped < kMaxSkipped; ++skipped) {
        switch (demux.Next(announced)) {
        case GMkvDemux::GStatus::End:
            return GReadStatus::End;
        case GMkvDemux::GStatus::NotYet:
            return GReadStatus::Again;
        case GMkvDemux::GStatus::Block:
            break;
        }
        const GTrackEntry* const entry = FindEntry(announced.block.track);
        if (!entry)
            continue;
        Announce(*entry, next);
        if (next.size != 0)
            return GReadStatus::Packet;
    }
    return GReadStatus::Again;
}

void GMkvReadHandler::Announce(const GTrackEntry& entry, GNextPacket& next)
{
    if (entry.subtitle && !announced.block.duration.valid) {
        announced.block.duration = CUInt(1);
        announced.stop = announced.start;
    }
    announcedEntry = &entry;
    next = {};
    next.stream = entry.described->info.number;
    next.size = static_cast<std::uint32_t>(announced.payload.available) + entry.strippedBytes;
    next.keyFrame = !announced.block.reference.valid;
    next.start = announced.start;
    next.stop = announced.stop;
}

bool GMkvReadHandler::ReadPayload(GPacket2& packet)
{
    auto& out = static_cast<GMkvBlockPacket&>(packet);
    if (!announcedEntry)
        return false;
    // Both keep the room for frame sizes that they have.
    std::swap(out.block, announced.block);
    if (!ReadMkvFrames(*file.reader, announced.payload, out.block, out.data))
        return false;
    if (announcedEntry->encoded)
        DecodeFrames(*announcedEntry->described->track, out);
    return true;
}

bool GMkvReadHandler::LeaveAnnounced(GPacket2& packet)
{
    const GMkvPayload& payload = announced.payload;
    if (!announcedEntry || announcedEntry->encoded || payload.available < payload.claimed ||
        (announced.block.flags & GMkvBlock::kLacingMask) != 0)
        return false;
    auto& out = static_cast<GMkvBlockPacket&>(packet);
    std::swap(out.block, announced.block);
    out.block.frameSizes.assign(1, static_cast<std::uint32_t>(payload.available));
    out.headerPos = payload.headerPos;
    out.position = payload.position;
    out.unread = static_cast<std::uint32_t>(payload.available);
    return true;
}

std::size_t GMkvReadHandler::CutLeft(const GPacket2& packet, std::size_t)
{
    const auto& block = static_cast<const GMkvBlockPacket&>(packet);
    damage.Add("a Block that cannot be read", block.headerPos, packet.unread);
    return 0;
}

// A frame that cannot be decoded stays as it is.
void GMkvReadHandler::DecodeFrames(const GMkvTrack& track, GMkvBlockPacket& packet)
{
    const auto decode = [&](GBuffer& data, std::size_t decodedBefore) {
        if (decodedBefore >= kMaxInflatedSize || !file.contentDecoder.Decode(track, GMkvContentEncoding::kFrames, data))
            damage.Add("a frame that cannot be decoded", announced.payload.headerPos);
    };
    std::vector<std::uint32_t>& sizes = packet.block.frameSizes;
    if (sizes.size() == 1) {
        decode(packet.data, 0);
        sizes.front() = static_cast<std::uint32_t>(packet.data.Size());
        return;
    }
    frames.Clear();
    std::size_t offset = 0;
    for (std::uint32_t& size : sizes) {
        frame.Assign(packet.data.Span().subspan(offset, size));
        offset += size;
        decode(frame, frames.Size());  // one frame may expand to the limit, 256 of them may not
        size = static_cast<std::uint32_t>(frame.Size());
        frames.Append(frame.Span());
    }
    packet.data.Assign(frames.Span());
}

std::vector<GPacketPtr> GMkvReadHandler::HeaderPackets(std::uint32_t stream, const CMediaType& connectedType)
{
    std::vector<GPacketPtr> packets;
    const GMkvDescribedTrack* const track = FindStream(stream);
    if (!track || MkvCodecId(*track->track) != "A_VORBIS" || connectedType.subtype != MEDIASUBTYPE_Vorbis ||
        track->decodedPrivate.Empty())
        return packets;
    const auto headers = SplitXiphPackets(track->decodedPrivate.Span());
    if (headers.size() != kVorbisHeaders) {
        Trace("ERROR: Vorbis initialization failed for stream %lld\n", static_cast<long long>(stream));
        return packets;
    }
    for (const std::span<const std::uint8_t> header : headers) {
        GPacketPtr packet = NewPacket(stream);
        packet->stream = stream;
        packet->header = true;
        packet->start = 0;
        packet->stop = 1;
        packet->data.Assign(header);
        packets.push_back(std::move(packet));
    }
    return packets;
}

std::optional<REFERENCE_TIME> GMkvReadHandler::Seek(REFERENCE_TIME time, GSeekMode mode)
{
    announcedEntry = nullptr;
    demux.Restart();
    return SeekMkv(file, demux.Stats(), time, mode);
}

std::vector<GProperty> GMkvReadHandler::Properties() const
{
    using Type = GProperty::Type;
    std::vector<GProperty> facts;
    const auto text = [&](const char* name, std::string value) {
        if (!value.empty())
            facts.push_back({name, Type::Text, std::move(value)});
    };
    text("title", Utf8FromWide(file.info.title));
    text("muxing_app", Utf8FromWide(file.info.muxingApp));
    text("writing_app", Utf8FromWide(file.info.writingApp));
    if (file.info.dateUtc.valid)
        text("date_utc", DateText(file.info.dateUtc.value));
    text("doc_type", file.header.docType);
    facts.push_back({"timecode_scale", Type::Integer, std::to_string(file.info.timecodeScale.value)});
    std::size_t chapters = 0;
    for (const GMkvEdition& edition : file.chapters)
        chapters += CountChapters(edition.atoms);
    facts.push_back({"chapters", Type::Integer, std::to_string(chapters)});
    facts.push_back({"cues", Type::Boolean, file.cues.empty() ? "false" : "true"});
    return facts;
}

std::vector<GAttachmentInfo> GMkvReadHandler::Attachments() const
{
    std::vector<GAttachmentInfo> list;
    for (const GMkvAttachment& attachment : file.attachments)
        list.push_back({Utf8FromWide(attachment.fileName), attachment.fileMimeType,
                        Utf8FromWide(attachment.fileDescription), attachment.dataSize});
    return list;
}

bool GMkvReadHandler::ReadAttachment(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> out)
{
    if (index >= file.attachments.size())
        return false;
    const GMkvAttachment& attachment = file.attachments[index];
    if (offset > attachment.dataSize || out.size() > attachment.dataSize - offset || out.size() > kMaxPacketSize)
        return false;
    const GMutexLock held(attachmentLock);
    if (!attachmentSource)
        attachmentSource = OpenAgain();
    if (!attachmentSource)
        return false;
    const std::int64_t position = attachment.dataPos + static_cast<std::int64_t>(offset);
    const auto count = static_cast<std::uint32_t>(out.size());
    return attachmentSource->Seek(position) == position &&
           (count == 0 || attachmentSource->Read(out.data(), count) == count);
}

}  // namespace vex
