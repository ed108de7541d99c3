// What a host needs to know of the MP4 filter: its class identifier and its private interface.
#pragma once

#include "platform/pipeline.h"

namespace vex {

inline constexpr CLSID CLSID_VexMp4{0xD18284FE, 0xDE51, 0x4F33, {0xA9, 0xBB, 0xA8, 0xD3, 0xAE, 0x4B, 0x66, 0xBB}};

inline constexpr IID IID_IVexMP4{0xD18284FF, 0xDE51, 0x4F33, {0xA9, 0xBB, 0xA8, 0xD3, 0xAE, 0x4B, 0x66, 0xBB}};

// Values of IVexMP4::GetDownloadState.
enum VexMp4DownloadState : ULONG {
    VexMp4Download_None = 0,     // no download, or the server has not answered yet
    VexMp4Download_Running = 2,  // the body arrives; also after a download that was stopped
    VexMp4Download_Done = 3,     // loading is over: the pins are there, or it failed
};

// Event for the graph while a file of known length is downloaded: the first parameter is the percentage that has
// arrived, the second is 0.
inline constexpr LONG kVexMp4DownloadEvent = 0xB011;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// What the MP4 filter tells of a file that arrives over the network. All methods may be called from any thread; those
// with a pointer return E_POINTER for null.
struct IVexMP4 : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetDownloadState(ULONG* pState) = 0;
    // Two values that the filter keeps for the host. 0 at first.
    virtual HRESULT STDMETHODCALLTYPE SetHostValue1(LONG value) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHostValue1(LONG* pValue) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetHostValue2(LONG value) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHostValue2(LONG* pValue) = 0;
    // How far the data that is in the file reaches, 100 ns. Never less than it said before; 0 before a file is loaded.
    virtual HRESULT STDMETHODCALLTYPE GetAvailableTime(LONGLONG* pTime) = 0;
};

#pragma GCC diagnostic pop

}  // namespace vex
