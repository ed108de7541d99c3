#include "media/video_types.h"

#include <algorithm>
#include <cstring>

namespace vex {

namespace {

constexpr std::size_t kSequence1 = offsetof(MPEG1VIDEOINFO, bSequenceHeader);
constexpr std::size_t kSequence2 = offsetof(MPEG2VIDEOINFO, dwSequenceHeader);

// All four format blocks begin alike, and the two with an aspect ratio have it at the same place.
static_assert(offsetof(VIDEOINFOHEADER, AvgTimePerFrame) == offsetof(VIDEOINFOHEADER2, AvgTimePerFrame));
static_assert(offsetof(MPEG1VIDEOINFO, hdr) == 0 && offsetof(MPEG2VIDEOINFO, hdr) == 0);

// A block of at least `blockSize` bytes: the first `headSize` bytes of `head`, then `behind`.
CMediaType MakeType(REFGUID subtype, REFGUID formatType, const void* head, std::size_t headSize, GBytes behind,
                    std::size_t blockSize = 0)
{
    CMediaType type = MakeVideoType(subtype);
    const std::span<BYTE> block = type.AllocFormat(formatType, std::max(blockSize, headSize + behind.size()));
    std::memcpy(block.data(), head, headSize);
    if (!behind.empty())
        std::memcpy(block.data() + headSize, behind.data(), behind.size());
    return type;
}

bool HasAspect(const AM_MEDIA_TYPE& type)
{
    return (type.formattype == FORMAT_VideoInfo2 || type.formattype == FORMAT_MPEG2Video) &&
           type.cbFormat >= sizeof(VIDEOINFOHEADER2);
}

bool IsVideoBlock(const AM_MEDIA_TYPE& type)
{
    return HasAspect(type) || ((type.formattype == FORMAT_VideoInfo || type.formattype == FORMAT_MPEGVideo) &&
                               type.cbFormat >= sizeof(VIDEOINFOHEADER));
}

template <class T>
void Put(CMediaType& type, std::size_t offset, T value)
{
    std::memcpy(type.pbFormat + offset, &value, sizeof value);
}

}  // namespace

BITMAPINFOHEADER MakeBitmapHeader(LONG width, LONG height, WORD bitCount, std::uint32_t compression)
{
    BITMAPINFOHEADER header{};
    header.biSize = sizeof header;
    header.biWidth = width;
    header.biHeight = height;
    header.biPlanes = 1;
    header.biBitCount = bitCount;
    header.biCompression = compression;
    return header;
}

CMediaType MakeVideoType(REFGUID subtype)
{
    CMediaType type(MEDIATYPE_Video, subtype);
    type.SetSampleSize(0);
    type.bTemporalCompression = TRUE;
    return type;
}

CMediaType MakeVideoInfoType(REFGUID subtype, const VIDEOINFOHEADER& info, GBytes behind)
{
    return MakeType(subtype, FORMAT_VideoInfo, &info, sizeof info, behind);
}

CMediaType MakeMpeg1VideoType(REFGUID subtype, const MPEG1VIDEOINFO& info, GBytes sequenceHeader)
{
    MPEG1VIDEOINFO head = info;
    head.cbSequenceHeader = static_cast<DWORD>(sequenceHeader.size());
    return MakeType(subtype, FORMAT_MPEGVideo, &head, kSequence1, sequenceHeader, sizeof head);
}

CMediaType MakeMpeg2VideoType(REFGUID subtype, const MPEG2VIDEOINFO& info, GBytes sequenceHeader, std::size_t blockSize)
{
    MPEG2VIDEOINFO head = info;
    head.cbSequenceHeader = static_cast<DWORD>(sequenceHeader.size());
    return MakeType(subtype, FORMAT_MPEG2Video, &head, kSequence2, sequenceHeader, std::max(blockSize, sizeof head));
}

CMediaType MakeVideoInfo2Twin(const CMediaType& type, DWORD aspectX, DWORD aspectY)
{
    constexpr std::size_t kCommon = offsetof(VIDEOINFOHEADER, bmiHeader);
    constexpr std::size_t kAdded = offsetof(VIDEOINFOHEADER2, bmiHeader) - kCommon;
    if (type.formattype != FORMAT_VideoInfo || type.cbFormat < sizeof(VIDEOINFOHEADER))
        return {};
    CMediaType twin(type);
    const std::span<BYTE> block = twin.AllocFormat(FORMAT_VideoInfo2, type.cbFormat + kAdded);
    std::memcpy(block.data(), type.pbFormat, kCommon);
    std::memcpy(block.data() + kCommon + kAdded, type.pbFormat + kCommon, type.cbFormat - kCommon);
    SetAspect(twin, aspectX, aspectY);
    return twin;
}

void SetFrameTime(CMediaType& type, REFERENCE_TIME timePerFrame)
{
    if (IsVideoBlock(type))
        Put(type, offsetof(VIDEOINFOHEADER, AvgTimePerFrame), timePerFrame);
}

void SetAspect(CMediaType& type, DWORD aspectX, DWORD aspectY)
{
    if (!HasAspect(type))
        return;
    Put(type, offsetof(VIDEOINFOHEADER2, dwPictAspectRatioX), aspectX);
    Put(type, offsetof(VIDEOINFOHEADER2, dwPictAspectRatioY), aspectY);
}

std::optional<GBytes> SequenceHeader(const CMediaType& type)
{
    const bool mpeg1 = type.formattype == FORMAT_MPEGVideo;
    const std::size_t start = mpeg1 ? kSequence1 : kSequence2;
    if ((!mpeg1 && type.formattype != FORMAT_MPEG2Video) || type.cbFormat < start)
        return std::nullopt;
    DWORD size = 0;
    const std::size_t offset =
        mpeg1 ? offsetof(MPEG1VIDEOINFO, cbSequenceHeader) : offsetof(MPEG2VIDEOINFO, cbSequenceHeader);
    std::memcpy(&size, type.pbFormat + offset, sizeof size);
    const GBytes behind = type.Format().subspan(start);
    if (size > behind.size())
        return std::nullopt;
    return behind.first(size);
}

}  // namespace vex
