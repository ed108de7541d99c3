// Builds raw audio files: MPEG audio frames, ADTS frames and the tags around them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace vex::test {

using GAudioBytes = std::vector<std::uint8_t>;

inline GAudioBytes Joined(std::initializer_list<GAudioBytes> parts)
{
    GAudioBytes all;
    for (const GAudioBytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}
inline GAudioBytes Times(int count, const GAudioBytes& part)
{
    GAudioBytes all;
    for (int i = 0; i < count; ++i)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}
inline GAudioBytes Text(std::string_view text, std::size_t size = 0)
{
    GAudioBytes bytes(text.begin(), text.end());
    bytes.resize(std::max(size, bytes.size()));
    return bytes;
}
inline GAudioBytes First(GAudioBytes bytes, std::size_t count)
{
    bytes.resize(count);
    return bytes;
}

// MPEG-1 layer III, 128 kbit/s, 44100 Hz, stereo.
inline constexpr std::uint32_t kUsualHeader = 0xFFFB9000;
inline constexpr std::size_t kUsualSize = 417;
inline constexpr std::int64_t kUsualLength = 261'224;  // 100 ns

// A frame of `size` bytes with this header, filled with `mark`.
inline GAudioBytes MpegFrame(std::uint8_t mark, std::uint32_t header = kUsualHeader, std::size_t size = kUsualSize)
{
    GAudioBytes frame(size, mark);
    for (std::size_t i = 0; i < 4 && i < size; ++i)
        frame[i] = static_cast<std::uint8_t>(header >> (24 - 8 * i));
    return frame;
}

struct GAdtsTestFrame {
    unsigned profile = 1;    // LC
    unsigned rateIndex = 4;  // 44100 Hz
    unsigned channels = 2;
    bool crc = false;
    std::size_t payload = 100;  // bytes, CRC included
    std::uint8_t mark = 1;
    unsigned length = 0;  // as claimed; 0: the true one
};
inline GAudioBytes AdtsFrame(const GAdtsTestFrame& wanted = {})
{
    const auto size = wanted.length != 0 ? wanted.length : static_cast<unsigned>(wanted.payload + 7);
    GAudioBytes frame(wanted.payload + 7, wanted.mark);
    frame[0] = 0xFF;
    frame[1] = wanted.crc ? 0xF0 : 0xF1;
    frame[2] = static_cast<std::uint8_t>(wanted.profile << 6 | wanted.rateIndex << 2 | wanted.channels >> 2);
    frame[3] = static_cast<std::uint8_t>((wanted.channels & 3) << 6 | size >> 11);
    frame[4] = static_cast<std::uint8_t>(size >> 3);
    frame[5] = static_cast<std::uint8_t>((size & 7) << 5 | 0x1F);
    frame[6] = 0xFC;
    return frame;
}

// An ID3v2 tag whose body has `size` bytes and which claims to have `claim`; an ID3v1 tag; an APE tag.
inline GAudioBytes Id3v2(std::size_t size, std::size_t claim)
{
    GAudioBytes tag = Text("ID3\x04", size + 10);
    for (std::size_t i = 0; i < 4; ++i)
        tag[6 + i] = static_cast<std::uint8_t>(claim >> (21 - 7 * i) & 0x7F);
    return tag;
}
inline GAudioBytes Id3v2(std::size_t size) { return Id3v2(size, size); }
inline GAudioBytes Id3v1() { return Text("TAG", 128); }
inline GAudioBytes Ape(std::size_t items, std::uint8_t claim)
{
    GAudioBytes footer = Text("APETAGEX\xD0\x07", 32);
    footer[12] = claim;
    return Joined({MpegFrame(9, kUsualHeader, items), footer});  // items that look like a frame
}

}  // namespace vex::test
