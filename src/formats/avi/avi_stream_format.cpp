#include "formats/avi/avi_stream_format.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "io/byte_reader.h"
#include "io/limits.h"
#include "media/audio_types.h"
#include "media/codec_guids.h"
#include "media/codec_tags.h"
#include "media/format_headers.h"
#include "media/video_types.h"
#include "media/wave_tags.h"

namespace vex {
namespace {

// Some nine thousand years. Sums of two such times still fit.
constexpr double kMaxTime = static_cast<double>(std::numeric_limits<std::int64_t>::max() / 4);

// One MPEG audio layer 3 frame.
constexpr std::uint32_t kSamplesPerMp3Frame = 1152;

// Truncates towards zero; what is not a number counts as 0.
std::int64_t Truncate(double value)
{
    if (!(value > 0))
        return 0;
    return static_cast<std::int64_t>(std::min(value, kMaxTime));
}

std::uint64_t Magnitude(LONG value)
{
    return static_cast<std::uint64_t>(value < 0 ? -std::int64_t{value} : std::int64_t{value});
}

}  // namespace

void GAviStreamFormat::SetHeader(std::span<const std::uint8_t> body)
{
    std::uint8_t padded[kHeaderSize] = {};
    std::copy_n(body.begin(), std::min(body.size(), kHeaderSize), padded);
    GByteReader reader(padded);
    type = reader.FourCC();
    reader.Skip(16);  // handler, flags, priority, language, initial frames
    scale = reader.U32LE();
    ticksPerScale = reader.U32LE();
    reader.Skip(8);  // start, length
    suggestedBufferSize = reader.U32LE();
    reader.Skip(4);  // quality
    sampleSize = reader.U32LE();
}

void GAviStreamFormat::SetFormat(std::vector<std::uint8_t> body)
{
    format = std::move(body);
    const WAVEFORMATEX wave = Wave();
    // A variable bit rate declared by a byte rate: such chunks are one frame each, whatever the header counts in.
    if (IsAudio() && wave.wFormatTag == wave_tag::kMp3 && wave.nBlockAlign == kSamplesPerMp3Frame && scale == 1 &&
        ticksPerScale != wave.nSamplesPerSec) {
        scale = kSamplesPerMp3Frame;
        ticksPerScale = wave.nSamplesPerSec;
    }
    if (IsAudio() && sampleSize != 0)
        rate = wave.nAvgBytesPerSec;
    else
        rate = scale != 0 ? static_cast<double>(ticksPerScale) / scale : 1.0;
}

BITMAPINFOHEADER GAviStreamFormat::Bitmap() const
{
    return IsVideo() ? ReadBitmapHeader(format).value_or(BITMAPINFOHEADER{}) : BITMAPINFOHEADER{};
}

WAVEFORMATEX GAviStreamFormat::Wave() const
{
    if (!IsAudio() || format.size() < kWaveFieldsSize)
        return {};
    return ReadWaveFormat(format).header;
}

std::uint32_t GAviStreamFormat::Compression() const { return static_cast<std::uint32_t>(Bitmap().biCompression); }

REFERENCE_TIME GAviStreamFormat::TimeAt(std::uint64_t index, std::uint64_t bytes) const
{
    if (!(rate > 0))
        return 0;
    const auto position = static_cast<double>(CountsBytes() ? bytes : index);
    return Truncate(position / rate * static_cast<double>(kUnitsPerSecond));
}

std::uint64_t GAviStreamFormat::PositionAt(std::uint64_t seconds) const
{
    return static_cast<std::uint64_t>(Truncate(static_cast<double>(seconds) * rate));
}

std::uint32_t GAviStreamFormat::BufferSize() const
{
    // Products of numbers from the file: formed wide, and believed up to what a packet may have.
    std::uint64_t bytes = 0;
    if (IsVideo()) {
        const BITMAPINFOHEADER header = Bitmap();
        const std::uint64_t pixels = Magnitude(header.biWidth) * Magnitude(header.biHeight);
        bytes = std::min<std::uint64_t>(pixels, kMaxPacketSize) * 4;
    } else if (IsAudio()) {
        const WAVEFORMATEX wave = Wave();
        bytes = std::uint64_t{wave.nChannels} * wave.nSamplesPerSec * 4;
    }
    bytes = std::max(bytes, std::uint64_t{suggestedBufferSize} * 2);
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, kMaxPacketSize));
}

CMediaType GAviStreamFormat::MediaType() const
{
    if (IsVideo() && format.size() >= kBitmapHeaderSize)
        return VideoType();
    if (IsAudio() && format.size() >= kWaveFieldsSize)
        return AudioType();
    return {};
}

CMediaType GAviStreamFormat::VideoType() const
{
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = rate > 0 ? Truncate(static_cast<double>(kUnitsPerSecond) / rate) : 0;
    info.bmiHeader = Bitmap();
    const auto behind = GBytes(format).subspan(kBitmapHeaderSize);
    CMediaType result = MakeVideoInfoType(SubtypeFromBitmap(info.bmiHeader, behind), info, behind);
    result.SetSampleSize(BufferSize());
    result.bFixedSizeSamples = FALSE;
    return result;
}

CMediaType GAviStreamFormat::AudioType() const
{
    CMediaType result = MakeAudioType(SubtypeFromWaveTag(Wave().wFormatTag));
    result.SetFormat(FORMAT_WaveFormatEx, format);  // as the file has it, even where it lacks cbSize
    result.SetSampleSize(BufferSize());
    return result;
}

}  // namespace vex
