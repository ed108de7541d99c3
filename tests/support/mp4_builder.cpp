#include "support/mp4_builder.h"

#include <algorithm>
#include <stdexcept>

namespace vex::test {

GMp4Bytes Bigs(std::initializer_list<std::uint32_t> values)
{
    GMp4Bytes bytes;
    for (const std::uint32_t value : values)
        Append(bytes, BigEndian(value));
    return bytes;
}

GMp4Bytes Box(std::string_view type, const GMp4Bytes& payload)
{
    return Join({BigEndian(payload.size() + 8), GMp4Bytes(type.begin(), type.end()), payload});
}

GMp4Bytes FullBox(std::string_view type, const GMp4Bytes& payload) { return Box(type, Join({BigEndian(0), payload})); }

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
    std::ranges::copy(BigEndian(value), file.begin() + static_cast<std::ptrdiff_t>(position));
}

GMp4Bytes Esds(std::uint8_t objectType, const GMp4Bytes& specific)
{
    const auto size = static_cast<std::uint8_t>(specific.size());
    const auto descriptor = [](std::uint8_t tag, const GMp4Bytes& body) {
        return Join({{tag, 0x80, static_cast<std::uint8_t>(body.size())}, body});
    };
    const GMp4Bytes config =
        Join({{objectType, 0x15, 0, 0, 0}, BigEndian(128'000), BigEndian(96'000), {5, size}, specific});
    return FullBox("esds", descriptor(3, Join({{0, 1, 0}, descriptor(4, config), {6, 1, 2}})));
}

namespace {

GMp4Bytes SampleEntry(const GMp4TestTrack& track)
{
    const GMp4Bytes start = Join({GMp4Bytes(6), BigEndian(1, 2), BigEndian(track.version, 2), GMp4Bytes(6)});
    GMp4Bytes fields;
    if (track.handler == "vide") {
        const auto& [width, height, depth] = track.picture;
        fields = Join({Bigs({0, 0}), BigEndian(width, 2), BigEndian(height, 2), GMp4Bytes(46), BigEndian(depth, 2),
                       BigEndian(0xFFFF, 2)});
    } else {
        const auto& [channels, bits, rate] = track.sound;
        fields = Join({BigEndian(channels, 2), BigEndian(bits, 2), BigEndian(0), BigEndian(rate, 2), BigEndian(0, 2)});
        for (const std::uint32_t value : track.packing)
            fields = track.version == 1 ? Join({fields, BigEndian(value)}) : fields;
    }
    return Box(track.entry, Join({start, fields, track.children}));
}

template <class Entries>
GMp4Bytes Table(std::string_view type, const Entries& entries)
{
    GMp4Bytes body = BigEndian(entries.size());
    for (const auto& entry : entries)
        for (const std::uint32_t value : entry)
            Append(body, BigEndian(value));
    return FullBox(type, body);
}

GMp4Bytes Numbers(std::string_view type, const std::vector<std::uint32_t>& numbers, const GMp4Bytes& before = {})
{
    GMp4Bytes body = Join({before, BigEndian(numbers.size())});
    for (const std::uint32_t number : numbers)
        Append(body, BigEndian(number));
    return FullBox(type, body);
}

}  // namespace

GMp4Bytes GMp4TestTrack::Trak(const std::vector<std::uint64_t>& offsets) const
{
    GMp4Bytes positions = BigEndian(offsets.size());
    for (const std::uint64_t offset : offsets)
        Append(positions, BigEndian(offset, co64 ? 8 : 4));
    const GMp4Bytes stsz =
        constantSize != 0 ? FullBox("stsz", Bigs({constantSize, constantCount})) : Numbers("stsz", sizes, BigEndian(0));
    const GMp4Bytes stbl = Box("stbl", Join({FullBox("stsd", Join({BigEndian(1), SampleEntry(*this)})),
                                             Table("stts", stts), stss.empty() ? GMp4Bytes() : Numbers("stss", stss),
                                             Table("stsc", stsc), stsz, FullBox(co64 ? "co64" : "stco", positions)}));
    unsigned packed = 0;
    for (const char letter : language)
        packed = packed << 5 | (static_cast<unsigned>(letter) - 0x60u);
    const GMp4Bytes media = handler == "vide" ? FullBox("vmhd", GMp4Bytes(8)) : FullBox("smhd", GMp4Bytes(4));
    return Box(
        "trak",
        Join({FullBox("tkhd", Join({Bigs({0, 0, id, 0, duration}), GMp4Bytes(52), Bigs({32 << 16, 24 << 16})})),
              Box("mdia",
                  Join({FullBox("mdhd",
                                Join({Bigs({0, 0, timescale, duration}), BigEndian(packed, 2), BigEndian(0, 2)})),
                        FullBox("hdlr", Join({BigEndian(0), GMp4Bytes(handler.begin(), handler.end()), GMp4Bytes(13)})),
                        Box("minf", Join({media, stbl}))}))}));
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
    GMp4Bytes movie = FullBox("mvhd", Join({Bigs({0, 0, timescale, duration}), GMp4Bytes(80)}));
    for (std::size_t i = 0; i < tracks.size(); ++i)
        movie = Join({movie, tracks[i].Trak(offsets[i])});
    return {Join({start, Box("mdat", data)}), Box("moov", movie)};
}

GMp4Bytes GMp4TestFile::Build() const
{
    const auto [data, movie] = DataAndMovie();
    return Join({data, movie});
}

GMp4Bytes HeaderFirst(GMp4TestFile file)
{
    const std::size_t at = file.start.size();
    file.start = Join({file.start, file.DataAndMovie().second});
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
