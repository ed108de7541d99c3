// Writes FLV files for tests, tag by tag, with one thing wrong where a test asks for it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "formats/flv/flv_tag.h"
#include "support/bytes.h"

namespace vex::test {

using GFlvBytes = GTestBytes;

struct GFlvLies {
    std::optional<std::uint32_t> dataSize{};         // what the tag header claims
    std::optional<std::uint32_t> previousTagSize{};  // what follows the payload
    std::uint32_t streamId = 0;
};

struct GFlvBuilder {
    GFlvBytes bytes;

    // `flags`: 1 video, 4 audio. Everything behind the header moves with `dataOffset`.
    explicit GFlvBuilder(std::uint8_t flags = 5, std::uint32_t dataOffset = 9) : bytes{'F', 'L', 'V', 1, flags}
    {
        Number(dataOffset, 4);
        bytes.resize(dataOffset);
        Number(0, 4);
    }
    GFlvBuilder& Number(std::uint32_t value, unsigned count) { return Raw(BigEndian(value, count)); }
    GFlvBuilder& Raw(const GFlvBytes& more)
    {
        Append(bytes, more);
        return *this;
    }
    // The PreviousTagSize behind it included.
    GFlvBuilder& Tag(std::uint8_t type, std::uint32_t timeMs, const GFlvBytes& payload, const GFlvLies& lies = {})
    {
        const auto size = static_cast<std::uint32_t>(payload.size());
        Number(type, 1).Number(lies.dataSize.value_or(size), 3).Number(timeMs, 3).Number(timeMs >> 24, 1);
        return Number(lies.streamId, 3).Raw(payload).Number(lies.previousTagSize.value_or(kFlvTagHeaderSize + size), 4);
    }
    GFlvBuilder& Audio(std::uint32_t timeMs, const GFlvBytes& payload) { return Tag(kFlvAudio, timeMs, payload); }
    GFlvBuilder& Video(std::uint32_t timeMs, const GFlvBytes& payload) { return Tag(kFlvVideo, timeMs, payload); }
    // Without the last `count` bytes.
    GFlvBytes Cut(std::size_t count) const { return {bytes.begin(), bytes.end() - static_cast<std::ptrdiff_t>(count)}; }
};

// `head`, then bytes of `fill` up to `size`.
inline GFlvBytes Payload(GFlvBytes head, std::size_t size = 0, std::uint8_t fill = 0)
{
    head.resize(std::max(size, head.size()), fill);
    return head;
}

// H.264 of 64 x 48: its configuration, and pictures whose payload is `size` bytes of `fill`.
inline GFlvBytes AvcConfiguration()
{
    return {0x17, 0,    0,    0,    0,    1,    0x42, 0xC0, 0x0A, 0xFF, 0xE1, 0,    21,   0x67,
            0x42, 0xC0, 0x0A, 0xDA, 0x11, 0xEC, 0x04, 0x40, 0x00, 0x00, 0x03, 0x00, 0x40, 0x00,
            0x00, 0x0C, 0x83, 0xC4, 0x89, 0xA8, 1,    0,    4,    0x68, 0xCE, 0x0F, 0xC8};
}
inline GFlvBytes AvcPicture(bool key, std::uint8_t fill, std::int32_t compositionMs = 0, std::size_t size = 20)
{
    const GFlvBytes time = GFlvBuilder().Number(static_cast<std::uint32_t>(compositionMs), 3).bytes;
    const std::uint8_t first = key ? 0x17 : 0x27;
    return Payload({first, 1, time[13], time[14], time[15]}, 5 + size, fill);
}
inline GFlvBytes AacConfiguration() { return {0xAF, 0, 0x12, 0x10, 0x56, 0xE5, 0x00}; }
inline GFlvBytes AacFrame(std::uint8_t fill) { return Payload({0xAF, 1}, 12, fill); }
// MP3 at 44100 Hz, 16 bits, stereo.
inline GFlvBytes Mp3Frame(std::uint8_t fill) { return Payload({0x2F}, 11, fill); }
// Sorenson H.263 of 320 x 240.
inline GFlvBytes SorensonPicture(bool key, std::uint8_t fill)
{
    const std::uint8_t first = key ? 0x12 : 0x22;
    return Payload({first, 0, 0, 0x84, 0x02, 0x92}, 13, fill);
}

// H.264 and AAC, 40 ms each, with a key frame every `group` pictures.
inline GFlvBuilder Film(unsigned pictures, unsigned group, unsigned firstKey = 0, const GFlvLies& lies = {})
{
    GFlvBuilder file;
    file.Tag(kFlvScript, 0, Payload({2, 0, 10}, 30)).Video(0, AvcConfiguration()).Audio(0, AacConfiguration());
    for (unsigned i = 0; i < pictures; ++i) {
        const bool key = i >= firstKey && (i - firstKey) % group == 0;
        const auto fill = static_cast<std::uint8_t>(i);
        file.Tag(kFlvVideo, 40 * i, AvcPicture(key, fill), lies).Tag(kFlvAudio, 40 * i, AacFrame(fill), lies);
    }
    return file;
}

}  // namespace vex::test
