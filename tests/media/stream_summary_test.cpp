#include "media/stream_summary.h"

#include <gtest/gtest.h>

#include <cstring>

#include "dshow/media_type.h"
#include "media/codec_guids.h"

namespace vex {
namespace {

CMediaType Mpeg2Info(const GUID& subtype, DWORD profile, DWORD level, REFERENCE_TIME frameTime = 333'667)
{
    CMediaType type(MEDIATYPE_Video, subtype);
    MPEG2VIDEOINFO info{};
    info.hdr.bmiHeader.biWidth = 640;
    info.hdr.bmiHeader.biHeight = -360;  // top-down
    info.hdr.AvgTimePerFrame = frameTime;
    info.hdr.dwBitRate = 8'040'000;
    info.dwProfile = profile;
    info.dwLevel = level;
    type.SetFormat(FORMAT_MPEG2Video, {reinterpret_cast<const BYTE*>(&info), sizeof info});
    return type;
}

CMediaType Wave(WORD tag, DWORD bytesPerSecond, WORD blockAlign, WORD channels = 2)
{
    CMediaType type(MEDIATYPE_Audio, SubtypeFromWaveTag(tag));
    WAVEFORMATEX wave{};
    wave.nChannels = channels;
    wave.nSamplesPerSec = 44'100;
    wave.nAvgBytesPerSec = bytesPerSecond;
    wave.nBlockAlign = blockAlign;
    wave.wBitsPerSample = 16;
    type.SetFormat(FORMAT_WaveFormatEx, {reinterpret_cast<const BYTE*>(&wave), sizeof wave});
    return type;
}

TEST(StreamSummary, IsWhatTheMediaTypeKnows)
{
    const struct {
        CMediaType type;
        const char* text;
    } kRows[] = {
        {Mpeg2Info(SubtypeFromFourCC("AVC1"), 77, 30), "H.264 Main@3.0, 640x360, 29.97 fps, 8.0 Mb/s"},
        {Mpeg2Info(SubtypeFromFourCC("AVC1"), 1, 0, 400'000), "H.264, 640x360, 25 fps, 8.0 Mb/s"},
        {Mpeg2Info(MEDIASUBTYPE_MPEG2_VIDEO, 2, 2, 0), "MPEG-2 video Main@Main, 640x360, 8.0 Mb/s"},
        {Wave(0x55, 16'000, 1), "MP3, 44.1 kHz, stereo, 128 kb/s"},
        {Wave(0x01, 176'400, 4), "PCM 16 bit, 44.1 kHz, stereo, 1.4 Mb/s"},
        {Wave(0x2000, 176'400 * 3, 12, 6), "AC-3, 44.1 kHz, 6 channels"},  // a byte rate as of PCM says nothing
        {CMediaType(MEDIATYPE_Subtitle, MEDIASUBTYPE_UTF8), "text"},
        {CMediaType(MEDIATYPE_Video, SubtypeFromFourCC("QQQQ")), "QQQQ"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(SummaryText(SummariseStream(row.type)), row.text);
}

TEST(StreamSummary, ABlockThatIsTooShortIsNotRead)
{
    for (const CMediaType& whole : {Mpeg2Info(MEDIASUBTYPE_MPEG2_VIDEO, 2, 2), Wave(0x55, 16'000, 1)}) {
        for (std::size_t size = 0; size < whole.cbFormat; ++size) {
            CMediaType cut(whole);
            cut.SetFormat(whole.formattype, whole.Format().first(size));
            EXPECT_FALSE(SummaryText(SummariseStream(cut)).empty());
        }
    }
}

}  // namespace
}  // namespace vex
