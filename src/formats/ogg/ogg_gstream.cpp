#include "formats/ogg/ogg_gstream.h"

#include "media/codec_guids.h"

namespace vex {

bool GOgg2GStream::HeaderIn(const GOggPacket& packet)
{
    if (headerCount >= 2 || (packet.First() & 1) == 0)
        return false;
    if (HasTextAt(packet.data, 1, "GStream")) {
        StoreHeader(packet.First() >> 1, packet);
        ++headerCount;
    }
    return true;
}

std::uint32_t GOgg2GStream::BuildMediaType(CMediaType& type) const
{
    type = CMediaType(MEDIATYPE_Stream, MEDIASUBTYPE_GStream);
    return 0;
}

}  // namespace vex
