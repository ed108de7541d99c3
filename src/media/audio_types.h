// Builders of audio media types. Each makes a type of MEDIATYPE_Audio, FORMAT_WaveFormatEx unless said otherwise, with
// samples of variable size and no temporal compression (change these afterwards where a format differs), and may throw
// std::bad_alloc.
#pragma once

#include <array>
#include <cstdint>

#include "dshow/media_type.h"
#include "io/bytes.h"
#include "media/mpeg_audio.h"

namespace vex {

// Without a format block. `sampleSize`: the expected upper bound, bytes.
CMediaType MakeAudioType(REFGUID subtype, ULONG sampleSize = 0);

// `format` as it is (cbSize too), then `extra`. cbSize is the caller's, since some writers leave it at 0; extra bytes
// that it is to count have to fit its 16 bits.
CMediaType MakeWaveType(REFGUID subtype, const WAVEFORMATEX& format, GBytes extra = {});
// The same with the subtype of the format tag, and cbSize set to the size of `extra`, of which at most 65535 bytes
// are taken.
CMediaType MakeWaveType(WAVEFORMATEX format, GBytes extra = {});

// MPEG audio of layer I or II as MPEG1WAVEFORMAT (40 bytes): `format` with wFormatTag 0x50 and cbSize 22, then layer,
// mode, emphasis and flags out of the frame header, whose layer must be 1 to 3. Times (dwPTSLow, dwPTSHigh) are 0.
CMediaType MakeMpeg1WaveType(const WAVEFORMATEX& format, const GMpegAudioHeader& header);

// MEDIASUBTYPE_Vorbis, FORMAT_VorbisFormat: 24 bytes. Bit rates in bit/s.
struct GVorbisFormat {
    std::uint32_t channels = 0;
    std::uint32_t samplesPerSecond = 0;
    std::uint32_t lowerBitRate = 0;
    std::uint32_t nominalBitRate = 0;
    std::uint32_t upperBitRate = 0;
    float quality = 0;
};
CMediaType MakeVorbisType(const GVorbisFormat& format);

// The identification, comment and setup header of a Vorbis stream.
using GVorbisHeaders = std::array<GBytes, 3>;
// MEDIASUBTYPE_Vorbis2, FORMAT_VorbisFormat2: 24 bytes and the three headers.
CMediaType MakeVorbis2Type(std::uint32_t channels, std::uint32_t samplesPerSecond, std::uint32_t bitsPerSample,
                           const GVorbisHeaders& headers);
// The headers in a FORMAT_VorbisFormat2 block, which must hold them as a whole; else three empty spans.
GVorbisHeaders VorbisHeaders(const CMediaType& type);

// The bytes behind the WAVEFORMATEX of a FORMAT_WaveFormatEx block, at most cbSize; empty for other types.
GBytes WaveExtra(const CMediaType& type);

}  // namespace vex
