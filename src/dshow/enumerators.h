// Enumerators of a filter's pins and of a pin's media types.
#pragma once

#include "dshow/base_filter.h"

namespace vex {

// VFW_E_ENUM_OUT_OF_SYNC from Next, Skip and Clone once the filter's pins have changed; Reset starts over in step.
class CEnumPins final : public CUnknown, public IEnumPins {
public:
    CEnumPins(CBaseFilter* source, int firstPosition, LONG pinVersion);
    ~CEnumPins() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) override;
    STDMETHODIMP Skip(ULONG cPins) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumPins** ppEnum) override;

private:
    bool InSyncLocked() const G_REQUIRES(lock) { return filter->GetPinVersion() == version; }

    CBaseFilter* const filter;  // holds a reference
    GMutex lock;
    int position G_GUARDED_BY(lock);
    LONG version G_GUARDED_BY(lock);
};

class CEnumMediaTypes final : public CUnknown, public IEnumMediaTypes {
public:
    CEnumMediaTypes(CBasePin* source, int firstPosition);
    ~CEnumMediaTypes() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    STDMETHODIMP Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) override;
    STDMETHODIMP Skip(ULONG cMediaTypes) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumMediaTypes** ppEnum) override;

private:
    CBasePin* const pin;  // holds a reference
    GMutex lock;
    int position G_GUARDED_BY(lock);
};

}  // namespace vex
