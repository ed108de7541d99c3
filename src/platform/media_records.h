// Format records handed to other modules: their binary layout is that of the SDK on every target.
#pragma once

#include "platform/com.h"

#ifdef _WIN32

// In this order: the second pair leans on the first without including it.
#include <mmreg.h>
#include <strmif.h>

#include <amvideo.h>
#include <dvdmedia.h>

#else

using REFERENCE_TIME = LONGLONG;  // 100 ns

struct AM_MEDIA_TYPE {
    GUID majortype;
    GUID subtype;
    BOOL bFixedSizeSamples;
    BOOL bTemporalCompression;
    ULONG lSampleSize;  // bytes
    GUID formattype;
    IUnknown* pUnk;
    ULONG cbFormat;  // bytes at pbFormat
    BYTE* pbFormat;  // task memory, owned by the record
};

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};

#pragma pack(push, 1)

struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};

struct MPEG1WAVEFORMAT {
    WAVEFORMATEX wfx;
    WORD fwHeadLayer;
    DWORD dwHeadBitrate;  // bit/s
    WORD fwHeadMode;
    WORD fwHeadModeExt;
    WORD wHeadEmphasis;
    WORD fwHeadFlags;
    DWORD dwPTSLow;
    DWORD dwPTSHigh;
};

#pragma pack(pop)

struct VIDEOINFOHEADER {
    RECT rcSource;
    RECT rcTarget;
    DWORD dwBitRate;
    DWORD dwBitErrorRate;
    REFERENCE_TIME AvgTimePerFrame;
    BITMAPINFOHEADER bmiHeader;
};

struct VIDEOINFOHEADER2 {
    RECT rcSource;
    RECT rcTarget;
    DWORD dwBitRate;
    DWORD dwBitErrorRate;
    REFERENCE_TIME AvgTimePerFrame;
    DWORD dwInterlaceFlags;
    DWORD dwCopyProtectFlags;
    DWORD dwPictAspectRatioX;
    DWORD dwPictAspectRatioY;
    union {
        DWORD dwControlFlags;
        DWORD dwReserved1;
    };
    DWORD dwReserved2;
    BITMAPINFOHEADER bmiHeader;
};

struct MPEG1VIDEOINFO {
    VIDEOINFOHEADER hdr;
    DWORD dwStartTimeCode;
    DWORD cbSequenceHeader;
    BYTE bSequenceHeader[1];
};

struct MPEG2VIDEOINFO {
    VIDEOINFOHEADER2 hdr;
    DWORD dwStartTimeCode;
    DWORD cbSequenceHeader;
    DWORD dwProfile;
    DWORD dwLevel;
    DWORD dwFlags;
    DWORD dwSequenceHeader[1];
};

inline constexpr DWORD BI_RGB = 0;
inline constexpr DWORD BI_BITFIELDS = 3;
inline constexpr WORD WAVE_FORMAT_PCM = 0x0001;
inline constexpr WORD WAVE_FORMAT_MPEGLAYER3 = 0x0055;

#endif

static_assert(sizeof(BITMAPINFOHEADER) == 40);
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(MPEG1WAVEFORMAT) == 40);
static_assert(offsetof(VIDEOINFOHEADER, bmiHeader) == 48 && sizeof(VIDEOINFOHEADER) == 88);
static_assert(offsetof(VIDEOINFOHEADER2, bmiHeader) == 72 && sizeof(VIDEOINFOHEADER2) == 112);
static_assert(offsetof(VIDEOINFOHEADER2, dwPictAspectRatioX) == 56);
static_assert(offsetof(MPEG1VIDEOINFO, bSequenceHeader) == 96);
static_assert(offsetof(MPEG2VIDEOINFO, dwStartTimeCode) == 112 && offsetof(MPEG2VIDEOINFO, dwFlags) == 128);
static_assert(offsetof(MPEG2VIDEOINFO, dwSequenceHeader) == 132);
