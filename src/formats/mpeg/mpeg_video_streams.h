// Video in MPEG containers. `Parse` gets a payload without its PES header; `last`: no more of it is going to come.
#pragma once

#include "formats/mpeg/mpeg_read_stream.h"
#include "media/h264_parameters.h"
#include "media/mpeg_video.h"
#include "media/vc1_header.h"

namespace vex {

// MPEG-1 and MPEG-2 video.
class GMpeg2MPEG2Stream final : public GMpeg2ReadStream {
public:
    explicit GMpeg2MPEG2Stream(const GMpegSequence& sequence);
    static GMpegParse Parse(GBytes payload, bool last);

    std::vector<CMediaType> MediaTypes() const override;
    bool IsSyncPoint(GBytes payload) const override;

private:
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t aspectX = 0;
    std::uint32_t aspectY = 0;
    std::uint32_t bitRate = 0;  // bit/s
    REFERENCE_TIME timePerFrame = 0;
    std::uint32_t profile = 0;
    std::uint32_t level = 0;
};

// H.264 in its byte stream format.
class GMpeg2AVC1Stream final : public GMpeg2ReadStream {
public:
    GMpeg2AVC1Stream(const GH264Parameters& sets, GBytes sequenceSet, GBytes pictureSet);
    static GMpegParse Parse(GBytes payload, bool last);

    std::vector<CMediaType> MediaTypes() const override;
    bool IsSyncPoint(GBytes payload) const override;

private:
    const GH264Parameters parameters;
};

// VC-1, advanced profile.
class GMpeg2VC1Stream final : public GMpeg2ReadStream {
public:
    explicit GMpeg2VC1Stream(const GVc1Sequence& sequence);
    static GMpegParse Parse(GBytes payload, bool last);

    std::vector<CMediaType> MediaTypes() const override;
    bool IsSyncPoint(GBytes payload) const override;

private:
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t aspectX = 0;
    std::uint32_t aspectY = 0;
    REFERENCE_TIME timePerFrame = 0;
};

}  // namespace vex
