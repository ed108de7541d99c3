// What a host needs to know of the Ogg filters: their class identifiers and the private interface.
#pragma once

#include "platform/pipeline.h"

namespace vex {

inline constexpr CLSID CLSID_VexOgg{0x8B359726, 0xD939, 0x41A8, {0x8C, 0xBD, 0x69, 0xA2, 0x76, 0x75, 0xD9, 0x78}};
inline constexpr CLSID CLSID_VexOgg2{0x4A9A79B3, 0x6EAA, 0x46AE, {0xB0, 0x24, 0x59, 0x18, 0xC0, 0x4C, 0x16, 0x9E}};

inline constexpr IID IID_IVexOGG2{0x4A9A79B4, 0x6EAA, 0x46AE, {0xB0, 0x24, 0x59, 0x18, 0xC0, 0x4C, 0x16, 0x9E}};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Options of the second Ogg filter. All methods may be called from any thread.
struct IVexOGG2 : public IUnknown {
    // Seeks land on the first video key frame behind the request (needs the preroll option too). Off at first.
    virtual HRESULT STDMETHODCALLTYPE SetKeyFrameSeek(LONG enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetKeyFrameSeek(LONG* pEnable) = 0;
    // Duration as known now, 100 ns; it may grow. E_POINTER for null.
    virtual HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) = 0;
    // Samples at or before the segment's start are marked preroll. On at first.
    virtual HRESULT STDMETHODCALLTYPE SetPrerollMark(LONG enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPrerollMark(LONG* pEnable) = 0;
};

#pragma GCC diagnostic pop

}  // namespace vex
