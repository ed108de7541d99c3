#include "formats/mpeg/mpeg_search.h"

#include <algorithm>

#include "platform/pipeline.h"
#include "platform/trace.h"

namespace vex {
namespace {

// Duration of a transport stream.
constexpr int kAlignmentTries = 71;
constexpr int kBackwardPackets = 10'000;
// Duration of a program stream: bytes from the end, and of the file's start, where nothing is looked at.
constexpr std::int64_t kProgramTail = 2000 - 188;
constexpr std::int64_t kProgramHead = 188;
constexpr std::int64_t kProgramLook = 8 << 20;  // bytes

// Seeks.
constexpr std::int64_t kInside = 0x1000;      // bytes from either end of the interval to a guess
constexpr std::int64_t kProgramBack = 0x800;  // bytes
constexpr std::int64_t kNearEnough = 0x2000;  // bytes
constexpr std::int64_t kProbeLook = 2 << 20;  // bytes
constexpr int kHalving = 3;                   // every so many guesses, should the interpolation creep

bool IsPacketCode(GBytes bytes)
{
    return HasStartCode(bytes) && bytes[3] >= mpeg_code::kPrivate1 && bytes[3] != mpeg_code::kPadding &&
           bytes[3] != mpeg_code::kPrivate2;
}

}  // namespace

std::optional<REFERENCE_TIME> GMpegSearch::TimeIn(std::uint32_t number, std::uint64_t pts, std::int64_t position) const
{
    const auto stream = std::ranges::find(streams, number, &GMpeg2ReadStream::number);
    if (stream == streams.end())
        return std::nullopt;
    return (*stream)->TimeOf(navigation.Continuous(pts, position));
}

std::optional<REFERENCE_TIME> GMpegSearch::TransportTime(const GTransportPacket& packet, std::int64_t position) const
{
    GPesHeader header;
    if (!packet.unitStart || packet.error || packet.scrambled || packet.payload.empty() ||
        ReadPesHeader(packet.payload, GPesSyntax::Mpeg2, header) != GPesResult::Whole || !header.pts)
        return std::nullopt;
    return TimeIn(packet.pid, *header.pts, position);
}

std::optional<REFERENCE_TIME> GMpegSearch::ProgramTime(std::int64_t position)
{
    const GBytes bytes = window.At(position, kMostPesHeader + 1);
    GPesHeader header;
    if (ReadPesHeader(bytes, GPesSyntax::Either, header) != GPesResult::Whole || !header.pts)
        return std::nullopt;
    std::uint8_t subStream = header.extension;
    if (header.streamId == mpeg_code::kPrivate1) {
        if (header.headerSize >= bytes.size())
            return std::nullopt;
        subStream = bytes[header.headerSize];
    }
    return TimeIn(ProgramStreamKey(header.streamId, subStream), *header.pts, position);
}

int GMpegSearch::ComputeDuration()
{
    duration = 0;
    const int found = layout.IsTransport() ? TransportDuration() : ProgramDuration();
    Trace("Duration %lld SEC\n", static_cast<long long>(duration / kUnitsPerSecond));
    return found;
}

// A packet boundary close to the end of the file.
std::optional<std::int64_t> GMpegSearch::AlignedNearEnd()
{
    const std::int64_t packet = layout.packetSize;
    std::int64_t position = layout.PacketBefore(fileSize - 2 * packet);
    for (int tries = 0; tries <= kAlignmentTries && position >= 2 * packet; ++tries, --position) {
        const GBytes bytes =
            window.At(position + static_cast<std::int64_t>(layout.SyncOffset()), layout.packetSize + 1);
        if (bytes.size() == layout.packetSize + 1 && bytes.front() == kTransportSync && bytes.back() == kTransportSync)
            return position;
    }
    return std::nullopt;
}

int GMpegSearch::TransportDuration()
{
    const auto aligned = AlignedNearEnd();
    if (!aligned)
        return 0;
    GTransportWalker walker(window, layout);
    GTransportPacket packet;
    std::int64_t position = *aligned;
    for (int i = 0; i < kBackwardPackets && position >= 2 * std::int64_t{layout.packetSize}; ++i) {
        walker.position = position;
        if (walker.Next(packet) == GMpegStep::Unit) {
            if (const auto time = TransportTime(packet, position)) {
                duration = *time;
                return 1;
            }
        }
        position -= layout.packetSize;
    }
    return 0;
}

// A file of less than a second has none: its times say more of its streams' order than of its length.
int GMpegSearch::ProgramDuration()
{
    std::int64_t until = fileSize - kProgramTail;
    const std::int64_t from = std::max<std::int64_t>(kProgramHead, until - kProgramLook);
    for (;;) {
        // As wide as what ProgramTime looks at: a look ahead of the window would move it with every start code.
        const GScanResult result = window.FindBackward(from, until, kMostPesHeader + 1, IsPacketCode);
        if (!result.Found())
            return 0;
        const auto time = ProgramTime(result.position);
        if (time && *time >= kUnitsPerSecond) {
            duration = *time;
            return 1;
        }
        until = result.position;
    }
}

std::optional<REFERENCE_TIME> GMpegSearch::FindTime(std::int64_t from, std::int64_t until)
{
    if (!layout.IsTransport()) {
        for (;;) {
            const GScanResult result = window.FindForward(from, until, 4, IsPacketCode);
            if (!result.Found())
                return std::nullopt;
            if (const auto time = ProgramTime(result.position))
                return time;
            from = result.position + 1;
        }
    }
    GTransportWalker walker(window, layout);
    walker.position = from;
    GTransportPacket packet;
    while (walker.position < until) {
        const std::int64_t position = walker.position;
        const GMpegStep step = walker.Next(packet);
        if (step == GMpegStep::End)
            break;
        if (step == GMpegStep::Lost) {
            if (!walker.Resync(until))  // interrupted, it does not move
                break;
        } else if (const auto time = TransportTime(packet, position)) {
            return time;
        }
    }
    return std::nullopt;
}

std::int64_t GMpegSearch::Guess(const GPoint& low, const GPoint& high, REFERENCE_TIME target, bool halve) const
{
    const std::int64_t bytes = high.position - low.position;
    const REFERENCE_TIME time = high.time - low.time;
    std::int64_t guess = low.position + bytes / 2;
    if (!halve && time > 0 && target >= low.time && target <= high.time) {
        const double part = static_cast<double>(target - low.time) / static_cast<double>(time);
        guess = low.position + static_cast<std::int64_t>(static_cast<double>(bytes) * part);
    }
    guess = std::max(guess, low.position + kInside);
    guess = std::max<std::int64_t>(std::min(guess, high.position - kInside), 0);
    if (layout.IsTransport())
        return layout.PacketBefore(guess);
    return std::max<std::int64_t>(guess - kProgramBack, 0);
}

std::int64_t GMpegSearch::SeekTo(REFERENCE_TIME target)
{
    Trace("MPEG2 SEEK - rtSEEK: %lld\n", static_cast<long long>(target));
    if (target <= 0 || duration <= 0)
        return layout.origin;
    if (lastSeek && lastSeek->time == target)
        return lastSeek->position;
    Trace("MPEG2 SEEK - durati: %lld\n", static_cast<long long>(duration));
    const REFERENCE_TIME early = std::max<REFERENCE_TIME>(target - kMpegSeekMargin, 0);
    GPoint low{layout.origin, 0};
    GPoint high{fileSize, duration};
    for (int step = 1; high.position - low.position > kNearEnough; ++step) {
        const std::int64_t guess = Guess(low, high, early, step % kHalving == 0);
        const auto time = FindTime(guess, std::min(fileSize, guess + kProbeLook));
        if (time)
            Trace("SEARCH : %lld", static_cast<long long>(*time));
        if (time && *time < early) {
            low = {guess, *time};
            Trace("(-%lld)\n", static_cast<long long>(early - *time));
        } else {
            high = {guess, time.value_or(high.time)};
            Trace("(%lld)\n", static_cast<long long>(high.time - early));
        }
    }
    Trace("\nSEEKPOS %lld\n\n", static_cast<long long>(low.position));
    lastSeek = {low.position, target};
    return low.position;
}

}  // namespace vex
