// The codecs of FLV tags: their numbers, and the media types that follow from the first payloads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dshow/media_type.h"
#include "io/bytes.h"
#include "media/picture_sizes.h"

namespace vex {

namespace flv_sound {
inline constexpr std::uint8_t kPcm = 0;
inline constexpr std::uint8_t kAdpcm = 1;
inline constexpr std::uint8_t kMp3 = 2;
inline constexpr std::uint8_t kPcmLittleEndian = 3;
inline constexpr std::uint8_t kNellymoser16kHz = 4;
inline constexpr std::uint8_t kNellymoser8kHz = 5;
inline constexpr std::uint8_t kNellymoser = 6;
inline constexpr std::uint8_t kAac = 10;
}  // namespace flv_sound

namespace flv_codec {
inline constexpr std::uint8_t kSorenson = 2;
inline constexpr std::uint8_t kScreen = 3;
inline constexpr std::uint8_t kVp6 = 4;
inline constexpr std::uint8_t kVp6Alpha = 5;
inline constexpr std::uint8_t kScreen2 = 6;
inline constexpr std::uint8_t kAvc = 7;
}  // namespace flv_codec

// AACPacketType and AVCPacketType of a decoder configuration.
inline constexpr std::uint8_t kFlvSequenceHeader = 0;

// Of the first payload byte of a tag.
constexpr std::uint8_t FlvSoundFormat(std::uint8_t first) { return first >> 4; }
constexpr std::uint8_t FlvCodecId(std::uint8_t first) { return first & 0x0F; }
constexpr std::uint8_t FlvFrameType(std::uint8_t first) { return first >> 4; }

struct GFlvAudioFormat {
    WAVEFORMATEX wave{};
    std::vector<std::uint8_t> extra;  // AAC: the first 2 bytes of the AudioSpecificConfig

    CMediaType MediaType() const;
};

struct GFlvVideoFormat {
    std::uint32_t fourCC = 0;
    GPictureSize size;
    // H.264 only.
    std::uint8_t nalLengthSize = 0;  // bytes
    std::uint8_t profile = 0;
    std::uint8_t level = 0;
    std::vector<std::uint8_t> parameterSets{};  // each behind a length of 2 bytes

    CMediaType MediaType() const;
};

// Payload bytes that suffice for every format but the configuration of H.264.
inline constexpr std::size_t kFlvFormatBytes = 64;

// The format that an audio or video payload declares; nothing when it declares none: a sound format without a media
// type, an AAC payload that is not its configuration, a video payload that is not a key frame.
std::optional<GFlvAudioFormat> ReadFlvAudioFormat(GBytes payload);
std::optional<GFlvVideoFormat> ReadFlvVideoFormat(GBytes payload);

// Kinds of audio or video that a file was seen to have and no pin can carry.
class GFlvUnsupported {
public:
    void SeeAudio(std::uint8_t first);
    void SeeVideo(std::uint8_t first);
    bool Any() const { return sound != kNone || codec != kNone; }
    // "Speex audio and Screen 2 video"; empty when there are none.
    std::string Kinds() const;
    // Why a file that has no other kinds cannot be played; static storage.
    const char* Reason() const;

private:
    static constexpr std::size_t kNone = 16;

    static std::string Kinds(std::size_t sound, std::size_t codec);

    std::size_t sound = kNone;  // first SoundFormat and CodecID seen
    std::size_t codec = kNone;
};

}  // namespace vex
