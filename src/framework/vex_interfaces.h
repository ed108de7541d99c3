// The private interface that every filter has. Those of single formats are in formats/<x>/<x>_interface.h.
#pragma once

#include "platform/pipeline.h"

namespace vex {

inline constexpr IID IID_IVexInspect{0x6BA9DD1F, 0x09B9, 0x4C8B, {0x89, 0xA8, 0x8A, 0xC4, 0x45, 0x60, 0x12, 0x14}};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

enum VexLoadState {
    VexLoad_None = 0,     // no file yet
    VexLoad_Running = 1,  // Load has returned, the pins are still to come
    VexLoad_Done = 2,
    VexLoad_Failed = 3,
};

enum VexPropertyType { VexProperty_Text = 0, VexProperty_Integer = 1, VexProperty_Boolean = 2 };

// What every filter tells of the loaded file beyond its pins. All methods may be called from any thread. Texts are
// BSTRs that the caller frees. VFW_E_WRONG_STATE before a file is loaded; E_INVALIDARG for an index out of range.
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
    // S_FALSE while an index is still being built out of what is in the file; until then seeks may land short of the
    // end.
    virtual HRESULT STDMETHODCALLTYPE IsIndexComplete() = 0;
    // Never VFW_E_WRONG_STATE. `pReason`, which may be null: why the load failed, or why the file that was loaded is
    // not whole; null when neither is the case.
    virtual HRESULT STDMETHODCALLTYPE GetLoadState(VexLoadState* pState, BSTR* pReason) = 0;
    // The options of the formats' own interfaces, for a host that treats all filters alike; E_NOTIMPL for a filter
    // without them. `keyFrames`: seeks land on a key frame (needs `preroll` too). `preroll`: samples ahead of the
    // segment are marked.
    virtual HRESULT STDMETHODCALLTYPE SetSeekOptions(BOOL keyFrames, BOOL preroll) = 0;
    // Bytes fetched so far of a file that has to be fetched, and how many there are; S_FALSE and a total of 0 as long
    // as the latter is not known. Never VFW_E_WRONG_STATE.
    virtual HRESULT STDMETHODCALLTYPE GetLoadProgress(ULONGLONG* pDone, ULONGLONG* pTotal) = 0;
};

#pragma GCC diagnostic pop

}  // namespace vex
