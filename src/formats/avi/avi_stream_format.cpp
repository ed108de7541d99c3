#include "formats/avi/avi_stream_format.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "framework/media/codec_guids.h"
#include "framework/media/codec_tags.h"
#include "io/byte_reader.h"
#include "io/limits.h"

namespace vex {
namespace {

constexpr std::size_t kBitmapHeaderSize = 40;
constexpr std::size_t kWaveFieldsSize = 16;  // all but cbSize, which a PCM format may lack
constexpr std::size_t kVideoInfoSize = offsetof(VIDEOINFOHEADER, bmiHeader);

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
    const GWaveFields wave = Wave();
    // A variable bit rate declared by a byte rate: such chunks are one frame each, whatever the header counts in.
    if (IsAudio() && wave.tag == WAVE_FORMAT_MPEGLAYER3 && wave.blockAlign == kSamplesPerMp3Frame && scale == 1 &&
        ticksPerScale != wave.samplesPerSecond) {
        scale = kSamplesPerMp3Frame;
        ticksPerScale = wave.samplesPerSecond;
    }
    if (IsAudio() && sampleSize != 0)
        rate = wave.bytesPerSecond;
    else
        rate = scale != 0 ? static_cast<double>(ticksPerScale) / scale : 1.0;
}

BITMAPINFOHEADER GAviStreamFormat::Bitmap() const
{
    BITMAPINFOHEADER header{};
    if (!IsVideo() || format.size() < kBitmapHeaderSize)
        return header;
    GByteReader reader(format);
    header.biSize = reader.U32LE();
    header.biWidth = reader.I32LE();
    header.biHeight = reader.I32LE();
    header.biPlanes = reader.U16LE();
    header.biBitCount = reader.U16LE();
    header.biCompression = reader.U32LE();
    header.biSizeImage = reader.U32LE();
    header.biXPelsPerMeter = reader.I32LE();
    header.biYPelsPerMeter = reader.I32LE();
    header.biClrUsed = reader.U32LE();
    header.biClrImportant = reader.U32LE();
    return header;
}

GAviStreamFormat::GWaveFields GAviStreamFormat::Wave() const
{
    GWaveFields wave;
    if (!IsAudio() || format.size() < kWaveFieldsSize)
        return wave;
    GByteReader reader(format);
    wave.tag = reader.U16LE();
    wave.channels = reader.U16LE();
    wave.samplesPerSecond = reader.U32LE();
    wave.bytesPerSecond = reader.U32LE();
    wave.blockAlign = reader.U16LE();
    return wave;
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
        const GWaveFields wave = Wave();
        bytes = std::uint64_t{wave.channels} * wave.samplesPerSecond * 4;
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
    const auto behindHeader = std::span<const std::uint8_t>(format).subspan(kBitmapHeaderSize);
    CMediaType result(MEDIATYPE_Video, SubtypeFromBitmap(Bitmap(), behindHeader));
    const std::span<BYTE> block = result.AllocFormat(FORMAT_VideoInfo, kVideoInfoSize + format.size());
    const REFERENCE_TIME perFrame = rate > 0 ? Truncate(static_cast<double>(kUnitsPerSecond) / rate) : 0;
    std::memcpy(block.data() + offsetof(VIDEOINFOHEADER, AvgTimePerFrame), &perFrame, sizeof(perFrame));
    std::memcpy(block.data() + kVideoInfoSize, format.data(), format.size());
    result.SetSampleSize(BufferSize());
    result.bFixedSizeSamples = FALSE;
    result.bTemporalCompression = TRUE;
    return result;
}

CMediaType GAviStreamFormat::AudioType() const
{
    CMediaType result(MEDIATYPE_Audio, SubtypeFromWaveTag(Wave().tag));
    result.SetFormat(FORMAT_WaveFormatEx, format);
    result.SetSampleSize(BufferSize());
    result.bTemporalCompression = FALSE;
    return result;
}

}  // namespace vex
