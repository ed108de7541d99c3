#include "formats/mp3/mp3_read_handler.h"

#include <algorithm>
#include <cmath>

#include "io/byte_reader.h"
#include "io/checked_math.h"
#include "media/audio_types.h"
#include "media/wave_tags.h"

namespace vex {
namespace {

// From the first frame: behind the side information of MPEG-1 in stereo, and looked for nowhere else.
constexpr std::int64_t kXingOffset = 36;
constexpr std::size_t kXingFieldsSize = 16;  // code, flags, frames, bytes

// Free format frames are no longer than this, and their headers agree in all but the padding bit.
constexpr std::int64_t kMaxFreeFormat = 8192;  // bytes
constexpr std::uint8_t kFreeFormatMask = 0xFC;

CMediaType TypeOf(const GMp3Header& header)
{
    WAVEFORMATEX format{};
    format.wFormatTag = wave_tag::kMp3;
    format.nChannels = header.Channels();
    format.nSamplesPerSec = header.sampleRate;
    format.nBlockAlign = 4;
    format.wBitsPerSample = static_cast<WORD>(8 * header.Channels());
    return MakeWaveType(format);
}

const char* RefusalOf(unsigned layer)
{
    return layer == 1 ? "the file holds MPEG audio of layer I; only layer III is played"
                      : "the file holds MPEG audio of layer II; only layer III is played";
}

}  // namespace

std::int64_t GXingHeader::OffsetOf(REFERENCE_TIME time, REFERENCE_TIME duration) const
{
    const double wanted = static_cast<double>(time) / static_cast<double>(duration) * 100;
    const double percent = wanted > 0 ? std::min(wanted, 100.0) : 0;
    const auto index = std::min<std::size_t>(static_cast<std::size_t>(percent), contents.size() - 1);
    const double below = contents[index];
    const double above = index + 1 < contents.size() ? contents[index + 1] : 256;
    const double place = below + (percent - static_cast<double>(index)) * (above - below);
    return static_cast<std::int64_t>(place * bytes / 256);
}

GMp3ReadHandler::GMp3ReadHandler(std::unique_ptr<GFileBase> file)
    : GFrameReadHandler(std::move(file), "MP3 Handler Error, Do not open file!\n")
{
}

GStatus GMp3ReadHandler::OpenContainer()
{
    frames.Reset();
    G_TRY_STATUS(FindFirstFrame());
    if (first.layer != 3)
        return GError{GErrorKind::Unsupported, RefusalOf(first.layer), static_cast<std::uint64_t>(dataStart)};
    frames.TrimTags(dataStart + first.frameSize);
    ReadXing();
    std::int64_t frameCount = xing ? xing->frames : 0;
    if (!xing)
        G_TRY_STATUS(CountFrames(frameCount));
    duration = std::min(MulDiv64(frameCount, kMp3FrameUnits, first.ScaledRate()).value_or(kMaxTime), kMaxTime);
    Trace("TIME: %lldsec", static_cast<long long>(duration / kUnitsPerSecond));
    Describe(TypeOf(first));
    frames.GoTo(dataStart);
    return {};
}

void GMp3ReadHandler::CloseContainer()
{
    GFrameReadHandler::CloseContainer();
    first = {};
    xing.reset();
}

GStatus GMp3ReadHandler::FindFirstFrame()
{
    std::int64_t behindTags = 0;
    while (const std::int64_t tag = frames.TagSize(behindTags))
        behindTags += tag;
    const bool freeFormat = IsFreeFormat(behindTags);
    const GScanResult found = freeFormat ? GScanResult{} : frames.FindFrame(behindTags, frames.End());
    if (found.end == GScanEnd::Interrupted)
        return Aborted();
    if (freeFormat)
        return GError{GErrorKind::Unsupported, "MPEG audio of free format is not supported",
                      static_cast<std::uint64_t>(behindTags)};
    if (!found.Found())
        return GError{GErrorKind::Malformed, "the file holds no MPEG audio: no frame that another one follows",
                      static_cast<std::uint64_t>(behindTags)};
    dataStart = found.position;
    first = *GMp3Syntax::Decode(frames.Window().At(dataStart, GMp3Syntax::kHeaderSize));
    return {};
}

// Frames of free format do not say how long they are: their headers are looked for at two equal distances.
bool GMp3ReadHandler::IsFreeFormat(std::int64_t position)
{
    GScanWindow& window = frames.Window();
    const auto header = ReadMpegAudioHeader(window.At(position, kMpegAudioHeaderSize));
    if (!header || header->bitRateIndex != 0 || header->layer > 3 || header->rateIndex > 2)
        return false;
    const GBytes bytes = window.At(position, 3);
    const std::array<std::uint8_t, 3> start{bytes[0], bytes[1], bytes[2]};
    const auto same = [&](GBytes other) {
        return other.size() >= 3 && other[0] == start[0] && other[1] == start[1] &&
               (other[2] & kFreeFormatMask) == (start[2] & kFreeFormatMask);
    };
    const GScanResult second = window.FindForward(position + 4, position + kMaxFreeFormat, 3, same);
    if (!second.Found())
        return false;
    const std::int64_t third = second.position + (second.position - position);
    return window.FindForward(third - 1, third + 2, 3, same).Found();
}

void GMp3ReadHandler::ReadXing()
{
    GByteReader reader(
        frames.Window().At(dataStart + kXingOffset, kXingFieldsSize + std::tuple_size_v<decltype(xing->contents)>));
    const GBytes code = reader.Bytes(4);
    if (!HasTextAt(code, 0, "Xing"))
        return;
    GXingHeader header;
    reader.Skip(4);  // flags: writers set the fields whatever these say
    header.frames = reader.U32BE();
    header.bytes = reader.U32BE();
    for (std::uint8_t& entry : header.contents)
        entry = reader.U8();
    if (reader.Ok())
        xing = header;
}

// By the distance between the first frame and the last one, as if all were as large as the first.
GStatus GMp3ReadHandler::CountFrames(std::int64_t& frameCount)
{
    const auto isHeader = [](GBytes bytes) {
        return GMp3Syntax::MayBegin(bytes) && GMp3Syntax::Decode(bytes).has_value();
    };
    GScanWindow& window = frames.Window();
    std::int64_t at = frames.End() - 4;
    std::int64_t size = 0;
    do {  // a frame that leads beyond the end is passed over
        const GScanResult found = window.FindBackward(dataStart, at, GMp3Syntax::kHeaderSize, isHeader);
        if (found.end == GScanEnd::Interrupted)
            return Aborted();
        if (!found.Found())
            return {};
        at = found.position;
        const auto last = GMp3Syntax::Decode(window.At(at, GMp3Syntax::kHeaderSize));
        size = last ? last->frameSize : 0;
    } while (size > frames.End() - at);
    frameCount = (at + first.frameSize - dataStart) / first.frameSize;
    return {};
}

std::int64_t GMp3ReadHandler::OffsetOf(REFERENCE_TIME time) const
{
    if (xing)
        return xing->OffsetOf(time, duration);
    const auto number = MulDiv64(time, first.sampleRate, kMp3FrameUnits >> (first.lowFrequencies ? 1 : 0));
    const auto offset = CheckedMul<std::int64_t>(number.value_or(0), first.frameSize);
    return offset.value_or(frames.End());
}

// Packets are timed from the target on, whatever frame is found there.
std::optional<REFERENCE_TIME> GMp3ReadHandler::Seek(REFERENCE_TIME time, GSeekMode)
{
    if (!AcceptsSeek(time))
        return std::nullopt;
    runningTime = time;
    frames.Window().Forget();
    if (!xing && time == 0)
        frames.GoTo(dataStart);
    else
        frames.SearchFrom(dataStart + std::min(OffsetOf(time), frames.End() - dataStart));
    return time;
}

std::vector<GProperty> GMp3ReadHandler::Properties() const
{
    return {{.name = "duration_from", .type = GProperty::Type::Text, .value = xing ? "Xing header" : "file size"}};
}

}  // namespace vex
