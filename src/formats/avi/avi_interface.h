// What a host needs to know of the AVI filter: its class identifier and its private interface.
#pragma once

#include "platform/pipeline.h"

namespace vex {

inline constexpr CLSID CLSID_VexAvi{0x6BA9DD10, 0x09B9, 0x4C8B, {0x89, 0xA8, 0x8A, 0xC4, 0x45, 0x60, 0x12, 0x14}};

inline constexpr IID IID_IVexAVI{0x6BA9DD11, 0x09B9, 0x4C8B, {0x89, 0xA8, 0x8A, 0xC4, 0x45, 0x60, 0x12, 0x14}};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Options of the AVI filter. All methods may be called from any thread.
struct IVexAVI : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Reserved1() = 0;  // E_NOTIMPL
    virtual HRESULT STDMETHODCALLTYPE Reserved2() = 0;
    virtual HRESULT STDMETHODCALLTYPE Reserved3() = 0;
    // Longest stream as known now, 100 ns; E_POINTER for null.
    virtual HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) = 0;
    // Seeks land on the first key frame at or after the request (needs the preroll option too). Off at first.
    virtual HRESULT STDMETHODCALLTYPE SetKeyFrameSeek(LONG enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetKeyFrameSeek(LONG* pEnable) = 0;
    // Samples at or before the segment's start are marked preroll. On at first.
    virtual HRESULT STDMETHODCALLTYPE SetPrerollMark(LONG enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPrerollMark(LONG* pEnable) = 0;
};

#pragma GCC diagnostic pop

}  // namespace vex
