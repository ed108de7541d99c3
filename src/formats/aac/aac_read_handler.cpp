#include "formats/aac/aac_read_handler.h"

#include <algorithm>
#include <array>
#include <string>

#include "media/aac_config.h"
#include "media/audio_types.h"
#include "media/wave_tags.h"

namespace vex {
namespace {

constexpr std::int64_t kBlock = 10;  // bytes, as an ID3v2 header has
// How far behind the tags a first frame is searched for that does not begin at a block.
constexpr std::int64_t kFirstFrameSearch = 128 << 10;  // bytes

CMediaType TypeOf(const GAdtsHeader& header)
{
    WAVEFORMATEX format{};
    format.wFormatTag = wave_tag::kAac;
    format.nChannels = header.channelConfiguration > 6 ? 2 : header.channelConfiguration;
    format.nSamplesPerSec = header.sampleRate;
    format.nAvgBytesPerSec = header.frameLength * header.sampleRate >> 11;
    format.nBlockAlign = header.frameLength;
    std::array<std::uint8_t, 5> config{};
    const std::size_t size = MakeAacConfig(config, header.profile, header.sampleRate, format.nChannels);
    return MakeWaveType(format, GBytes(config).first(size));
}

}  // namespace

GAacReadHandler::GAacReadHandler(std::unique_ptr<GFileBase> file)
    : GFrameReadHandler(std::move(file), "AAC Handler Error, Do not open file!\n")
{
}

GStatus GAacReadHandler::OpenContainer()
{
    frames.Reset();
    dataLength = frames.End();
    G_TRY_STATUS(FindFirstFrame());
    dataLength -= dataStart;
    const GAdtsHeader first = *GAdtsSyntax::Decode(frames.Window().At(dataStart, GAdtsSyntax::kHeaderSize));
    frames.TrimTags(dataStart + first.frameLength);
    std::int64_t frameCount = 0;
    G_TRY_STATUS(CountFrames(frameCount));
    const double seconds = static_cast<double>(frameCount) / (first.sampleRate / GAdtsSyntax::kSamplesPerFrame);
    duration = static_cast<REFERENCE_TIME>(seconds * static_cast<double>(kUnitsPerSecond));
    Trace("TIME: %lldsec", static_cast<long long>(duration / kUnitsPerSecond));
    Describe(TypeOf(first),
             {{.name = "crc", .type = GProperty::Type::Boolean, .value = first.protectionAbsent ? "false" : "true"},
              {.name = "channel_configuration",
               .type = GProperty::Type::Integer,
               .value = std::to_string(first.channelConfiguration)}});
    frames.GoTo(dataStart);
    return {};
}

GScanResult GAacReadHandler::FindFirstBlock(std::int64_t& behindTags, bool& adif)
{
    GScanWindow& window = frames.Window();
    std::int64_t at = 0;
    while (!Interrupted().load(std::memory_order_acquire)) {
        const GBytes block = window.At(at, kBlock);
        if (block.size() < static_cast<std::size_t>(kBlock))
            return {GScanEnd::NotFound, at};
        if (const std::int64_t tag = frames.TagSize(at); tag > 0) {
            behindTags = at == behindTags ? at + tag : behindTags;
            at += tag;
            continue;
        }
        adif = adif || HasTextAt(block, 0, "ADIF");
        if (GAdtsSyntax::MayBegin(block)) {
            const auto header = GAdtsSyntax::Decode(block);
            // The data behind an ADIF header is full of bytes that look like one of these.
            if (!adif || (header && frames.IsFollowed(at, *header)))
                return {GScanEnd::Found, at};
        }
        at += kBlock;
    }
    return {GScanEnd::Interrupted, at};
}

GStatus GAacReadHandler::FindFirstFrame()
{
    std::int64_t behindTags = 0;
    bool adif = false;
    GScanResult found = FindFirstBlock(behindTags, adif);
    const bool valid =
        found.Found() && GAdtsSyntax::Decode(frames.Window().At(found.position, GAdtsSyntax::kHeaderSize));
    if (!valid && found.end != GScanEnd::Interrupted)
        found = frames.FindFrame(behindTags, std::min(frames.End(), behindTags + kFirstFrameSearch));
    if (found.end == GScanEnd::Interrupted)
        return Aborted();
    if (!found.Found()) {
        Trace(GAdtsSyntax::kNothingFound);
        return GError{adif ? GErrorKind::Unsupported : GErrorKind::Malformed,
                      adif ? "AAC behind an ADIF header is not supported; only ADTS frames are"
                           : "the file holds no AAC in ADTS frames",
                      static_cast<std::uint64_t>(behindTags)};
    }
    dataStart = found.position;
    return {};
}

// Every frame of the file is looked at, in large pieces.
GStatus GAacReadHandler::CountFrames(std::int64_t& frameCount)
{
    GScanWindow& window = frames.Window();
    constexpr auto kHeaderSize = static_cast<std::int64_t>(GAdtsSyntax::kHeaderSize);
    std::int64_t at = dataStart;
    while (frames.End() - at >= kHeaderSize) {
        if (Interrupted().load(std::memory_order_acquire))
            return Aborted();
        if (const auto header = GAdtsSyntax::Decode(window.At(at, GAdtsSyntax::kHeaderSize))) {
            at += header->frameLength;
            ++frameCount;
            continue;
        }
        const GScanResult next = window.FindForward(at + 1, frames.End(), 3, GAdtsSyntax::MayBegin);
        if (next.end == GScanEnd::Interrupted)
            return Aborted();
        if (!next.Found())
            break;
        at = next.position;
    }
    return {};
}

// Packets are timed from the target on, whatever frame is found there.
std::optional<REFERENCE_TIME> GAacReadHandler::Seek(REFERENCE_TIME time, GSeekMode)
{
    runningTime = time;
    frames.Window().Forget();
    frames.GoTo(dataStart);
    if (time != 0 && duration > 0) {
        const double part = std::clamp(static_cast<double>(time) / static_cast<double>(duration), 0.0, 1.0);
        frames.SearchFrom(dataStart + static_cast<std::int64_t>(part * static_cast<double>(dataLength)));
    }
    return time;
}

}  // namespace vex
