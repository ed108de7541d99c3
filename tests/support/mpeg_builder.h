// Writes transport and program streams for tests, packet by packet, with any field open to a lie.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/audio_frames.h"

namespace vex::test {

using GMpegBytes = GTestBytes;

// The start of every codec's stream; `mark` fills what is not header.
GMpegBytes MpegVideo(std::uint8_t mark = 1, bool key = true, std::size_t size = 40);  // MPEG-2, 320 x 240, 25 fps
GMpegBytes Mpeg1Video(std::uint8_t mark = 1);
GMpegBytes AvcVideo(std::uint8_t mark = 1, bool key = true, std::size_t size = 40);  // 64 x 48, 25 fps
GMpegBytes AvcVideo1088();                                                           // 1920 x 1088, no cropping
GMpegBytes Vc1Video(std::uint8_t mark = 1);                                          // 1920 x 1080, 24000/1001 fps
GMpegBytes Ac3Frame(std::uint8_t mark = 1, std::uint8_t frmsizecod = 30);            // 48 kHz, 5.1; 448 kbit/s
GMpegBytes DtsFrame(std::uint8_t mark = 1);                                          // 48 kHz, 1509.75 kbit/s
// A private packet of DVD sound: the sub-stream's header, then `frame`.
GMpegBytes SubStream(std::uint8_t number, const GMpegBytes& frame);
GMpegBytes Lpcm(std::uint8_t number, unsigned quantisation, unsigned channels, std::size_t size = 40);

struct GPesLies {
    std::optional<std::uint16_t> length{};  // what the packet claims
    bool unbounded = false;                 // a length of 0
    bool mpeg1 = false;                     // the header's syntax
    std::size_t stuffing = 0;               // bytes of header that mean nothing
    std::optional<std::uint8_t> extension{};
};
GMpegBytes Pes(std::uint8_t streamId, std::optional<std::uint64_t> pts, const GMpegBytes& payload,
               const GPesLies& lies = {});

struct GMapEntry {
    std::uint8_t type = 0;
    std::uint16_t pid = 0;
    std::string language{};
    std::uint8_t tag = 0;  // of one more descriptor
};

struct GTsBuilder {
    GMpegBytes bytes;
    std::size_t packetSize = 188;

    // One packet; what `payload` leaves is taken by an adaptation field. At most 184 bytes.
    GTsBuilder& Packet(std::uint16_t pid, bool begins, GMpegBytes payload, std::uint8_t flags = 0);
    GTsBuilder& Payload(std::uint16_t pid, const GMpegBytes& data, std::size_t piece = 184);
    // With header and CRC (which is 0).
    GTsBuilder& Section(std::uint16_t pid, std::uint8_t table, const GMpegBytes& body,
                        std::optional<unsigned> length = {});
    GTsBuilder& Association(const std::map<std::uint16_t, std::uint16_t>& programs);
    GTsBuilder& Map(std::uint16_t pid, const std::vector<GMapEntry>& entries);
    GTsBuilder& Raw(const GMpegBytes& more);
};

struct GPsBuilder {
    GMpegBytes bytes;
    bool mpeg1 = false;

    GPsBuilder& Pack(unsigned stuffing = 0);
    GPsBuilder& Add(std::uint8_t streamId, std::optional<std::uint64_t> pts, const GMpegBytes& payload,
                    GPesLies lies = {});
    // Data search information of a DVD.
    GPsBuilder& Navigation(std::uint16_t vob, std::uint32_t startPts, std::uint32_t endPts);
    GPsBuilder& Raw(const GMpegBytes& more);
};

inline constexpr std::uint64_t kFrame = 3600;  // ticks of a picture at 25 fps
inline constexpr std::uint16_t kVideoPid = 0x100;
inline constexpr std::uint16_t kAudioPid = 0x101;

// H.264 with German MPEG audio, from `first` on; and MPEG-2 video with AC-3. A picture has `size` bytes more.
GTsBuilder TransportFilm(unsigned pictures, std::uint64_t first = 90'000, std::size_t packetSize = 188,
                         std::size_t size = 40);
GPsBuilder ProgramFilm(unsigned pictures, bool mpeg1 = false, std::uint64_t first = 90'000, std::size_t size = 40);

}  // namespace vex::test
