#include "support/ogg_builder.h"

#include <ogg/ogg.h>

namespace vex::test {
namespace {

template <class T>
void PutLE(GOggBytes& bytes, T value)
{
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> 8 * i));
}

GOggBytes Comments(GOggBytes head, const std::vector<std::string>& comments)
{
    PutLE(head, std::uint32_t{0});  // vendor
    PutLE(head, static_cast<std::uint32_t>(comments.size()));
    for (const std::string& comment : comments) {
        PutLE(head, static_cast<std::uint32_t>(comment.size()));
        Append(head, Text(comment));
    }
    return head;
}

// The smallest setup header that libvorbis takes: one of each, and a mode for each block size (Vorbis I, 4.2.4).
GOggBytes VorbisSetup(bool hugeBook)
{
    oggpack_buffer bits;
    oggpack_writeinit(&bits);
    const auto put = [&](unsigned long value, int count) { oggpack_write(&bits, value, count); };
    for (const char c : std::string("\x05vorbis"))
        put(static_cast<std::uint8_t>(c), 8);
    put(0, 8);
    put(0x564342, 24);
    put(1, 16);
    put(hugeBook ? 1ul << 22 : 2, 24);
    if (hugeBook) {  // all words have 23 bits
        put(1, 1);
        put(22, 5);
        put(1ul << 22, 23);
    } else {  // two words of a bit
        put(0, 2 + 10);
    }
    put(0, 4);
    put(0, 6 + 16);  // a time domain transform
    put(0, 6);       // a floor of type 1 without partitions
    for (const auto& [value, count] : {std::pair{1ul, 16}, {0ul, 5}, {0ul, 2}, {4ul, 4}})
        put(value, count);
    put(0, 6 + 16);  // a residue of type 0
    put(0, 24);
    put(0, 24);
    put(0, 24);
    put(0, 6 + 8 + 4);
    put(0, 6 + 16);  // a mapping of one submap
    put(0, 4 + 24);
    put(1, 6);  // two modes
    for (const unsigned long block : {0ul, 1ul}) {
        put(block, 1);
        put(0, 32);
        put(0, 8);
    }
    put(1, 1);
    const GOggBytes packet(bits.buffer, bits.buffer + oggpack_bytes(&bits));
    oggpack_writeclear(&bits);
    return packet;
}

}  // namespace

GOggBytes Page(const GOggTestPage& page)
{
    GOggBytes lacing;
    GOggBytes body;
    for (const GOggBytes& packet : page.packets) {
        lacing.insert(lacing.end(), packet.size() / 255, 255);
        if (!page.open || &packet != &page.packets.back())
            lacing.push_back(static_cast<std::uint8_t>(packet.size() % 255));
        Append(body, packet);
    }
    GOggBytes header{'O', 'g', 'g', 'S', 0};
    header.push_back(static_cast<std::uint8_t>((page.continued ? 1 : 0) | (page.begins ? 2 : 0) | (page.ends ? 4 : 0)));
    PutLE(header, page.granule);
    PutLE(header, page.serial);
    PutLE(header, page.number);
    PutLE(header, std::uint32_t{0});
    header.push_back(static_cast<std::uint8_t>(lacing.size()));
    Append(header, lacing);
    ogg_page raw{header.data(), static_cast<long>(header.size()), body.data(), static_cast<long>(body.size())};
    ogg_page_checksum_set(&raw);
    Append(header, body);
    return header;
}

GOggBytes CommentHeader(const std::vector<std::string>& comments)
{
    GOggBytes head{3};
    Append(head, Text("vorbis"));
    head = Comments(head, comments);
    head.push_back(1);
    return head;
}

std::vector<GOggBytes> TheoraHeaders(const GTheoraTestHeader& header, const std::vector<std::string>& comments)
{
    std::vector<GOggBytes> headers{{0x80}, {0x81}, {0x82}};
    for (GOggBytes& packet : headers)
        Append(packet, Text("theora"));
    GOggBytes& id = headers[0];
    Append(id, BigEndian(header.version, 3));
    Append(id, BigEndian((header.width + 15) / 16, 2));
    Append(id, BigEndian((header.height + 15) / 16, 2));
    Append(id, BigEndian(header.width, 3));
    Append(id, BigEndian(header.height, 3));
    Append(id, BigEndian(0, 2));
    Append(id, BigEndian(header.rateNumerator, 4));
    Append(id, BigEndian(header.rateDenominator, 4));
    Append(id, BigEndian(0, 3));
    Append(id, BigEndian(0, 3));
    Append(id, BigEndian(0, 1));
    Append(id, BigEndian(0, 3));
    Append(id, BigEndian(header.granuleShift << 5, 2));
    headers[1] = Comments(headers[1], comments);
    return headers;
}

std::vector<GOggBytes> VorbisHeaders(std::uint32_t rate, const std::vector<std::string>& comments, bool hugeBook)
{
    GOggBytes id{1};
    Append(id, Text("vorbis"));
    PutLE(id, std::uint32_t{0});
    id.push_back(2);
    PutLE(id, rate);
    for (const std::uint32_t bitRate : {300'000u, 200'000u, 100'000u})  // upper, nominal, lower
        PutLE(id, bitRate);
    id.push_back(0xB8);  // 2^8 and 2^11 samples
    id.push_back(1);
    return {id, CommentHeader(comments), VorbisSetup(hugeBook)};
}

GOggBytes OgmHeader(const GOgmTestHeader& header)
{
    GOggBytes packet{1};
    Append(packet, Text(header.type));
    packet.resize(9);
    Append(packet, Text(header.subtype));
    packet.resize(13);
    PutLE(packet, header.size);
    PutLE(packet, header.timeUnit);
    PutLE(packet, header.samplesPerUnit);
    PutLE(packet, header.defaultLength);
    PutLE(packet, header.bufferSize);
    PutLE(packet, header.bits);
    PutLE(packet, std::uint16_t{0});
    PutLE(packet, header.tail);
    PutLE(packet, std::uint32_t{0});
    Append(packet, header.extra);
    return packet;
}

GOggBytes HeaderPages(std::uint32_t serial, const std::vector<GOggBytes>& headers)
{
    GOggBytes pages = Page({.serial = serial, .packets = {headers[0]}, .begins = true});
    if (headers.size() > 1)
        pages = Join({pages, Page({.serial = serial, .number = 1, .packets = {headers.begin() + 1, headers.end()}})});
    return pages;
}

GOggBytes TheoraPage(unsigned frame, std::size_t size)
{
    GOggBytes packet(size, static_cast<std::uint8_t>(frame));
    packet[0] = frame % 8 == 0 ? 0x00 : 0x40;
    const std::int64_t granule = std::int64_t{frame / 8 * 8 + 1} << 6 | frame % 8;
    return Page({.number = frame + 2, .granule = granule, .packets = {packet}});
}

GOggBytes VorbisPage(unsigned page, unsigned perPage, std::size_t packetSize, std::uint32_t serial)
{
    GOggBytes packet(packetSize, static_cast<std::uint8_t>(page));
    packet[0] = 0x02;
    return Page({.serial = serial,
                 .number = page + 2,
                 .granule = std::int64_t{1024} * perPage * (page + 1),
                 .packets = std::vector<GOggBytes>(perPage, packet)});
}

GOggBytes TheoraFile(unsigned frames, std::size_t frameSize, bool sound)
{
    GOggBytes file = HeaderPages(1, TheoraHeaders());
    if (sound)
        file = Join({file, HeaderPages(2, VorbisHeaders(25'600))});  // a long block lasts as long as a frame
    for (unsigned frame = 0; frame < frames; ++frame) {
        const GOggBytes page = TheoraPage(frame, frameSize);
        Append(file, page);
        if (!sound)
            continue;
        const GOggBytes audio = VorbisPage(frame, 1, 60, 2);
        Append(file, audio);
    }
    return file;
}

GOggBytes VorbisFile(unsigned pages, unsigned perPage, std::size_t packetSize)
{
    GOggBytes file = HeaderPages(1, VorbisHeaders(48'000));
    for (unsigned page = 0; page < pages; ++page) {
        const GOggBytes bytes = VorbisPage(page, perPage, packetSize);
        Append(file, bytes);
    }
    return file;
}

}  // namespace vex::test
