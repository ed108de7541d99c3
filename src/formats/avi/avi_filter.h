// The AVI source filter.
#pragma once

#include "formats/avi/avi_interface.h"
#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kAviRules{.firstVideoOnly = true, .seekOptions = true};

class CAVI2_Filter final : public CVexFilter, public IVexAVI {
public:
    explicit CAVI2_Filter(IUnknown* outer);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IVexAVI
    STDMETHODIMP Reserved1() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved2() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved3() override { return E_NOTIMPL; }
    STDMETHODIMP GetDuration(LONGLONG* pDuration) override;
    STDMETHODIMP SetKeyFrameSeek(LONG enable) override { return SetOption(keyFrameSeek, enable); }
    STDMETHODIMP GetKeyFrameSeek(LONG* pEnable) override { return GetOption(keyFrameSeek, pEnable); }
    STDMETHODIMP SetPrerollMark(LONG enable) override { return SetOption(prerollMark, enable); }
    STDMETHODIMP GetPrerollMark(LONG* pEnable) override { return GetOption(prerollMark, pEnable); }
};

}  // namespace vex
