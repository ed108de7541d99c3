// The AVI source filter.
#pragma once

#include "framework/source_filter.h"

namespace vex {

class CAVI2_Filter final : public CVexFilter, public IVexAVI {
public:
    CAVI2_Filter(WString filterName, IUnknown* outer);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IVexAVI
    STDMETHODIMP Reserved1() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved2() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved3() override { return E_NOTIMPL; }
    STDMETHODIMP GetDuration(LONGLONG* pDuration) override;
    STDMETHODIMP SetKeyFrameSeek(LONG enable) override;
    STDMETHODIMP GetKeyFrameSeek(LONG* pEnable) override;
    STDMETHODIMP SetPrerollMark(LONG enable) override;
    STDMETHODIMP GetPrerollMark(LONG* pEnable) override;

protected:
    std::optional<WString> NamePin(const GStreamInfo& stream, std::size_t index) override;
};

// Creation function of the class factory.
CUnknown* CreateAviFilter(IUnknown* outer, HRESULT* result);

}  // namespace vex
