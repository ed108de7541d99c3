#include "support/mpeg_builder.h"

#include <algorithm>

#include "support/bit_writer.h"

namespace vex::test {
namespace {

GMpegBytes Padded(GMpegBytes head, std::size_t more, std::uint8_t mark)
{
    head.resize(head.size() + more, mark);
    return head;
}

void Pts(GMpegBytes& out, std::uint64_t pts)
{
    Append(out, BigEndian(0x21 | (pts >> 29 & 0x0E), 1));
    Append(out, BigEndian((pts >> 14 & 0xFFFE) | 1, 2));
    Append(out, BigEndian((pts << 1 & 0xFFFE) | 1, 2));
}

// 320 x 240, 4:3, 25 fps, 400,000 bit/s.
const GMpegBytes kSequence{0, 0, 1, 0xB3, 0x14, 0x00, 0xF0, 0x23, 0x00, 0xFA, 0x20, 0x00};
const GMpegBytes kExtension{0, 0, 1, 0xB5, 0x14, 0x8A, 0x00, 0x01, 0x00, 0x00};  // Main@Main
const GMpegBytes kPicture{0, 0, 1, 0x00, 0x00, 0x0F, 0xFF, 0xF8, 0, 0, 1, 0x01};

const GMpegBytes kAvcSets{0,    0,    0,    1,    9,    0x10, 0,    0,    0,    1,    0x67, 0x42, 0xC0,
                          0x0A, 0xDA, 0x11, 0xEC, 4,    0x40, 0x00, 0x00, 0x03, 0x00, 0x40, 0x00, 0x00,
                          0x0C, 0x83, 0xC4, 0x89, 0xA8, 0,    0,    0,    1,    0x68, 0xCE, 0x0F, 0xC8};

}  // namespace

GMpegBytes MpegVideo(std::uint8_t mark, bool key, std::size_t size)
{
    return Padded(key ? Join({kSequence, kExtension, kPicture}) : kPicture, size, mark);
}

GMpegBytes Mpeg1Video(std::uint8_t mark) { return Padded(Join({kSequence, kPicture}), 40, mark); }

GMpegBytes AvcVideo(std::uint8_t mark, bool key, std::size_t size)
{
    const GMpegBytes slice{0, 0, 0, 1, static_cast<std::uint8_t>(key ? 0x65 : 0x41), 0x88};
    return Padded(key ? Join({kAvcSets, slice}) : slice, size, mark);
}

GMpegBytes AvcVideo1088()
{
    BitWriter set;
    set.U(0x67, 8).U(77, 8).U(0, 8).U(40, 8).Ue(0).Ue(0).Ue(2).Ue(1).U(0, 1);
    set.Ue(119).Ue(67).U(1, 1).U(1, 1).U(0, 1);               // 120 x 68 macroblocks
    set.U(1, 1).U(1, 1).U(255, 8).U(4, 16).U(3, 16).U(0, 3);  // samples of 4:3
    set.U(1, 1).U(1001, 32).U(60000, 32).U(1, 1).U(0, 4);     // 29.97 fps
    return Padded(Join({{0, 0, 1}, set.Done(), {0, 0, 1, 0x68, 0xCE, 0x0F, 0xC8, 0, 0, 1, 0x65}}), 40, 1);
}

GMpegBytes Vc1Video(std::uint8_t mark)
{
    BitWriter sequence;
    sequence.U(0x10F, 32).U(3, 2).U(3, 3).U(1, 2).U(0, 3).U(0, 5).U(0, 1).U(959, 12).U(539, 12).U(0, 6).U(1, 1);
    sequence.U(1919, 14).U(1079, 14).U(0, 1).U(1, 1).U(0, 1).U(1, 8).U(2, 4).U(0, 2);
    const GMpegBytes entry{0, 0, 1, 0x0E, 0x40, 0x80};
    return Padded(Join({sequence.Done(), entry, {0, 0, 1, 0x0D}}), 40, mark);
}

GMpegBytes Ac3Frame(std::uint8_t mark, std::uint8_t frmsizecod)
{
    return Padded({0x0B, 0x77, 0, 0, frmsizecod, 0x40, 0xE1}, 1785, mark);
}

GMpegBytes DtsFrame(std::uint8_t mark)
{
    BitWriter bits;
    bits.U(0x7FFE8001, 32).U(1, 1).U(31, 5).U(0, 1).U(15, 7).U(1005, 14).U(9, 6).U(13, 4).U(24, 5);
    return Padded(bits.Filled(), 996, mark);
}

GMpegBytes SubStream(std::uint8_t number, const GMpegBytes& frame) { return Join({{number, 1, 0, 1}, frame}); }

GMpegBytes Lpcm(std::uint8_t number, unsigned quantisation, unsigned channels, std::size_t size)
{
    const auto format = static_cast<std::uint8_t>(quantisation << 6 | (channels - 1));
    return Padded({number, 1, 0, 4, 0, format, 0x80}, size, 7);
}

GMpegBytes Pes(std::uint8_t streamId, std::optional<std::uint64_t> pts, const GMpegBytes& payload, const GPesLies& lies)
{
    GMpegBytes header;
    if (lies.mpeg1) {
        header.resize(lies.stuffing, 0xFF);
        if (pts)
            Pts(header, *pts);
        else
            header.push_back(0x0F);
    } else {
        GMpegBytes fields;
        if (pts)
            Pts(fields, *pts);
        if (lies.extension)
            Append(fields, {0x01, 0x81, *lies.extension});
        fields.resize(fields.size() + lies.stuffing, 0xFF);
        const auto flags = static_cast<std::uint8_t>((pts ? 0x80 : 0) | (lies.extension ? 1 : 0));
        header = {0x80, flags, static_cast<std::uint8_t>(fields.size())};
        Append(header, fields);
    }
    GMpegBytes packet{0, 0, 1, streamId};
    const std::size_t length =
        lies.unbounded ? 0 : lies.length.value_or(static_cast<std::uint16_t>(header.size() + payload.size()));
    Append(packet, BigEndian(length, 2));
    return Join({packet, header, payload});
}

GTsBuilder& GTsBuilder::Packet(std::uint16_t pid, bool begins, GMpegBytes payload, std::uint8_t flags)
{
    bytes.resize(bytes.size() + packetSize - 188, 0x11);
    const std::size_t left = 184 - payload.size();
    bytes.push_back(0x47);
    Append(bytes, BigEndian((flags & 0x80u) << 8 | (begins ? 0x4000u : 0u) | pid, 2));
    bytes.push_back(static_cast<std::uint8_t>((left > 0 ? 0x30 : 0x10) | (flags & 0x0F) << 4));
    if (left > 0) {
        bytes.push_back(static_cast<std::uint8_t>(left - 1));
        GMpegBytes field(left - 1, 0xFF);
        if (!field.empty())
            field[0] = 0;
        Append(bytes, field);
    }
    Append(bytes, payload);
    return *this;
}

GTsBuilder& GTsBuilder::Payload(std::uint16_t pid, const GMpegBytes& data, std::size_t piece)
{
    for (std::size_t at = 0; at < data.size(); at += piece) {
        const auto from = data.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t count = std::min(piece, data.size() - at);
        Packet(pid, at == 0, {from, from + static_cast<std::ptrdiff_t>(count)});
    }
    return *this;
}

GTsBuilder& GTsBuilder::Section(std::uint16_t pid, std::uint8_t table, const GMpegBytes& body,
                                std::optional<unsigned> length)
{
    GMpegBytes section{0, table};  // behind the pointer
    Append(section, BigEndian(0xB000u | length.value_or(static_cast<unsigned>(body.size() + 4)), 2));
    section = Join({section, body, {0, 0, 0, 0}});
    return Payload(pid, section);
}

GTsBuilder& GTsBuilder::Association(const std::map<std::uint16_t, std::uint16_t>& programs)
{
    GMpegBytes body{0, 1, 0xC1, 0, 0};
    for (const auto& [program, pid] : programs) {
        Append(body, BigEndian(program, 2));
        Append(body, BigEndian(0xE000u | pid, 2));
    }
    return Section(0, 0, body);
}

GTsBuilder& GTsBuilder::Map(std::uint16_t pid, const std::vector<GMapEntry>& entries)
{
    GMpegBytes body{0, 1, 0xC1, 0, 0, 0xE1, 0x00, 0xF0, 0x00};
    for (const GMapEntry& entry : entries) {
        GMpegBytes descriptors;
        if (entry.tag != 0)
            descriptors = {entry.tag, 1, 0};
        if (!entry.language.empty())
            descriptors = Join({descriptors, {0x0A, 4}, Text(entry.language), {0}});
        body.push_back(entry.type);
        Append(body, BigEndian(0xE000u | entry.pid, 2));
        Append(body, BigEndian(0xF000u | descriptors.size(), 2));
        Append(body, descriptors);
    }
    return Section(pid, 2, body);
}

GTsBuilder& GTsBuilder::Raw(const GMpegBytes& more)
{
    Append(bytes, more);
    return *this;
}

GPsBuilder& GPsBuilder::Pack(unsigned stuffing)
{
    if (mpeg1)
        return Raw({0, 0, 1, 0xBA, 0x21, 0, 1, 0, 1, 0x80, 0, 1});
    Raw({0, 0, 1, 0xBA, 0x44, 0, 4, 0, 4, 1, 0, 0, 3, static_cast<std::uint8_t>(0xF8 | stuffing)});
    bytes.resize(bytes.size() + stuffing, 0xFF);
    return *this;
}

GPsBuilder& GPsBuilder::Add(std::uint8_t streamId, std::optional<std::uint64_t> pts, const GMpegBytes& payload,
                            GPesLies lies)
{
    lies.mpeg1 = lies.mpeg1 || mpeg1;
    return Raw(Pes(streamId, pts, payload, lies));
}

GPsBuilder& GPsBuilder::Navigation(std::uint16_t vob, std::uint32_t startPts, std::uint32_t endPts)
{
    GMpegBytes packet{0, 0, 1, 0xBF, 0x03, 0xFA, 1};
    packet.resize(31);
    Append(packet, BigEndian(vob, 2));
    packet.resize(51);
    Append(packet, BigEndian(startPts, 4));
    Append(packet, BigEndian(endPts, 4));
    packet.resize(0x3FA + 6);
    return Raw(packet);
}

GPsBuilder& GPsBuilder::Raw(const GMpegBytes& more)
{
    Append(bytes, more);
    return *this;
}

GTsBuilder TransportFilm(unsigned pictures, std::uint64_t first, std::size_t packetSize, std::size_t size)
{
    GTsBuilder film{.bytes = {}, .packetSize = packetSize};
    film.Association({{1, 0x1000}}).Map(0x1000, {{0x1B, kVideoPid}, {0x03, kAudioPid, "ger"}});
    for (unsigned i = 0; i < pictures; ++i) {
        const auto mark = static_cast<std::uint8_t>(i + 1);
        const std::uint64_t pts = first + kFrame * i;
        film.Payload(kVideoPid, Pes(0xE0, pts, AvcVideo(mark, i % 5 == 0, size), {.unbounded = true}));
        film.Payload(kAudioPid, Pes(0xC0, pts, MpegFrame(mark, 0xFFFD8400, 384)));
    }
    return film;
}

GPsBuilder ProgramFilm(unsigned pictures, bool mpeg1, std::uint64_t first, std::size_t size)
{
    GPsBuilder film{.bytes = {}, .mpeg1 = mpeg1};
    for (unsigned i = 0; i < pictures; ++i) {
        const auto mark = static_cast<std::uint8_t>(i + 1);
        const std::uint64_t pts = first + kFrame * i;
        film.Pack().Add(0xE0, pts, MpegVideo(mark, i % 5 == 0, size));
        film.Pack().Add(0xBD, pts, SubStream(0x80, Ac3Frame(mark)));
    }
    return film;
}

}  // namespace vex::test
