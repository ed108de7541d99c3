// Format tags of WAVEFORMATEX. SubtypeFromWaveTag of codec_guids.h makes subtypes of them.
#pragma once

#include <cstdint>

namespace vex::wave_tag {

inline constexpr std::uint16_t kPcm = 0x0001;
inline constexpr std::uint16_t kAdpcm = 0x0002;
inline constexpr std::uint16_t kFloat = 0x0003;
inline constexpr std::uint16_t kALaw = 0x0006;
inline constexpr std::uint16_t kMuLaw = 0x0007;
inline constexpr std::uint16_t kImaAdpcm = 0x0011;
inline constexpr std::uint16_t kG723 = 0x0042;
inline constexpr std::uint16_t kMpeg = 0x0050;  // layers I and II
inline constexpr std::uint16_t kMp3 = 0x0055;
inline constexpr std::uint16_t kAmr = 0x00FE;
inline constexpr std::uint16_t kAac = 0x00FF;
inline constexpr std::uint16_t kAc3 = 0x2000;
inline constexpr std::uint16_t kDts = 0x2001;
inline constexpr std::uint16_t kNellymoser16kHz = 0x3200;
inline constexpr std::uint16_t kTta = 0x77A1;
inline constexpr std::uint16_t kNellymoser8kHz = 0xA100;
inline constexpr std::uint16_t kNellymoser = 0xA200;
inline constexpr std::uint16_t kFlac = 0xF1AC;
inline constexpr std::uint16_t kExtensible = 0xFFFE;

}  // namespace vex::wave_tag
