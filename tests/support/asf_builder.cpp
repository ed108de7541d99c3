#include "support/asf_builder.h"

#include <algorithm>
#include <iterator>

namespace vex::test {
namespace {

unsigned Width(unsigned lengthType) { return lengthType == 3 ? 4 : lengthType; }

}  // namespace

GAsfBytes& GAsfBytes::Number(std::uint64_t value, unsigned count)
{
    for (unsigned i = 0; i < count; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
    return *this;
}

GAsfBytes& GAsfBytes::Raw(const std::vector<std::uint8_t>& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
}

GAsfBytes& GAsfBytes::Id(GAsfId id)
{
    const auto row = std::ranges::find(kAsfIds, id, &GAsfIdRow::id);
    const GUID guid = row != std::end(kAsfIds) ? row->guid : GUID{};
    return Number(guid.Data1, 4).Number(guid.Data2, 2).Number(guid.Data3, 2).Raw({guid.Data4, guid.Data4 + 8});
}

GAsfBytes& GAsfBytes::Object(GAsfId id, const GAsfBytes& body, std::optional<std::uint64_t> size)
{
    return Id(id).Number(size.value_or(24 + body.Size()), 8).Raw(body.bytes);
}

GAsfBytes StreamProperties(const GAsfTestStream& stream)
{
    GAsfBytes format;
    if (stream.video) {
        format.Number(64, 4).Number(48, 4).Number(2, 1).Number(44, 2).Number(44, 4).Number(64, 4).Number(48, 4);
        format.Number(1, 2).Number(24, 2).Raw({'W', 'M', 'V', '2'}).Zeros(20).Raw({1, 2, 3, 4});
    } else {
        format.Number(1, 2).Number(1, 2).Number(8'000, 4).Number(stream.bytesPerSecond, 4).Number(1, 2).Number(8, 2);
        format.Number(0, 2);
    }
    GAsfBytes body;
    body.Id(stream.video ? GAsfId::VideoMedia : GAsfId::AudioMedia);
    body.Id(stream.spread.empty() ? GAsfId::Unknown : GAsfId::AudioSpread).Number(stream.timeOffset, 8);
    body.Number(format.Size(), 4).Number(stream.spread.size(), 4);
    body.Number(stream.number | (stream.encrypted ? 0x8000u : 0u), 2).Number(0, 4);
    return body.Raw(format.bytes).Raw(stream.spread);
}

GAsfBytes ExtendedStream(std::uint16_t number, std::uint32_t bitRate, std::uint16_t language, const GAsfBytes& embedded)
{
    GAsfBytes body;
    body.Zeros(16).Number(bitRate, 4).Zeros(28).Number(number, 2).Number(language, 2).Number(400'000, 8);
    body.Number(1, 2).Number(1, 2);                                         // names, extensions
    body.Number(0, 2).Number(2, 2).Raw({'x', 0});                           // a name
    return body.Zeros(18).Number(3, 4).Raw({1, 2, 3}).Raw(embedded.bytes);  // an extension
}

GAsfBytes LanguageList(const std::vector<std::string>& codes)
{
    GAsfBytes body;
    body.Number(codes.size(), 2);
    for (const std::string& code : codes) {
        body.Number(2 * code.size() + 2, 1);
        for (const char letter : code)
            body.Number(static_cast<std::uint8_t>(letter), 2);
        body.Number(0, 2);
    }
    return body;
}

GAsfBytes Numbers(const std::vector<std::uint16_t>& numbers)
{
    GAsfBytes body;
    body.Number(numbers.size(), 2);
    for (const std::uint16_t number : numbers)
        body.Number(number, 2);
    return body;
}

GAsfBytes GAsfTestFile::Header() const
{
    GAsfBytes properties;
    properties.Zeros(16 + 8 + 8 + 8).Number(playDurationMs * 10'000, 8).Zeros(8).Number(prerollMs, 8);
    properties.Number(flags, 4).Number(packetSize, 4).Number(packetSize, 4).Number(100'000, 4);
    GAsfBytes body;
    body.Number(4, 4).Number(1, 1).Number(2, 1).Object(GAsfId::FileProperties, properties);
    for (const GAsfTestStream& stream : streams)
        body.Object(GAsfId::StreamProperties, StreamProperties(stream));
    body.Raw(children.bytes);
    if (extension.Size() > 0)
        body.Object(GAsfId::HeaderExtension, GAsfBytes().Zeros(18).Number(extension.Size(), 4).Raw(extension.bytes));
    return GAsfBytes().Object(GAsfId::Header, body, headerSize);
}

std::vector<std::uint8_t> GAsfTestFile::Bytes() const
{
    const GAsfBytes body = GAsfBytes().Zeros(16 + 8 + 2).Raw(packets.bytes);
    return Header().Object(GAsfId::Data, body, dataSize).Raw(behindData.bytes).bytes;
}

std::int64_t GAsfTestFile::DataStart() const { return static_cast<std::int64_t>(Header().Size()) + 50; }

GAsfTestPayload Whole(std::uint8_t stream, std::uint32_t timeMs, std::vector<std::uint8_t> data, bool key)
{
    const auto size = static_cast<std::uint32_t>(data.size());
    return {.stream = stream, .key = key, .timeMs = timeMs, .objectSize = size, .data = std::move(data)};
}

GAsfBytes Packet(const std::vector<GAsfTestPayload>& payloads, std::uint32_t size, const GAsfPacketShape& shape)
{
    GAsfBytes inner;
    for (const GAsfTestPayload& payload : payloads) {
        inner.Number(payload.stream | (payload.key ? 0x80u : 0u), 1).Number(0, Width(shape.objectType));
        inner.Number(payload.replicated == 1 ? payload.timeMs : payload.offset, Width(shape.offsetType));
        inner.Number(payload.replicated, Width(shape.replicatedType));
        if (payload.replicated == 1)
            inner.Number(payload.deltaMs, 1);
        else if (payload.replicated >= 8)
            inner.Number(payload.objectSize, 4).Number(payload.timeMs, 4).Zeros(payload.replicated - 8u);
        else
            inner.Zeros(payload.replicated);
        if (shape.multiple)
            inner.Number(payload.data.size(), Width(shape.payloadType));
        inner.Raw(payload.data);
    }
    const unsigned header = (shape.correction ? 3u : 0u) + 2 + Width(shape.packetType) + Width(shape.sequenceType) +
                            Width(shape.paddingType) + 6 + (shape.multiple ? 1u : 0u);
    const std::size_t used = header + inner.Size();
    const std::size_t padding = used < size ? size - used : 0;
    GAsfBytes packet;
    if (shape.correction)
        packet.Raw({0x82, 0, 0});
    packet.Number((shape.multiple ? 1u : 0u) | shape.sequenceType << 1 | shape.paddingType << 3 | shape.packetType << 5,
                  1);
    packet.Number(shape.replicatedType | shape.offsetType << 2 | shape.objectType << 4 | 1u << 6, 1);
    packet.Number(size, Width(shape.packetType)).Number(7, Width(shape.sequenceType));
    packet.Number(padding, Width(shape.paddingType)).Zeros(6);
    if (shape.multiple)
        packet.Number(payloads.size() | shape.payloadType << 6, 1);
    return packet.Raw(inner.bytes).Zeros(padding);
}

GAsfBytes SimpleIndex(std::uint64_t interval, const std::vector<std::uint32_t>& packets)
{
    GAsfBytes body;
    body.Zeros(16).Number(interval, 8).Number(1, 4).Number(packets.size(), 4);
    for (const std::uint32_t packet : packets)
        body.Number(packet, 4).Number(1, 2);
    return GAsfBytes().Object(GAsfId::SimpleIndex, body);
}

GAsfTestFile AsfFilm(unsigned pictures, unsigned group)
{
    GAsfTestFile file;
    file.playDurationMs = file.prerollMs + 40 * pictures;
    std::vector<std::uint32_t> entries;
    for (unsigned i = 0; i < pictures; ++i) {
        const auto timeMs = static_cast<std::uint32_t>(file.prerollMs + 40 * i);
        const auto fill = static_cast<std::uint8_t>(i);
        for (; entries.size() * 1'000 <= timeMs;)
            entries.push_back(i / group * group);
        file.packets.Raw(Packet({Whole(2, timeMs, std::vector<std::uint8_t>(20, fill), i % group == 0),
                                 Whole(1, timeMs, std::vector<std::uint8_t>(10, fill))})
                             .bytes);
    }
    file.behindData = SimpleIndex(10'000'000, entries);
    return file;
}

GAsfTestFile AsfEverything()
{
    using GData = std::vector<std::uint8_t>;
    GAsfTestFile file = AsfFilm(8, 3);
    file.streams = {{.number = 1, .spread = {2, 5, 0, 2, 0, 1, 0, 0}}, {.number = 2, .video = true}, {.number = 3}};
    file.extension.Object(GAsfId::LanguageList, LanguageList({"de", "en"}))
        .Object(GAsfId::ExtendedStreamProperties, ExtendedStream(3, 5, 1))
        .Object(GAsfId::AdvancedMutualExclusion, GAsfBytes().Zeros(16).Raw(Numbers({1, 3}).bytes))
        .Object(GAsfId::GroupMutualExclusion, GAsfBytes().Zeros(16).Number(1, 2).Raw(Numbers({1}).bytes));
    file.children.Object(GAsfId::BitrateMutualExclusion, GAsfBytes().Zeros(16).Raw(Numbers({1}).bytes))
        .Object(GAsfId::StreamBitrateProperties, GAsfBytes().Number(1, 2).Number(1, 2).Number(9, 4));
    file.packets.Raw(
        Packet({{.stream = 3, .timeMs = 1'100, .data = {2, 1, 1, 1, 2}, .replicated = 1, .deltaMs = 9}}).bytes);
    file.packets.Raw(Packet({{.stream = 2, .timeMs = 1'200, .objectSize = 90, .data = GData(50, 1)}}).bytes);
    file.packets.Raw(
        Packet({{.stream = 2, .data = GData(40, 2), .replicated = 0}}, 100, {.multiple = false, .paddingType = 1})
            .bytes);
    return file;
}

}  // namespace vex::test
