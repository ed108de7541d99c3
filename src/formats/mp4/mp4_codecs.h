// What a sample entry says of its codec: the code that stands for it, the packing of its samples, and its
// configuration.
#pragma once

#include "formats/mp4/mp4_box.h"
#include "formats/mp4/mp4_track.h"

namespace vex {

// Codes below 0xE2 that come from an elementary stream descriptor are MPEG-4 object type indications; the others are
// our own. The same code may stand for one codec in a video track and for another one in an audio track.
namespace mp4_codec {

inline constexpr unsigned kNone = 0;

inline constexpr unsigned kMpeg2Video = 97;
inline constexpr unsigned kMpeg1Video = 106;
inline constexpr unsigned kCinepak = 160;
inline constexpr unsigned kJpeg = 161;
inline constexpr unsigned kQuickTimeRle = 163;
inline constexpr unsigned kRoadPizza = 164;
inline constexpr unsigned kMotionJpegA = 167;
inline constexpr unsigned kSorenson1 = 169;
inline constexpr unsigned kSorenson3 = 170;
inline constexpr unsigned kMpeg4Video = 171;  // also 32, the object type
inline constexpr unsigned kDv = 172;
inline constexpr unsigned kRawVideo = 177;
inline constexpr unsigned kIndeo4 = 185;
inline constexpr unsigned kH264 = 241;  // "h264": start codes
inline constexpr unsigned kH263 = 242;
inline constexpr unsigned kAvc = 244;  // "avc1": lengths

inline constexpr unsigned kAac = 64;  // also 102 to 104, the object types of MPEG-2
inline constexpr unsigned kMpegAudio = 105;
inline constexpr unsigned kMpeg1Audio = 107;
inline constexpr unsigned kEac3 = 166;
inline constexpr unsigned kAc3 = 226;
inline constexpr unsigned kALaw = 227;
inline constexpr unsigned kMuLaw = 228;
inline constexpr unsigned kG723 = 229;
inline constexpr unsigned kQcelp = 234;
inline constexpr unsigned kEvrc = 235;
inline constexpr unsigned kAmr = 236;
inline constexpr unsigned kRawAudio = 240;
inline constexpr unsigned kTwos = 241;  // 16 bits, most significant byte first
inline constexpr unsigned kSowt = 242;  // least significant byte first
inline constexpr unsigned kMace3 = 243;
inline constexpr unsigned kMace6 = 244;
inline constexpr unsigned kImaAdpcm = 245;
inline constexpr unsigned kIn24 = 248;
inline constexpr unsigned kQdesign1 = 253;
inline constexpr unsigned kQdesign2 = 254;

}  // namespace mp4_codec

// Fills in what comes from the sample description of the first chunk, and the packing. False when the entry is missing
// or is not one of the track's category. Needs the sample tables, the timescale and the size of the track.
bool SetupTrackFormat(Mp4Track& track, Mp4Box& sampleDescriptions);

}  // namespace vex
