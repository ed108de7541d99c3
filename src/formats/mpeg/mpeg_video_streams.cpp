#include "formats/mpeg/mpeg_video_streams.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "io/checked_math.h"
#include "io/fourcc.h"
#include "media/avc_record.h"
#include "media/codec_guids.h"
#include "media/nal_units.h"
#include "media/video_types.h"
#include "platform/guids.h"
#include "platform/pipeline.h"

namespace vex {
namespace {

constexpr std::uint8_t kUserDataCode = 0xB2;
constexpr std::uint8_t kVc1SequenceCode = 0x0F;
constexpr std::uint8_t kVc1Advanced = 3;
constexpr std::uint32_t kBitRateUnit = 400;  // bit/s

struct GAspect {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
};

// In lowest terms; 0:0 for what does not fit.
GAspect Reduced(std::uint64_t x, std::uint64_t y)
{
    const std::uint64_t divisor = std::gcd(x, y);
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    if (divisor == 0 || x / divisor > kMost || y / divisor > kMost)
        return {};
    return {static_cast<std::uint32_t>(x / divisor), static_cast<std::uint32_t>(y / divisor)};
}

// The aspect of a picture of MPEG-1, whose code gives the height of a sample by its width.
GAspect Mpeg1Aspect(const GMpegSequence& sequence)
{
    const double sample = Mpeg1PelAspect(sequence.aspectCode);
    const double x = sample > 0 ? sequence.width / sample + 0.5 : sequence.width;
    return Reduced(static_cast<std::uint64_t>(x), sequence.height);
}

// Code 1 stands for square samples: the picture has the aspect of its size.
GAspect Mpeg2Aspect(unsigned code, std::uint32_t width, std::uint32_t height)
{
    const unsigned clamped = std::clamp(code, 1u, 5u);
    if (clamped == 1)
        return Reduced(width, height);
    const GRatio ratio = Mpeg2DisplayAspect(clamped);
    return Reduced(ratio.x, ratio.y);
}

bool HasStartCodeOf(GBytes payload, std::uint8_t code)
{
    for (std::size_t at = FindStartCode(payload); at != kNotFound; at = FindStartCode(payload, at + 3))
        if (payload[at + 3] == code)
            return true;
    return false;
}

// Whether something other than extensions and user data follows the sequence header: it is whole.
bool SequenceEnds(GBytes payload)
{
    std::size_t at = FindStartCode(payload);
    while (at != kNotFound && (at = FindStartCode(payload, at + 3)) != kNotFound)
        if (payload[at + 3] != kExtensionCode && payload[at + 3] != kUserDataCode)
            return true;
    return false;
}

void Append(std::vector<std::uint8_t>& out, GBytes bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }

MPEG2VIDEOINFO MakeInfo(std::uint32_t width, std::uint32_t height, std::uint32_t compression, GAspect aspect)
{
    MPEG2VIDEOINFO info{};
    info.hdr.bmiHeader = MakeBitmapHeader(static_cast<LONG>(width), static_cast<LONG>(height), 0, compression);
    info.hdr.dwPictAspectRatioX = aspect.x;
    info.hdr.dwPictAspectRatioY = aspect.y;
    return info;
}

}  // namespace

GMpeg2MPEG2Stream::GMpeg2MPEG2Stream(const GMpegSequence& sequence)
    : GMpeg2ReadStream(GMpeg2Kind::MpegVideo), width(sequence.width), height(sequence.height)
{
    std::uint64_t period = MpegFramePeriod(sequence.frameRateCode);  // of 27 MHz
    std::uint64_t rate = sequence.bitRate;
    GAspect aspect = Mpeg1Aspect(sequence);
    if (const auto& extension = sequence.extension) {
        width |= std::uint32_t{extension->widthHighBits} << 12;
        height |= std::uint32_t{extension->heightHighBits} << 12;
        rate |= std::uint64_t{extension->bitRateHighBits} << 18;
        period = period * (extension->rateNumerator + 1u) / (extension->rateDenominator + 1u);
        profile = VideoInfoProfile(extension->profile);
        level = VideoInfoLevel(extension->level);
        aspect = Mpeg2Aspect(sequence.aspectCode, width, height);
    }
    timePerFrame = static_cast<REFERENCE_TIME>(period * 10 / 27);
    bitRate = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(rate * kBitRateUnit, std::numeric_limits<std::uint32_t>::max()));
    aspectX = aspect.x;
    aspectY = aspect.y;
    for (const GBytes part : {sequence.header, sequence.firstExtension, sequence.secondExtension})
        Append(configuration, part);
}

GMpegParse GMpeg2MPEG2Stream::Parse(GBytes payload, bool last)
{
    const std::size_t start = FindStartCode(payload);
    if (start == kNotFound || payload[start + 3] != kSequenceHeaderCode)
        return {.stream = nullptr, .cut = start == kNotFound && payload.size() < 4};
    const auto sequence = ReadMpegSequence(payload);
    if (!last && (!sequence || !SequenceEnds(payload)))
        return {.stream = nullptr, .cut = true};
    if (!sequence)
        return {};
    return {.stream = std::make_unique<GMpeg2MPEG2Stream>(*sequence)};
}

std::vector<CMediaType> GMpeg2MPEG2Stream::MediaTypes() const
{
    MPEG2VIDEOINFO info = MakeInfo(width, height, 0, {aspectX, aspectY});
    info.hdr.dwBitRate = bitRate;
    info.hdr.AvgTimePerFrame = timePerFrame;
    info.dwProfile = profile;
    info.dwLevel = level;
    return {MakeMpeg2VideoType(MEDIASUBTYPE_MPEG2_VIDEO, info, configuration)};
}

bool GMpeg2MPEG2Stream::IsSyncPoint(GBytes payload) const { return HasStartCodeOf(payload, kSequenceHeaderCode); }

GMpeg2AVC1Stream::GMpeg2AVC1Stream(const GH264Parameters& sets, GBytes sequenceSet, GBytes pictureSet)
    : GMpeg2ReadStream(GMpeg2Kind::Avc), parameters(sets)
{
    configuration = AvcSequenceHeader(std::span(&sequenceSet, 1), std::span(&pictureSet, 1));
}

GMpegParse GMpeg2AVC1Stream::Parse(GBytes payload, bool last)
{
    GBytes sequenceSet;
    GBytes pictureSet;
    bool cut = !last;  // sets may follow
    GNalUnits units(payload);
    auto unit = units.Next();
    while (unit && (sequenceSet.empty() || pictureSet.empty())) {
        const auto next = units.Next();
        const bool whole = next || last;
        const GNalType type = NalType(*unit);
        if (type == GNalType::Slice || type == GNalType::IdrSlice)
            cut = false;
        if (whole && NalReference(*unit) != 0) {
            if (type == GNalType::SequenceSet && sequenceSet.empty())
                sequenceSet = *unit;
            else if (type == GNalType::PictureSet && pictureSet.empty())
                pictureSet = *unit;
        }
        unit = next;
    }
    if (sequenceSet.empty() || pictureSet.empty())
        return {.stream = nullptr, .cut = cut};
    GH264Parameters parameters;
    if (!ReadSequenceParameterSet(sequenceSet, parameters))
        return {};
    return {.stream = std::make_unique<GMpeg2AVC1Stream>(parameters, sequenceSet, pictureSet)};
}

std::vector<CMediaType> GMpeg2AVC1Stream::MediaTypes() const
{
    constexpr std::uint32_t kNalLengthSize = 4;  // as such types say it; the samples have start codes
    constexpr std::uint32_t kCodedRows = 1088;
    constexpr std::uint32_t kShownRows = 1080;
    constexpr std::uint32_t kFullWidth = 1920;
    const bool uncropped = parameters.width == kFullWidth && parameters.height == kCodedRows;
    const std::uint32_t height = uncropped ? kShownRows : parameters.height;
    const GAspect aspect =
        Reduced(std::uint64_t{parameters.width} * parameters.aspectX, std::uint64_t{height} * parameters.aspectY);
    MPEG2VIDEOINFO info = MakeInfo(parameters.width, height, FourCC("AVC1"), aspect);
    if (parameters.hasTiming && parameters.timeScale != 0) {
        constexpr double kTwoFields = 2.0 * kUnitsPerSecond;
        const double time = kTwoFields * parameters.numUnitsInTick / parameters.timeScale;
        info.hdr.AvgTimePerFrame = static_cast<REFERENCE_TIME>(time);
    }
    info.dwProfile = parameters.profile;
    info.dwLevel = parameters.level;
    info.dwFlags = kNalLengthSize;
    return {MakeMpeg2VideoType(SubtypeFromFourCC("AVC1"), info, configuration)};
}

bool GMpeg2AVC1Stream::IsSyncPoint(GBytes payload) const
{
    for (std::size_t at = FindStartCode(payload); at != kNotFound; at = FindStartCode(payload, at + 3)) {
        const GNalType type = NalType(payload.subspan(at + 3));
        if (type == GNalType::IdrSlice || type == GNalType::SequenceSet || type == GNalType::PictureSet)
            return true;
    }
    return false;
}

GMpeg2VC1Stream::GMpeg2VC1Stream(const GVc1Sequence& sequence)
    : GMpeg2ReadStream(GMpeg2Kind::Vc1), width(sequence.codedWidth), height(sequence.codedHeight)
{
    const std::uint64_t shownWidth = sequence.hasDisplay ? sequence.displayWidth : width;
    const std::uint64_t shownHeight = sequence.hasDisplay ? sequence.displayHeight : height;
    const bool sampleAspect = sequence.aspect.x != 0 && sequence.aspect.y != 0;
    const GAspect aspect = Reduced(shownWidth * (sampleAspect ? sequence.aspect.x : 1),
                                   shownHeight * (sampleAspect ? sequence.aspect.y : 1));
    aspectX = aspect.x;
    aspectY = aspect.y;
    timePerFrame = MulDiv64(kUnitsPerSecond, sequence.rateDenominator, sequence.rateNumerator).value_or(0);
    Append(configuration, sequence.sequenceHeader);
    Append(configuration, sequence.entryPoint);
}

GMpegParse GMpeg2VC1Stream::Parse(GBytes payload, bool last)
{
    const auto sequence = ReadVc1Sequence(payload);
    if (!sequence)
        return {.stream = nullptr, .cut = !last && HasStartCodeOf(payload, kVc1SequenceCode)};
    if (sequence->profile != kVc1Advanced)
        return {};
    const GBytes entry = sequence->entryPoint;
    const bool whole = !entry.empty() && entry.data() + entry.size() != payload.data() + payload.size();
    if (!whole && !last)
        return {.stream = nullptr, .cut = true};
    return {.stream = std::make_unique<GMpeg2VC1Stream>(*sequence)};
}

std::vector<CMediaType> GMpeg2VC1Stream::MediaTypes() const
{
    const GUID subtype = SubtypeFromFourCC("WVC1");
    VIDEOINFOHEADER info{};
    info.AvgTimePerFrame = timePerFrame;
    info.bmiHeader = MakeBitmapHeader(static_cast<LONG>(width), static_cast<LONG>(height), 0, FourCC("WVC1"));
    CMediaType plain = MakeVideoInfoType(subtype, info, configuration);
    CMediaType first = MakeVideoInfo2Twin(plain, aspectX, aspectY);
    return {std::move(first), std::move(plain)};
}

bool GMpeg2VC1Stream::IsSyncPoint(GBytes payload) const { return HasStartCodeOf(payload, kVc1SequenceCode); }

}  // namespace vex
