// The Matroska source filter.
#pragma once

#include "framework/source_filter.h"

namespace vex {

class CMKV_Filter final : public CVexFilter, public IVexMKV {
public:
    CMKV_Filter(WString filterName, IUnknown* outer);

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IVexMKV
    STDMETHODIMP SetKeyFrameSeek(BOOL enable) override;
    STDMETHODIMP GetKeyFrameSeek(BOOL* pEnable) override;
    STDMETHODIMP SetPreroll(BOOL enable) override;
    STDMETHODIMP GetPreroll(BOOL* pEnable) override;

protected:
    std::unique_ptr<CVexOutputPin> MakePin(WString pinName, const GStreamInfo& stream) override;
};

// Creation function of the class factory.
CUnknown* CreateMkvFilter(IUnknown* outer, HRESULT* result);

}  // namespace vex
