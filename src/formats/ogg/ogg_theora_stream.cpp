#include "formats/ogg/ogg_theora_stream.h"

#include <algorithm>
#include <limits>

#include "formats/ogg/ogg_comments.h"
#include "media/codec_guids.h"
#include "media/video_types.h"

namespace vex {
namespace {

constexpr std::uint8_t kHeaderBit = 0x80;
constexpr std::uint8_t kDeltaFrameBit = 0x40;
constexpr std::uint8_t kCommentHeader = 0x81;
constexpr std::uint32_t kTheora = FourCC("THEO");
constexpr WORD kBitCount = 24;

// Streams before version 3.2.1 count frames from 0.
bool CountsFromOne(const GTheoraIdentification& id)
{
    const std::uint32_t version =
        std::uint32_t{id.versionMajor} << 16 | std::uint32_t{id.versionMinor} << 8 | id.versionRevision;
    return version >= 0x030201;
}

}  // namespace

bool GOgg2TheoraStream::HeaderIn(const GOggPacket& packet)
{
    if (headerCount >= kHeaderSlots || !HasTextAt(packet.data, 1, "theora"))
        return false;
    const std::uint8_t type = packet.First();
    if (type == kHeaderBit) {
        const GTheoraIdentification id = ReadTheoraIdentification(packet.data);
        if (!id.valid || id.rateNumerator == 0)
            return false;
        identification = id;
        frameDuration = std::int64_t{id.rateDenominator} * kUnitsPerSecond / id.rateNumerator;
        granuleShift = id.granuleShift;
        granuleOffset = CountsFromOne(id) ? 1 : 0;
    } else if (type == kCommentHeader) {
        comments = ReadComments(packet.data, false).value_or(std::vector<GOggComment>());
    }
    StoreHeader(type & 0x0F, packet);
    ++headerCount;
    return true;
}

unsigned GOgg2TheoraStream::HeadersMissing() const
{
    unsigned missing = 0;
    for (std::size_t slot = 0; slot < kHeaderSlots; ++slot)
        missing |= Header(slot).empty() ? 1u << slot : 0u;
    return missing;
}

std::uint32_t GOgg2TheoraStream::BuildMediaType(CMediaType& type) const
{
    std::vector<std::uint8_t> behind;
    std::size_t headerBytes = 0;
    for (std::size_t slot = 0; slot < kHeaderSlots; ++slot) {
        const GBytes header =
            Header(slot).first(std::min<std::size_t>(Header(slot).size(), std::numeric_limits<std::uint16_t>::max()));
        behind.push_back(static_cast<std::uint8_t>(header.size() >> 8));
        behind.push_back(static_cast<std::uint8_t>(header.size()));
        behind.insert(behind.end(), header.begin(), header.end());
        headerBytes += header.size();
    }
    VIDEOINFOHEADER info{};
    info.dwBitRate = identification.nominalBitRate;
    info.AvgTimePerFrame = frameDuration;
    info.bmiHeader = MakeBitmapHeader(static_cast<LONG>(identification.pictureWidth),
                                      static_cast<LONG>(identification.pictureHeight), kBitCount, kTheora);
    info.bmiHeader.biSize = static_cast<DWORD>(sizeof info.bmiHeader + 2 * kHeaderSlots + headerBytes);
    type = MakeVideoInfoType(SubtypeFromFourCC(kTheora), info, behind);
    const std::uint32_t pixels = identification.pictureWidth * identification.pictureHeight;
    return (pixels & 0xFFFF) * 10;
}

bool GOgg2TheoraStream::IsKeyFrame(const GOggPacket& packet) const
{
    return !packet.data.empty() && (packet.First() & (kHeaderBit | kDeltaFrameBit)) == 0;
}

REFERENCE_TIME GOgg2TheoraStream::GranuleToTime(std::int64_t granule) const
{
    return granule == 1 ? frameDuration : GOGG2ReadStream::GranuleToTime(granule);
}

REFERENCE_TIME GOgg2TheoraStream::PacketTime(const GOggPacket& packet)
{
    return (packet.First() & kHeaderBit) != 0 ? -1 : GOGG2ReadStream::PacketTime(packet);
}

// The upper bits count frames up to the last key frame, the lower ones the frames since.
std::int64_t GOgg2TheoraStream::GranulePosition(std::int64_t granule) const
{
    const std::int64_t keyFrame = granule >> granuleShift;
    return keyFrame + (granule - (keyFrame << granuleShift)) - granuleOffset;
}

}  // namespace vex
