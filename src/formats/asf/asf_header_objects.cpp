#include "formats/asf/asf_header_objects.h"

#include <algorithm>

#include "formats/asf/asf_object.h"
#include "framework/contract/packet.h"
#include "io/checked_math.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/codec_tags.h"
#include "media/format_headers.h"
#include "media/video_types.h"
#include "platform/text.h"

namespace vex {
namespace {

constexpr std::uint32_t kBroadcastFlag = 1;
constexpr std::uint16_t kStreamNumberMask = 0x7F;
constexpr std::uint16_t kEncryptedFlag = 0x8000;
constexpr std::uint64_t kUnitsPerMillisecond = 10'000;
constexpr std::size_t kSpreadSize = 8;
constexpr std::uint64_t kLargestTime = std::uint64_t{1} << 60;  // 100 ns: sums of a few still fit

REFERENCE_TIME HeldTime(std::uint64_t units) { return static_cast<REFERENCE_TIME>(std::min(units, kLargestTime)); }

void ReadAudioFormat(GByteReader data, GAsfEXReadStream& stream)
{
    const GWaveFormat wave = ReadWaveFormat(data.Bytes(data.Left()));
    if (!wave.whole)
        return;
    stream.mediaType = MakeWaveType(wave.header, wave.extra);
    stream.bitRate = std::uint64_t{wave.header.nAvgBytesPerSec} * 8;
    stream.enabled = true;
}

void ReadVideoFormat(GByteReader data, GAsfEXReadStream& stream)
{
    data.Skip(4 + 4 + 1);  // encoded width and height, reserved flags
    const std::size_t declared = data.U16LE();
    const GBytes format = data.Bytes(std::min(declared, data.Left()));
    const auto bitmap = ReadBitmapHeader(format);
    if (!bitmap)
        return;
    VIDEOINFOHEADER info{};
    info.bmiHeader = *bitmap;
    stream.mediaType =
        MakeVideoInfoType(SubtypeFromFourCC(bitmap->biCompression), info, format.subspan(kBitmapHeaderSize));
    stream.enabled = true;
}

std::optional<GAsfSpread> ReadSpread(GByteReader data)
{
    if (data.Left() < kSpreadSize)
        return std::nullopt;
    GAsfSpread spread;
    spread.span = data.U8();
    spread.packetLength = data.U16LE();
    spread.chunkLength = data.U16LE();
    spread.silenceLength = data.U16LE();
    return spread;
}

GAsfExclusions::GNumbers ReadNumbers(GByteReader& body)
{
    GAsfExclusions::GNumbers numbers;
    for (std::uint32_t left = body.U16LE(); left > 0 && body.Ok(); --left) {
        const std::uint16_t number = body.U16LE();
        if (body.Ok())
            numbers.set(number & kStreamNumberMask);
    }
    return numbers;
}

}  // namespace

GStatus ReadAsfFileProperties(GByteReader body, GAsfHeader& header)
{
    body.Skip(kAsfGuidSize + 8 + 8 + 8);  // file ID, file size, creation date, data packets count
    header.playDuration = HeldTime(body.U64LE());
    body.Skip(8);  // send duration
    header.preroll = HeldTime(MulDivU64(body.U64LE(), kUnitsPerMillisecond, 1).value_or(kLargestTime));
    header.broadcast = (body.U32LE() & kBroadcastFlag) != 0;
    header.packetSize = body.U32LE();
    body.Skip(4 + 4);  // maximum packet size, maximum bit rate
    if (!body.Ok())
        return GError{GErrorKind::Malformed, "the File Properties Object is too short", body.FilePos()};
    if (header.packetSize < kAsfSmallestPacket)
        return GError{GErrorKind::Malformed, "the packet size is below 11 bytes", body.FilePos()};
    return {};
}

GResult<std::unique_ptr<GAsfEXReadStream>> ReadAsfStreamProperties(GByteReader body)
{
    auto stream = std::make_unique<GAsfEXReadStream>();
    const GAsfId type = ReadAsfId(body);
    const GAsfId correction = ReadAsfId(body);
    stream->timeOffset = HeldTime(body.U64LE());
    const std::uint32_t typeDataLength = body.U32LE();
    const std::uint32_t correctionLength = body.U32LE();
    const std::uint16_t flags = body.U16LE();
    body.Skip(4);  // reserved
    if (!body.Ok())
        return GError{GErrorKind::Malformed, "a Stream Properties Object is too short", body.FilePos()};
    stream->number = flags & kStreamNumberMask;
    stream->encrypted = (flags & kEncryptedFlag) != 0;
    const GByteReader typeData = body.Window(std::min<std::uint64_t>(typeDataLength, body.Left()));
    const GByteReader correctionData = body.Window(std::min<std::uint64_t>(correctionLength, body.Left()));
    if (type == GAsfId::AudioMedia) {
        stream->kind = GAsfKind::Audio;
        ReadAudioFormat(typeData, *stream);
        if (correction == GAsfId::AudioSpread)
            stream->spread = ReadSpread(correctionData);
    } else if (type == GAsfId::VideoMedia) {
        stream->kind = GAsfKind::Video;
        ReadVideoFormat(typeData, *stream);
    }
    return stream;
}

bool ReadAsfStreamBitrates(GByteReader body, GAsfStreamFacts& facts)
{
    for (std::uint32_t left = body.U16LE(); left > 0 && body.Ok(); --left) {
        const std::uint16_t number = body.U16LE() & kStreamNumberMask;
        const std::uint32_t rate = body.U32LE();
        if (body.Ok())
            facts.averageRates[number] = rate;
    }
    return body.Ok();
}

bool ReadAsfExclusion(GByteReader body, GAsfExclusions& exclusions)
{
    body.Skip(kAsfGuidSize);  // what the streams are exclusive by
    exclusions.ExcludeEach(ReadNumbers(body));
    return body.Ok();
}

bool ReadAsfGroupExclusion(GByteReader body, GAsfExclusions& exclusions)
{
    body.Skip(kAsfGuidSize);
    GAsfExclusions::GNumbers earlier;
    for (std::uint32_t left = body.U16LE(); left > 0 && body.Ok(); --left) {
        const auto group = ReadNumbers(body);
        exclusions.ExcludeGroup(group, earlier);
        earlier |= group;
    }
    return body.Ok();
}

bool ReadAsfLanguages(GByteReader body, GAsfStreamFacts& facts)
{
    facts.languages.clear();  // a second list replaces the first
    for (std::uint32_t left = body.U16LE(); left > 0 && body.Ok(); --left) {
        GByteReader text = body.Window(body.U8());
        WString language;
        while (text.Left() >= 2) {
            const std::uint16_t letter = text.U16LE();
            if (letter == 0)
                break;
            language.push_back(static_cast<WCHAR>(letter));
        }
        if (body.Ok())
            facts.languages.push_back(Utf8FromWide(language));
    }
    return body.Ok();
}

bool ReadAsfExtendedStream(GByteReader body, GAsfStreamFacts& facts, std::optional<GByteReader>& embedded)
{
    GAsfExtendedStream extended;
    body.Skip(8 + 8);  // start and end time
    extended.dataBitRate = body.U32LE();
    body.Skip(4 * 6 + 4);  // buffer sizes and fullness, the alternate three, maximum object size; flags
    extended.number = body.U16LE() & kStreamNumberMask;
    extended.languageIndex = body.U16LE();
    extended.timePerFrame = body.U64LE();
    const std::uint16_t names = body.U16LE();
    const std::uint16_t extensions = body.U16LE();
    if (!body.Ok())
        return false;
    facts.extended.push_back(extended);
    for (std::uint32_t i = 0; i < names && body.Ok(); ++i) {
        body.Skip(2);  // language
        body.Skip(body.U16LE());
    }
    for (std::uint32_t i = 0; i < extensions && body.Ok(); ++i) {
        body.Skip(kAsfGuidSize + 2);  // system, data size
        body.Skip(body.U32LE());
    }
    if (body.Left() < static_cast<std::size_t>(kAsfObjectHeaderSize))
        return body.Ok();
    const GAsfId id = ReadAsfId(body);
    const std::uint64_t size = body.U64LE();
    if (id == GAsfId::StreamProperties && size >= static_cast<std::uint64_t>(kAsfObjectHeaderSize))
        embedded =
            body.Window(std::min<std::uint64_t>(size - static_cast<std::uint64_t>(kAsfObjectHeaderSize), body.Left()));
    return true;
}

}  // namespace vex
