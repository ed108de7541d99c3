// Private control interfaces of the filters, for hosts. All methods may be called from any thread.
#pragma once

#include "platform/pipeline.h"

namespace vex {

inline constexpr IID IID_IVexAVI{0x6BA9DD11, 0x09B9, 0x4C8B, {0x89, 0xA8, 0x8A, 0xC4, 0x45, 0x60, 0x12, 0x14}};
inline constexpr IID IID_IVexMKV{0x9794BD43, 0x281E, 0x45EE, {0x94, 0xCC, 0x70, 0xA2, 0x60, 0xE4, 0x07, 0xB5}};
inline constexpr IID IID_IVexInspect{0x6BA9DD1F, 0x09B9, 0x4C8B, {0x89, 0xA8, 0x8A, 0xC4, 0x45, 0x60, 0x12, 0x14}};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Options of the AVI filter.
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

// Options of the Matroska filter; both off at first. They mean what they mean for AVI.
struct IVexMKV : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetKeyFrameSeek(BOOL enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetKeyFrameSeek(BOOL* pEnable) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPreroll(BOOL enable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPreroll(BOOL* pEnable) = 0;
};

enum VexPropertyType { VexProperty_Text = 0, VexProperty_Integer = 1, VexProperty_Boolean = 2 };

// What every filter tells of the loaded file beyond its pins. Texts are BSTRs that the caller frees.
// VFW_E_WRONG_STATE before a file is loaded; E_INVALIDARG for an index out of range.
struct IVexInspect : public IUnknown {
    // Facts of the file (pin = -1) or of one pin (0-based, in pin order).
    virtual HRESULT STDMETHODCALLTYPE GetPropertyCount(LONG pin, ULONG* pCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperty(LONG pin, ULONG index, BSTR* pName, BSTR* pValue,
                                                  VexPropertyType* pType) = 0;
    // English language name of a pin's stream; an empty text when it has none.
    virtual HRESULT STDMETHODCALLTYPE GetPinLanguage(LONG pin, BSTR* pLanguage) = 0;
    // Damage met so far: places, bytes passed over, and the first one in words (null when there is none).
    virtual HRESULT STDMETHODCALLTYPE GetDamage(ULONGLONG* pPlaces, ULONGLONG* pBytes, BSTR* pFirst) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAttachmentCount(ULONG* pCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAttachment(ULONG index, BSTR* pName, BSTR* pMimeType, BSTR* pDescription,
                                                    ULONGLONG* pSize) = 0;
    // Exactly `cb` bytes from `offset` of an attachment; E_FAIL when they are not all there.
    virtual HRESULT STDMETHODCALLTYPE ReadAttachment(ULONG index, ULONGLONG offset, BYTE* pBuffer, ULONG cb) = 0;
    // S_FALSE while an index is still being built out of what is in the file; until then seeks may land short of the end.
    virtual HRESULT STDMETHODCALLTYPE IsIndexComplete() = 0;
};

#pragma GCC diagnostic pop

}  // namespace vex
