#include "formats/mpeg/mpeg_walker.h"

#include "io/byte_reader.h"

namespace vex {
namespace {

constexpr std::size_t kMpeg2PackSize = 14;  // bytes before the stuffing
constexpr std::size_t kMpeg1PackSize = 12;
constexpr std::uint32_t kStampedSize = 192;
constexpr std::size_t kStamp = kStampedSize - kTransportPacketSize;
constexpr std::int64_t kPackSearch = 64 << 10;  // bytes

GMpegContainer PackKind(GBytes bytes)
{
    if (bytes.size() < 5 || !HasStartCode(bytes) || bytes[3] != mpeg_code::kPack)
        return GMpegContainer::Unknown;
    if ((bytes[4] & 0xC0) == 0x40)
        return GMpegContainer::Mpeg2Program;
    return (bytes[4] & 0xF0) == 0x20 ? GMpegContainer::Mpeg1Program : GMpegContainer::Unknown;
}

// `sync`: where the first sync byte is.
GMpegLayout TransportAt(std::size_t sync, std::uint32_t packetSize)
{
    GMpegLayout layout;
    layout.containerType = packetSize == kStampedSize ? GMpegContainer::Transport192 : GMpegContainer::Transport188;
    layout.packetSize = packetSize;
    layout.origin = static_cast<std::int64_t>(sync);
    if (packetSize == kStampedSize)
        layout.origin += sync < kStamp ? std::int64_t{kTransportPacketSize} : -std::int64_t{kStamp};
    return layout;
}

GMpegLayout FindTransport(GBytes start)
{
    const auto syncs = [start](std::size_t at, std::uint32_t packetSize) {
        return at + packetSize < start.size() && start[at] == kTransportSync &&
               start[at + packetSize] == kTransportSync;
    };
    for (std::size_t at = 0; at < kMpegDetectBytes; ++at) {
        for (const std::uint32_t packetSize : {std::uint32_t{kTransportPacketSize}, kStampedSize})
            if (syncs(at, packetSize))
                return TransportAt(at, packetSize);
    }
    return {};
}

}  // namespace

GMpegLayout DetectMpegLayout(GScanWindow& window)
{
    const GBytes start = window.At(0, kMpegDetectBytes);
    if (start.size() < kMpegDetectBytes)
        return {};
    if (start[0] == kTransportSync && start[kTransportPacketSize] == kTransportSync)
        return TransportAt(0, kTransportPacketSize);
    if (start[kStamp] == kTransportSync && start[kStamp + kStampedSize] == kTransportSync)
        return TransportAt(kStamp, kStampedSize);
    GMpegLayout layout;
    layout.containerType = PackKind(start);
    if (layout.containerType != GMpegContainer::Unknown)
        return layout;
    layout = FindTransport(window.At(0, kMpegDetectBytes + kStampedSize));
    if (layout.containerType != GMpegContainer::Unknown)
        return layout;
    const GScanResult pack =
        window.FindForward(0, kPackSearch, 5, [](GBytes bytes) { return PackKind(bytes) != GMpegContainer::Unknown; });
    if (pack.Found()) {
        layout.containerType = PackKind(window.At(pack.position, 5));
        layout.origin = pack.position;
    }
    return layout;
}

bool GTransportWalker::Resync(std::int64_t until)
{
    const std::size_t next = syncOffset + packetSize;
    const GScanResult result = window.FindForward(position + 1, until, next + 1, [&](GBytes bytes) {
        return bytes.size() > syncOffset && bytes[syncOffset] == kTransportSync &&
               (bytes.size() <= next || bytes[next] == kTransportSync);
    });
    if (result.end != GScanEnd::Interrupted)
        position = result.Found() ? result.position : std::max(until, position + 1);
    return result.Found();
}

GMpegStep GProgramWalker::Peek(std::int64_t at, GProgramUnit& unit)
{
    const GBytes bytes = window.At(at, kMpeg2PackSize);
    if (bytes.size() < 4)
        return GMpegStep::End;
    if (!HasStartCode(bytes) || bytes[3] < mpeg_code::kEnd)
        return GMpegStep::Lost;
    GByteReader reader(bytes);
    reader.Skip(4);
    unit.code = bytes[3];
    unit.position = at;
    if (unit.code == mpeg_code::kEnd) {
        unit.size = 4;
    } else if (unit.code == mpeg_code::kPack) {
        const GMpegContainer kind = PackKind(bytes);
        if (kind == GMpegContainer::Mpeg2Program)
            unit.size = bytes.size() < kMpeg2PackSize ? kMpeg2PackSize : kMpeg2PackSize + (bytes[13] & 7u);
        else if (kind == GMpegContainer::Mpeg1Program)
            unit.size = kMpeg1PackSize;
        else
            return bytes.size() < 5 ? GMpegStep::End : GMpegStep::Lost;
    } else {
        unit.size = kPesPrefixSize + reader.U16BE();
        if (!reader.Ok())
            return GMpegStep::End;
    }
    return GMpegStep::Unit;
}

GMpegStep GProgramWalker::Next(GProgramUnit& unit)
{
    const GMpegStep step = Peek(position, unit);
    if (step == GMpegStep::Unit)
        position += static_cast<std::int64_t>(unit.size);
    return step;
}

bool GProgramWalker::Resync(std::int64_t until)
{
    for (std::int64_t from = position + 1; from < until;) {
        const GScanResult result = window.FindForward(
            from, until, 4, [](GBytes bytes) { return HasStartCode(bytes) && bytes[3] >= mpeg_code::kEnd; });
        if (result.end == GScanEnd::Interrupted)
            return false;
        if (!result.Found())
            break;
        GProgramUnit unit;
        GProgramUnit next;
        from = result.position + 1;
        if (Peek(result.position, unit) != GMpegStep::Unit)
            continue;
        if (Peek(result.position + static_cast<std::int64_t>(unit.size), next) == GMpegStep::Lost)
            continue;
        position = result.position;
        return true;
    }
    position = std::max(until, position + 1);
    return false;
}

}  // namespace vex
