#include "support/mp4_builder.h"

#include <algorithm>
#include <stdexcept>

namespace vex::test {

GMp4Bytes Big(std::uint64_t value, std::size_t width)
{
    GMp4Bytes bytes(width);
    for (std::size_t i = 0; i < width; ++i)
        bytes[width - 1 - i] = static_cast<std::uint8_t>(value >> 8 * i);
    return bytes;
}

GMp4Bytes Bigs(std::initializer_list<std::uint32_t> values)
{
    GMp4Bytes bytes;
    for (const std::uint32_t value : values)
        bytes = Glue({bytes, Big(value)});
    return bytes;
}

GMp4Bytes Glue(std::initializer_list<GMp4Bytes> parts)
{
    GMp4Bytes all;
    for (const GMp4Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

GMp4Bytes Box(std::string_view type, const GMp4Bytes& payload)
{
    return Glue({Big(payload.size() + 8), GMp4Bytes(type.begin(), type.end()), payload});
}

GMp4Bytes FullBox(std::string_view type, const GMp4Bytes& payload) { return Box(type, Glue({Big(0), payload})); }

std::size_t FindBox(const GMp4Bytes& file, std::string_view type, std::size_t which)
{
    auto at = file.begin();
    for (;; ++at) {
        at = std::search(at, file.end(), type.begin(), type.end());
        if (at == file.end())
            throw std::logic_error("no such box: " + std::string(type));
        if (which-- == 0)
            return static_cast<std::size_t>(at - file.begin()) - 4;
    }
}

void Put32(GMp4Bytes& file, std::size_t position, std::uint32_t value)
{
    std::ranges::copy(Big(value), file.begin() + static_cast<std::ptrdiff_t>(position));
}

GMp4Bytes Esds(std::uint8_t objectType, const GMp4Bytes& specific)
{
    const auto size = static_cast<std::uint8_t>(specific.size());
    const auto descriptor = [](std::uint8_t tag, const GMp4Bytes& body) {
        return Glue({{tag, 0x80, static_cast<std::uint8_t>(body.size())}, body});
    };
    const GMp4Bytes config = Glue({{objectType, 0x15, 0, 0, 0}, Big(128'000), Big(96'000), {5, size}, specific});
    return FullBox("esds", descriptor(3, Glue({{0, 1, 0}, descriptor(4, config), {6, 1, 2}})));
}

namespace {

GMp4Bytes SampleEntry(const GMp4TestTrack& track)
{
    const GMp4Bytes start = Glue({GMp4Bytes(6), Big(1, 2), Big(track.version, 2), GMp4Bytes(6)});
    GMp4Bytes fields;
    if (track.handler == "vide") {
        const auto& [width, height, depth] = track.picture;
        fields = Glue({Bigs({0, 0}), Big(width, 2), Big(height, 2), GMp4Bytes(46), Big(depth, 2), Big(0xFFFF, 2)});
    } else {
        const auto& [channels, bits, rate] = track.sound;
        fields = Glue({Big(channels, 2), Big(bits, 2), Big(0), Big(rate, 2), Big(0, 2)});
        for (const std::uint32_t value : track.packing)
            fields = track.version == 1 ? Glue({fields, Big(value)}) : fields;
    }
    return Box(track.entry, Glue({start, fields, track.children}));
}

// In place: a table may have many entries.
void Add(GMp4Bytes& body, std::uint32_t value)
{
    const GMp4Bytes bytes = Big(value);
    body.insert(body.end(), bytes.begin(), bytes.end());
}

template <class Entries>
GMp4Bytes Table(std::string_view type, const Entries& entries)
{
    GMp4Bytes body = Big(entries.size());
    for (const auto& entry : entries)
        for (const std::uint32_t value : entry)
            Add(body, value);
    return FullBox(type, body);
}

GMp4Bytes Numbers(std::string_view type, const std::vector<std::uint32_t>& numbers, const GMp4Bytes& before = {})
{
    GMp4Bytes body = Glue({before, Big(numbers.size())});
    for (const std::uint32_t number : numbers)
        Add(body, number);
    return FullBox(type, body);
}

}  // namespace

GMp4Bytes GMp4TestTrack::Trak(const std::vector<std::uint64_t>& offsets) const
{
    GMp4Bytes positions = Big(offsets.size());
    for (const std::uint64_t offset : offsets)
        positions = Glue({positions, Big(offset, co64 ? 8 : 4)});
    const GMp4Bytes stsz =
        constantSize != 0 ? FullBox("stsz", Bigs({constantSize, constantCount})) : Numbers("stsz", sizes, Big(0));
    const GMp4Bytes stbl = Box("stbl", Glue({FullBox("stsd", Glue({Big(1), SampleEntry(*this)})), Table("stts", stts),
                                             stss.empty() ? GMp4Bytes() : Numbers("stss", stss), Table("stsc", stsc),
                                             stsz, FullBox(co64 ? "co64" : "stco", positions)}));
    unsigned packed = 0;
    for (const char letter : language)
        packed = packed << 5 | (static_cast<unsigned>(letter) - 0x60u);
    const GMp4Bytes media = handler == "vide" ? FullBox("vmhd", GMp4Bytes(8)) : FullBox("smhd", GMp4Bytes(4));
    return Box(
        "trak",
        Glue({FullBox("tkhd", Glue({Bigs({0, 0, id, 0, duration}), GMp4Bytes(52), Bigs({32 << 16, 24 << 16})})),
              Box("mdia",
                  Glue({FullBox("mdhd", Glue({Bigs({0, 0, timescale, duration}), Big(packed, 2), Big(0, 2)})),
                        FullBox("hdlr", Glue({Big(0), GMp4Bytes(handler.begin(), handler.end()), GMp4Bytes(13)})),
                        Box("minf", Glue({media, stbl}))}))}));
}

std::pair<GMp4Bytes, GMp4Bytes> GMp4TestFile::DataAndMovie() const
{
    GMp4Bytes data;
    std::vector<std::vector<std::uint64_t>> offsets(tracks.size());
    bool more = true;
    for (std::size_t chunk = 0; std::exchange(more, false); ++chunk) {
        for (std::size_t i = 0; i < tracks.size(); ++i) {
            if (chunk >= tracks[i].chunks.size())
                continue;
            more = true;
            offsets[i].push_back(start.size() + 8 + data.size() - offsetsLess);
            data.insert(data.end(), tracks[i].chunks[chunk].begin(), tracks[i].chunks[chunk].end());
        }
    }
    GMp4Bytes movie = FullBox("mvhd", Glue({Bigs({0, 0, timescale, duration}), GMp4Bytes(80)}));
    for (std::size_t i = 0; i < tracks.size(); ++i)
        movie = Glue({movie, tracks[i].Trak(offsets[i])});
    return {Glue({start, Box("mdat", data)}), Box("moov", movie)};
}

GMp4Bytes GMp4TestFile::Build() const
{
    const auto [data, movie] = DataAndMovie();
    return Glue({data, movie});
}

GMp4Bytes HeaderFirst(GMp4TestFile file)
{
    const std::size_t at = file.start.size();
    file.start = Glue({file.start, file.DataAndMovie().second});
    auto [bytes, moved] = file.DataAndMovie();
    std::ranges::copy(moved, bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
}

GMp4TestTrack NumberedVideo(std::uint32_t count, std::uint32_t interval, std::uint32_t id)
{
    GMp4TestTrack track{.id = id, .duration = 40 * count, .stts = {{count, 40}}};
    for (std::uint32_t i = 0; i < count; ++i) {
        track.sizes.push_back(16 + i);
        track.chunks.emplace_back(16 + i, static_cast<std::uint8_t>(i + 1));
        if (interval > 1 && i % interval == 0)
            track.stss.push_back(i + 1);
    }
    return track;
}

GMp4TestTrack PcmSound(const std::vector<std::uint32_t>& chunkSamples, std::uint32_t id)
{
    GMp4TestTrack track{
        .id = id, .handler = "soun", .timescale = 44100, .entry = "twos", .stsc = {}, .constantSize = 4};
    std::uint32_t chunk = 0;
    for (const std::uint32_t samples : chunkSamples) {
        track.stsc.push_back({++chunk, samples, 1});
        track.constantCount += samples;
        GMp4Bytes bytes(std::size_t{samples} * 4);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::uint8_t>(i);
        track.chunks.push_back(bytes);
    }
    track.stts = {{track.constantCount, 1}};
    track.duration = track.constantCount;
    return track;
}

}  // namespace vex::test
