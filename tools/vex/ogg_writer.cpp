#include "tools/vex/ogg_writer.h"

#include <algorithm>
#include <array>

namespace vex {

namespace {

constexpr std::uint32_t kSerialNumber = 1;
constexpr std::size_t kHeaderBytes = 27;
constexpr std::size_t kChecksumOffset = 22;

constexpr std::uint8_t kContinuedPage = 1;
constexpr std::uint8_t kFirstPage = 2;
constexpr std::uint8_t kLastPage = 4;

// CRC-32 with the polynomial 0x04C11DB7, most significant bit first, no inversion.
constexpr auto kChecksumTable = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t value = i << 24;
        for (int bit = 0; bit < 8; ++bit)
            value = value << 1 ^ (value & 0x80000000u ? 0x04C11DB7u : 0);
        table[i] = value;
    }
    return table;
}();

std::uint32_t Checksum(std::span<const std::uint8_t> bytes, std::uint32_t value)
{
    for (const std::uint8_t byte : bytes)
        value = value << 8 ^ kChecksumTable[(value >> 24 ^ byte) & 0xFF];
    return value;
}

void PutLE(std::span<std::uint8_t> target, std::uint64_t value)
{
    for (std::uint8_t& byte : target) {
        byte = static_cast<std::uint8_t>(value);
        value >>= 8;
    }
}

}  // namespace

void GOggWriter::AddSegment(std::span<const std::uint8_t> bytes, const GByteSink& out)
{
    if (segments.size() == kMostSegments) {
        EndPage(GLast::No, out);
        continued = true;
    }
    segments.push_back(static_cast<std::uint8_t>(bytes.size()));
    body.insert(body.end(), bytes.begin(), bytes.end());
}

void GOggWriter::Packet(std::span<const std::uint8_t> bytes, std::int64_t granule, const GByteSink& out)
{
    if (segments.size() == kMostSegments || body.size() >= kPageBytes)
        EndPage(GLast::No, out);
    // A segment of fewer than 255 bytes, if need be an empty one, ends the packet.
    for (;;) {
        const std::size_t size = std::min<std::size_t>(bytes.size(), 255);
        AddSegment(bytes.first(size), out);
        bytes = bytes.subspan(size);
        if (size < 255)
            break;
    }
    pageGranule = granule;
}

void GOggWriter::EndPage(GLast last, const GByteSink& out)
{
    if (segments.empty())
        return;
    std::array<std::uint8_t, kHeaderBytes> header{'O', 'g', 'g', 'S', 0};
    header[5] = static_cast<std::uint8_t>((continued ? kContinuedPage : 0) | (pageNumber == 0 ? kFirstPage : 0) |
                                          (last == GLast::Yes ? kLastPage : 0));
    const std::span<std::uint8_t> fields(header);
    PutLE(fields.subspan(6, 8), static_cast<std::uint64_t>(pageGranule));
    PutLE(fields.subspan(14, 4), kSerialNumber);
    PutLE(fields.subspan(18, 4), pageNumber++);
    header[26] = static_cast<std::uint8_t>(segments.size());
    PutLE(fields.subspan(kChecksumOffset, 4), Checksum(body, Checksum(segments, Checksum(header, 0))));
    out(header);
    out(segments);
    out(body);
    segments.clear();
    body.clear();
    pageGranule = kNoGranule;
    continued = false;
}

}  // namespace vex
