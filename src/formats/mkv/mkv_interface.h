// What a host needs to know of the Matroska filter: its class identifier and its private interface.
#pragma once

#include "platform/pipeline.h"

namespace vex {

inline constexpr CLSID CLSID_VexMkv{0x9794BD42, 0x281E, 0x45EE, {0x94, 0xCC, 0x70, 0xA2, 0x60, 0xE4, 0x07, 0xB5}};

inline constexpr IID IID_IVexMKV{0x9794BD43, 0x281E, 0x45EE, {0x94, 0xCC, 0x70, 0xA2, 0x60, 0xE4, 0x07, 0xB5}};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Options of the Matroska filter; both off at first. All methods may be called from any thread.
struct IVexMKV : public IUnknown {
    // Seeks land on the first key frame at or after the request (needs the preroll option too).
    virtual HRESULT STDMETHODCALLTYPE SetKeyFrameSeek(BOOL enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetKeyFrameSeek(BOOL* pEnable) = 0;
    // Samples at or before the segment's start are marked preroll.
    virtual HRESULT STDMETHODCALLTYPE SetPreroll(BOOL enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPreroll(BOOL* pEnable) = 0;
};

#pragma GCC diagnostic pop

}  // namespace vex
