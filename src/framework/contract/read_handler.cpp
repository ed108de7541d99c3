#include "framework/contract/read_handler.h"

#include <algorithm>

#include "platform/trace.h"

namespace vex {

GStatus GReadHandler::Open(const char* newPath)
{
    Close();
    try {
        path = newPath;
        if (source && source->Open(newPath) == 0) {
            Trace("%s", openFailure);
            const GError error = source->OpenError();
            Close();
            return error;
        }
        GStatus opened = OpenContainer();
        if (!opened.Ok())
            Close();
        return opened;
    } catch (...) {
        Close();
        throw;
    }
}

void GReadHandler::Close()
{
    CloseContainer();
    damage.Clear();
    path.clear();
    if (source)
        source->Close();
}

// A large read fails as a whole; the bytes before those that cannot be read are found in small pieces.
std::size_t GReadHandler::ReadLeft(const GPacket2& packet, std::uint8_t* out)
{
    constexpr std::uint32_t kPiece = 2048;  // bytes
    if (source->ReadAt(packet.position, out, packet.unread) == packet.unread)
        return packet.unread;
    std::uint32_t there = 0;
    while (there < packet.unread) {
        const std::uint32_t piece = std::min(kPiece, packet.unread - there);
        const std::uint32_t got = source->ReadAt(packet.position + there, out + there, piece);
        there += got;
        if (got < piece)
            break;
    }
    return there < packet.unread ? CutLeft(packet, there) : there;
}

std::unique_ptr<GFileBase> GReadHandler::OpenAgain() const
{
    std::unique_ptr<GFileBase> again = source ? source->NewInstance() : nullptr;
    if (again && again->Open(path.c_str()) == 0)
        again.reset();
    return again;
}

}  // namespace vex
