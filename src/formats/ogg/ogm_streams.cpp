#include "formats/ogg/ogm_streams.h"

#include <algorithm>
#include <limits>

#include "formats/ogg/ogg_comments.h"
#include "io/byte_reader.h"
#include "io/checked_math.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/video_types.h"
#include "platform/trace.h"

namespace vex {
namespace {

constexpr std::uint8_t kStreamHeader = 0x01;
constexpr std::uint8_t kCommentHeader = 0x03;
constexpr std::size_t kHeaderSize = 56;  // bytes, without the type byte

// Byte 0 of a data packet.
constexpr std::uint8_t kHeaderBit = 0x01;
constexpr std::uint8_t kKeyFrameBit = 0x08;

bool IsHeader(const GOggPacket& packet) { return (packet.First() & kHeaderBit) != 0; }

unsigned LengthBytes(std::uint8_t flags) { return (flags & 2u) << 1 | flags >> 6; }

// Fields that do not lie in the packet are 0.
GOgmHeader ReadHeader(GBytes packet)
{
    GByteReader reader(packet);
    GOgmHeader header;
    reader.Skip(1 + 8);
    header.subtype = reader.Bytes(4);
    const std::uint32_t size = reader.U32LE();
    header.timeUnit = std::max<std::int64_t>(reader.I64LE(), 0);
    header.samplesPerUnit = reader.I64LE();
    header.defaultLength = reader.I32LE();
    header.bufferSize = reader.I32LE();
    header.bitsPerSample = reader.U16LE();
    reader.Skip(2);
    GByteReader audio = reader;  // the same eight bytes, in the two meanings
    header.width = reader.I32LE();
    header.height = reader.I32LE();
    header.channels = audio.U16LE();
    header.blockAlign = audio.U16LE();
    header.bytesPerSecond = audio.U32LE();
    reader.Skip(4);
    if (size > kHeaderSize)
        header.extra = reader.Bytes(std::min<std::size_t>(size - kHeaderSize, reader.Left()));
    return header;
}

// "2000", and "55" with two NULs behind it, which move the digits to their places.
std::uint16_t WaveTag(GBytes digits)
{
    unsigned tag = 0;
    unsigned shift = 12;  // bits below the digit
    for (const std::uint8_t digit : digits) {
        if (digit == 0)
            tag >>= 4;
        else if (digit >= '0' && digit <= '9')
            tag += (digit - unsigned{'0'}) << shift;
        else if ((digit | 0x20) >= 'a' && (digit | 0x20) <= 'f')
            tag += ((digit | 0x20u) - 'a' + 10) << shift;
        shift -= 4;
    }
    return static_cast<std::uint16_t>(tag);
}

}  // namespace

bool GOgmStream::HeaderIn(const GOggPacket& packet)
{
    if (headerCount >= kHeaderSlots)
        return false;
    if (packet.First() == kCommentHeader && headerCount == 1) {
        auto read = ReadComments(packet.data, true);
        if (!read)
            return false;
        comments = *std::move(read);
    } else if (packet.First() != kStreamHeader) {
        return false;
    }
    StoreHeader(packet.First() >> 1, packet);
    header = ReadHeader(Header(0));
    ++headerCount;
    return true;
}

std::size_t GOgmStream::PayloadOffset(const GOggPacket& packet) const { return LengthBytes(packet.First()) + 1; }

std::int64_t GOgmStream::Length(const GOggPacket& packet) const
{
    if (IsHeader(packet))
        return 0;
    const unsigned count = LengthBytes(packet.First());
    if (count == 0)
        return std::max(header.defaultLength, 0);
    std::uint64_t length = 0;
    for (std::size_t i = std::min<std::size_t>(count, packet.data.size() - 1); i > 0; --i)
        length = length << 8 | packet.data[i];
    return static_cast<std::int64_t>(std::min<std::uint64_t>(length, std::numeric_limits<std::uint32_t>::max()));
}

REFERENCE_TIME GOgmStream::PacketTime(const GOggPacket& packet)
{
    return packet.granule < 0 && IsHeader(packet) ? 0 : GOGG2ReadStream::PacketTime(packet);
}

std::uint32_t GOgmStream::QueueSizeHint() const
{
    return static_cast<std::uint32_t>(std::int64_t{std::max(header.bufferSize, 0)} * 10 / 4096);
}

std::uint32_t GOgg2VideoStream::BuildMediaType(CMediaType& type) const
{
    const std::uint32_t code = GByteReader(header.subtype).FourCC();
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = header.timeUnit;
    info.bmiHeader = MakeBitmapHeader(header.width, header.height, header.bitsPerSample, code);
    const GUID subtype = SubtypeFromFourCC(code);
    type = MakeVideoInfoType(subtype, info, header.extra);
    // The uncompressed types that a FourCC can name.
    if (subtype == MEDIASUBTYPE_YUY2 || subtype == MEDIASUBTYPE_UYVY || subtype == MEDIASUBTYPE_YVYU)
        type.bTemporalCompression = FALSE;
    return QueueSizeHint();
}

bool GOgg2VideoStream::IsKeyFrame(const GOggPacket& packet) const { return (packet.First() & kKeyFrameBit) != 0; }

REFERENCE_TIME GOgg2VideoStream::PacketTime(const GOggPacket& packet)
{
    if (packet.granule < 0 && IsHeader(packet))
        Advance(header.samplesPerUnit);
    return GOgmStream::PacketTime(packet);
}

std::int64_t GOgg2VideoStream::Step(const GOggPacket& packet) const
{
    const std::int64_t length = Length(packet);
    if (LengthBytes(packet.First()) > 0)
        Trace("NSS LEN %d\n", static_cast<int>(length));
    return CheckedAdd(header.samplesPerUnit, length).value_or(0);
}

bool GOgg2AudioStream::HeaderIn(const GOggPacket& packet)
{
    if (!GOgmStream::HeaderIn(packet) || header.samplesPerUnit == 0)
        return false;
    Trace("SI info : %lld / %lld\n", static_cast<long long>(header.timeUnit),
          static_cast<long long>(header.samplesPerUnit));
    return true;
}

std::uint32_t GOgg2AudioStream::BuildMediaType(CMediaType& type) const
{
    WAVEFORMATEX wave{};
    wave.wFormatTag = WaveTag(header.subtype);
    wave.nChannels = header.channels;
    wave.nSamplesPerSec = static_cast<DWORD>(header.samplesPerUnit);
    wave.nAvgBytesPerSec = header.bytesPerSecond;
    wave.nBlockAlign = header.blockAlign;
    wave.wBitsPerSample = header.bitsPerSample;
    type = MakeWaveType(wave, header.extra);
    return QueueSizeHint();
}

// Rounded to the nearest, a half down.
REFERENCE_TIME GOgg2AudioStream::PositionTime(std::int64_t units) const
{
    const REFERENCE_TIME time = OggTime(units, header.timeUnit, header.samplesPerUnit);
    if (units <= 0 || header.timeUnit <= 0 || header.samplesPerUnit <= 0)
        return time;
    // Below the divisor, so the low 64 bits of the products are enough.
    const std::uint64_t remainder =
        static_cast<std::uint64_t>(units) * static_cast<std::uint64_t>(header.timeUnit) -
        static_cast<std::uint64_t>(time) * static_cast<std::uint64_t>(header.samplesPerUnit);
    return remainder > static_cast<std::uint64_t>(header.samplesPerUnit) >> 1 ? time + 1 : time;
}

std::uint32_t GOgg2TextStream::BuildMediaType(CMediaType& type) const
{
    constexpr std::uint32_t kQueueSizeHint = 20;
    type = CMediaType(MEDIATYPE_Text, GUID_NULL);
    type.SetSampleSize(0);
    return kQueueSizeHint;
}

REFERENCE_TIME GOgg2TextStream::StopTime(const GOggPacket& packet) const
{
    return GranuleToTime(MediaTimeStop(packet));
}

LONGLONG GOgg2TextStream::MediaTimeStop(const GOggPacket& packet) const
{
    return CheckedAdd(packet.granule, Length(packet)).value_or(std::numeric_limits<std::int64_t>::max());
}

}  // namespace vex
