#include "formats/ogg/ogg_vorbis_stream.h"

#include <algorithm>
#include <bit>

#include "formats/ogg/ogg_comments.h"
#include "media/audio_types.h"

namespace vex {
namespace {

constexpr std::uint8_t kCommentHeader = 3;
constexpr std::uint8_t kSetupHeader = 5;

// Entries of all code books of a stream. Encoders use some ten thousand; a few bits can declare millions, for which
// libvorbis allocates without looking whether it got the memory.
constexpr std::int64_t kMostEntries = 1 << 20;

// libvorbis takes packets that it could write to, and does not.
ogg_packet Raw(const GOggPacket& packet)
{
    ogg_packet raw{};
    raw.packet = const_cast<unsigned char*>(packet.data.data());
    raw.bytes = static_cast<long>(packet.data.size());
    raw.b_o_s = packet.beginsStream ? 1 : 0;
    raw.granulepos = packet.granule;
    return raw;
}

// The largest number whose power of `dimensions` is at most `entries` (Vorbis I, 9.2.3).
std::int64_t LookupValues(std::int64_t entries, long dimensions)
{
    for (std::int64_t value = 1;; ++value) {
        std::int64_t power = 1;
        for (long i = 0; i < dimensions && power <= entries; ++i)
            power *= value + 1;
        if (power > entries)
            return value;
    }
}

// The bits of a setup header (Vorbis I, 3.2.1). Reads past the end give -1.
class GCodeBooks {
public:
    explicit GCodeBooks(GBytes packet)
    {
        constexpr std::size_t kSignature = 7;
        const GBytes rest = packet.subspan(std::min(packet.size(), kSignature));
        oggpack_readinit(&bits, const_cast<unsigned char*>(rest.data()), static_cast<int>(rest.size()));
    }

    // Whether they have no more entries than a stream may have. Books that are damaged otherwise are left to libvorbis.
    bool Fit()
    {
        const long books = oggpack_read(&bits, 8) + 1;
        for (long i = 0; i < books && sound; ++i)
            ReadBook();
        return fit;
    }

private:
    void ReadBook()
    {
        constexpr long kSync = 0x564342;
        sound = oggpack_read(&bits, 24) == kSync;
        const long dimensions = oggpack_read(&bits, 16);
        const long entries = oggpack_read(&bits, 24);
        sound = sound && entries >= 0;
        total += std::max(entries, 0L);
        fit = fit && (!sound || (dimensions > 0 && total <= kMostEntries));
        sound = sound && fit;
        if (!sound)
            return;
        if (oggpack_read(&bits, 1) > 0)
            SkipOrdered(entries);
        else
            SkipLengths(entries);
        SkipLookup(entries, dimensions);
    }
    void SkipLengths(long entries)
    {
        const bool sparse = oggpack_read(&bits, 1) > 0;
        for (long i = 0; i < entries && sound; ++i) {
            if (!sparse || oggpack_read(&bits, 1) > 0)
                sound = oggpack_read(&bits, 5) >= 0;
        }
    }
    void SkipOrdered(long entries)
    {
        long length = oggpack_read(&bits, 5) + 1;
        for (long i = 0; i < entries && sound; ++length) {
            const long count =
                oggpack_read(&bits, static_cast<int>(std::bit_width(static_cast<unsigned long>(entries - i))));
            sound = count >= 0 && count <= entries - i && length <= 32;
            i += count;
        }
    }
    void SkipLookup(long entries, long dimensions)
    {
        const long kind = oggpack_read(&bits, 4);
        sound = sound && kind >= 0;
        if (!sound || (kind != 1 && kind != 2))
            return;
        oggpack_adv(&bits, 64);
        const long size = oggpack_read(&bits, 4) + 1;
        oggpack_adv(&bits, 1);
        const std::int64_t values = kind == 1 ? LookupValues(entries, dimensions) : std::int64_t{entries} * dimensions;
        sound = size > 0 && values * size <= kMostBits;
        if (sound)
            oggpack_adv(&bits, static_cast<int>(values * size));
    }

    static constexpr std::int64_t kMostBits = 8 * 131'072;  // no header that is read is longer

    oggpack_buffer bits{};
    std::int64_t total = 0;  // entries
    bool sound = true;
    bool fit = true;
};

}  // namespace

GOgg2VorbisStream::GOgg2VorbisStream(std::uint32_t serial) : GOGG2ReadStream(GOggKind::Vorbis, serial)
{
    vorbis_info_init(&info);
    vorbis_comment_init(&comment);
}

GOgg2VorbisStream::~GOgg2VorbisStream()
{
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
}

bool GOgg2VorbisStream::HeaderIn(const GOggPacket& packet)
{
    if (headerCount >= kHeaderSlots || (packet.First() == kSetupHeader && !GCodeBooks(packet.data).Fit()))
        return false;
    ogg_packet raw = Raw(packet);
    if (vorbis_synthesis_headerin(&info, &comment, &raw) != 0)
        return false;
    if (packet.First() == kCommentHeader)
        comments = ListComments(comment);
    StoreHeader(packet.First() >> 1, packet);
    ++headerCount;
    return true;
}

unsigned GOgg2VorbisStream::HeadersMissing() const
{
    unsigned missing = 0;
    for (std::size_t slot = 0; slot < kHeaderSlots; ++slot)
        missing |= Header(slot).empty() ? 1u << slot : 0u;
    return missing;
}

std::uint32_t GOgg2VorbisStream::BuildMediaType(CMediaType& type) const
{
    constexpr std::uint32_t kQueueSizeHint = 16'384;
    type = MakeVorbisType({.channels = static_cast<std::uint32_t>(info.channels),
                           .samplesPerSecond = static_cast<std::uint32_t>(info.rate),
                           .lowerBitRate = static_cast<std::uint32_t>(info.bitrate_lower),
                           .nominalBitRate = static_cast<std::uint32_t>(info.bitrate_nominal),
                           .upperBitRate = static_cast<std::uint32_t>(info.bitrate_upper)});
    return kQueueSizeHint;
}

std::int64_t GOgg2VorbisStream::Length(const GOggPacket& packet) const
{
    ogg_packet raw = Raw(packet);
    return std::max(vorbis_packet_blocksize(const_cast<vorbis_info*>(&info), &raw), 0L) / 2;
}

}  // namespace vex
