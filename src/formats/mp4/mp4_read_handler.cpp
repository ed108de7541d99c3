#include "formats/mp4/mp4_read_handler.h"

#include <algorithm>
#include <string>

#include "formats/mp4/mp4_media_types.h"
#include "formats/mp4/mp4_times.h"
#include "formats/mp4/mp4_transforms.h"
#include "io/checked_math.h"
#include "io/limits.h"
#include "media/language.h"
#include "platform/text.h"

namespace vex {
namespace {

constexpr std::int64_t kNotYet = -1;

std::string CodeText(std::uint32_t code)
{
    std::string text;
    for (int shift = 0; shift < 32; shift += 8) {
        const auto c = static_cast<char>(code >> shift & 0xFFu);
        text += c >= ' ' && c <= '~' ? c : '?';
    }
    return text;
}

std::string EnglishLanguage(const std::string& code)
{
    const bool letters = std::ranges::all_of(code, [](char c) { return c >= 'a' && c <= 'z'; });
    return letters ? LanguageNameFrom3(code) : std::string();
}

}  // namespace

GMp4ReadHandler::GMp4ReadHandler(std::unique_ptr<GFileBase> byteSource) : GReadHandler(std::move(byteSource)) {}

GStatus GMp4ReadHandler::OpenContainer()
{
    {
        G_TRY(movie, ReadMovie(*source, damage, Interrupted()));
    }
    sizeSeen = static_cast<std::int64_t>(movie.size);
    duration = TimeFromUnits(movie.duration, movie.timescale);
    if (!DescribeStreams()) {
        std::string kinds;
        for (const Mp4TrackPtr& track : movie.tracks)
            AddCode(kinds, track->entryType);
        return GError{GErrorKind::Unsupported, "no track can be played:", 0, 0, kinds};
    }
    turn = readings.size();
    return {};
}

void GMp4ReadHandler::CloseContainer()
{
    readings.clear();
    infos.clear();
    movie = {};
    duration = 0;
    sizeSeen = 0;
    turn = 0;
    horizon = 0;
    horizonTime = 0;
    announced = {};
}

// False when no track gets a pin.
bool GMp4ReadHandler::DescribeStreams()
{
    for (const Mp4TrackPtr& track : movie.tracks) {
        CMediaType type = MakeMp4MediaType(*track);
        if (!type.IsValid())
            continue;
        const std::string number = std::to_string(track->trackId);
        GStreamInfo info;
        info.number = track->trackId;
        info.language = EnglishLanguage(track->language);
        const char* const kind = track->category == GMp4Category::Video ? "Video (" : "Audio (";
        info.pinName = WideFromUtf8(kind + number + ")");
        info.pinId = WideFromUtf8("Output " + number);
        info.mediaTypes.push_back(std::move(type));
        infos.push_back(std::move(info));
        readings.push_back({.track = track.get()});
    }
    return !readings.empty();
}

void GMp4ReadHandler::StartRun(std::span<const std::uint32_t> wanted)
{
    for (GReading& reading : readings) {
        Mp4Track& track = *reading.track;
        const bool taken = std::ranges::find(wanted, track.trackId) != wanted.end();
        track.reading = taken && !reading.disabled && !track.AtEnd();
        reading.ending = taken && !track.reading;
    }
    turn = 0;
}

REFERENCE_TIME GMp4ReadHandler::HorizonTime() const { return TimeFromUnits(horizon, movie.timescale); }

// Moves the horizon by as many steps as it takes for a track to be due. False when no track is read any more.
bool GMp4ReadHandler::NextPass()
{
    const Mp4Track* earliest = nullptr;
    for (const GReading& reading : readings) {
        if (reading.track->reading && (!earliest || reading.track->SampleTime() < earliest->SampleTime()))
            earliest = reading.track;
    }
    if (!earliest)
        return false;
    const std::uint64_t step = std::max<std::uint64_t>(1, movie.timescale / 10);
    // Times are cut, so the horizon has passed a sample when it is at least one unit of 100 ns beyond.
    const std::uint64_t due = static_cast<std::uint64_t>(earliest->SampleTime()) + 1;
    const std::uint64_t units = MulDivU64(due, movie.timescale, kUnitsPerSecond).value_or(UINT64_MAX / 2);
    const std::uint64_t ahead = units > horizon ? units - horizon : 0;
    // Whole steps may fall one or two short of it.
    horizon += std::max<std::uint64_t>(1, ahead / step) * step;
    for (int more = 0; more < 2 && HorizonTime() <= earliest->SampleTime(); ++more)
        horizon += step;
    horizonTime = std::max(HorizonTime(), earliest->SampleTime() + 1);
    turn = 0;
    return true;
}

GReadStatus GMp4ReadHandler::ReadPacket(GNextPacket& next)
{
    do {
        for (; turn < readings.size(); ++turn) {
            GReading& reading = readings[turn];
            if (reading.ending) {
                reading.ending = false;
                next = {};
                next.stream = reading.track->trackId;
                return GReadStatus::StreamEnd;
            }
            if (reading.track->reading && reading.track->SampleTime() < horizonTime)
                return Announce(reading, next);
        }
    } while (NextPass());
    return GReadStatus::End;
}

// The position reached, or kNotYet for data that is still to arrive in a file that was larger when it was opened.
std::int64_t GMp4ReadHandler::SeekForRead(std::uint64_t position, std::uint64_t size)
{
    const std::uint64_t seen = static_cast<std::uint64_t>(sizeSeen.load(std::memory_order_relaxed));
    // The size is asked for only where it matters: doing so for each sample costs as much as reading a small one.
    if (position > seen || size > seen - position) {
        const auto current = static_cast<std::uint64_t>(std::max<std::int64_t>(source->GetSize(), 0));
        sizeSeen.store(static_cast<std::int64_t>(current), std::memory_order_relaxed);
        if (current < movie.size && (position > current || size > current - position))
            return kNotYet;
    }
    return source->Seek(static_cast<std::int64_t>(position));
}

GReadStatus GMp4ReadHandler::Announce(GReading& reading, GNextPacket& next)
{
    Mp4Track& track = *reading.track;
    constexpr std::uint64_t kLastPosition = INT64_MAX;
    const std::uint64_t position = std::min(track.SampleOffset(), kLastPosition);
    const std::uint64_t size = track.SampleSize();
    const std::int64_t reached = SeekForRead(position, size);
    if (reached == kNotYet)
        return GReadStatus::Wait;
    next = {};
    next.stream = track.trackId;
    if (reached != static_cast<std::int64_t>(position)) {
        damage.Add("sample lies beyond the end of the file", static_cast<std::int64_t>(position), size);
        track.reading = false;
        return GReadStatus::StreamEnd;
    }
    announced = {&track, position, size};
    next.size = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, UINT32_MAX));
    next.keyFrame = track.IsSyncSample();
    next.start = track.SampleTime();
    next.stop = next.start + 1;
    track.reading = track.AdvanceSample();
    reading.ending = !track.reading;
    return GReadStatus::Packet;
}

bool GMp4ReadHandler::ReadPayload(GPacket2& packet)
{
    const Mp4Track& track = *announced.track;
    const auto position = static_cast<std::int64_t>(announced.position);
    packet.data.Clear();
    if (announced.size == 0)
        return true;
    if (announced.size > kMaxPacketSize) {
        damage.Add("sample is too large", position, announced.size);
        return false;
    }
    const auto left = static_cast<std::uint64_t>(std::max<std::int64_t>(sizeSeen.load() - position, 0));
    const auto wanted = static_cast<std::uint32_t>(std::min(announced.size, left));
    packet.data.Resize(wanted);
    source->Seek(position);
    if (source->ReadBulk(packet.data.Data(), wanted) != wanted) {
        // The bytes before the ones that could not be read are there.
        const std::int64_t got = source->Tell() - position;
        packet.data.Truncate(static_cast<std::size_t>(std::clamp<std::int64_t>(got, 0, wanted)));
        sizeSeen = source->GetSize();  // the file may have shrunk
    }
    if (packet.data.Size() < announced.size)
        damage.Add("sample is cut off", position, announced.size - packet.data.Size());
    if (track.flipRaw)
        FlipFrame(packet.data.Span(), static_cast<std::size_t>(track.bitmap.biWidth),
                  static_cast<std::size_t>(track.bitmap.biHeight), track.bitmap.biBitCount / 8u);
    if (track.swapBytes)
        SwapBytes(packet.data.Span());
    return !packet.data.Empty();
}

bool GMp4ReadHandler::LeaveAnnounced(GPacket2& packet)
{
    const Mp4Track& track = *announced.track;
    if (track.flipRaw || track.swapBytes || announced.size > kMaxPacketSize ||
        announced.position + announced.size > static_cast<std::uint64_t>(sizeSeen.load(std::memory_order_relaxed)))
        return false;
    packet.position = static_cast<std::int64_t>(announced.position);
    packet.unread = static_cast<std::uint32_t>(announced.size);
    return true;
}

std::size_t GMp4ReadHandler::CutLeft(const GPacket2& packet, std::size_t there)
{
    damage.Add("sample is cut off", packet.position, packet.unread - there);
    return there;
}

std::optional<REFERENCE_TIME> GMp4ReadHandler::Seek(REFERENCE_TIME time, GSeekMode)
{
    time = std::clamp<REFERENCE_TIME>(time, 0, kLastMp4Time);
    for (GReading& reading : readings)
        reading.disabled = !reading.track->SeekTrack(time);
    horizon = MulDivU64(static_cast<std::uint64_t>(time), movie.timescale, kUnitsPerSecond).value_or(0);
    horizonTime = HorizonTime();
    turn = readings.size();
    return time;
}

REFERENCE_TIME GMp4ReadHandler::AvailableTime() const
{
    REFERENCE_TIME available = 0;
    // The reader, whose source is not to be asked here, may not have met the file's growth yet.
    const auto again = OpenAgain();
    const auto size = static_cast<std::uint64_t>(again ? std::max<std::int64_t>(again->GetSize(), 0) : sizeSeen.load());
    for (const Mp4TrackPtr& track : movie.tracks)
        available = std::max(available, track->TimeAtOffset(size));
    return available;
}

std::vector<GProperty> GMp4ReadHandler::Properties() const
{
    if (movie.brand == 0)
        return {};
    return {{.name = "brand", .type = GProperty::Type::Text, .value = CodeText(movie.brand)}};
}

}  // namespace vex
