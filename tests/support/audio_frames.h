// Builds raw audio files: MPEG audio frames, ADTS frames and the tags around them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "support/bytes.h"
#include "support/handler_trial.h"

namespace vex::test {

using GAudioBytes = GTestBytes;

// MPEG-1 layer III, 128 kbit/s, 44100 Hz, stereo.
inline constexpr std::uint32_t kUsualHeader = 0xFFFB9000;
inline constexpr std::size_t kUsualSize = 417;
inline constexpr std::int64_t kUsualLength = 261'224;  // 100 ns

// A frame of `size` bytes with this header, filled with `mark`. Frames marked 1 to `count`.
inline GAudioBytes MpegFrame(std::uint8_t mark, std::uint32_t header = kUsualHeader, std::size_t size = kUsualSize)
{
    GAudioBytes frame(size, mark);
    for (std::size_t i = 0; i < 4 && i < size; ++i)
        frame[i] = static_cast<std::uint8_t>(header >> (24 - 8 * i));
    return frame;
}
inline GAudioBytes MpegFrames(std::uint8_t count)
{
    return count == 0 ? GAudioBytes() : Join({MpegFrames(static_cast<std::uint8_t>(count - 1)), MpegFrame(count)});
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
inline GAudioBytes AdtsFrames(std::uint8_t count)
{
    return count == 0 ? GAudioBytes()
                      : Join({AdtsFrames(static_cast<std::uint8_t>(count - 1)), AdtsFrame({.mark = count})});
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
    return Join({MpegFrame(9, kUsualHeader, items), footer});  // items that look like a frame
}

// What a file plays: the mark of each frame, "gap" where times do not join, and behind a minus the bytes lost; or why
// it cannot be opened.
template <class Reading>
std::string Played(const GAudioBytes& file)
{
    Reading reading(file);
    if (!reading.IsOpen())
        return reading.Opened().Error().what;
    std::string text;
    REFERENCE_TIME end = 0;
    for (const GReadPacket& packet : reading.ReadAll()) {
        text += (packet.next.start == end ? "" : "gap ") + std::to_string(packet.payload.back()) + " ";
        end = packet.next.stop;
    }
    const GDamageReport damage = reading.Damage();
    return damage.count == 0 ? text : text + "-" + std::to_string(damage.bytes);
}

// Tries every prefix of a file, and the file with each byte changed.
template <class Reading>
void TryDamage(const GAudioBytes& file)
{
    const auto attempt = [](const GAudioBytes& bytes) {
        Reading reading(bytes);
        const REFERENCE_TIME duration = reading.Handler().Duration();
        TryHandler(reading, {.targets = {duration / 2, duration}});
    };
    for (std::size_t i = 0; i < file.size(); ++i)
        attempt(First(file, i));
    TryBytes(file, {0x00, 0x7F, 0xFF}, attempt);
}

}  // namespace vex::test
