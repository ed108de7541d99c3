#include "dshow/enumerators.h"

namespace vex {

CEnumPins::CEnumPins(CBaseFilter* source, int firstPosition, LONG pinVersion)
    : CUnknown(nullptr), filter(source), position(firstPosition), version(pinVersion)
{
    filter->AddRef();
}

CEnumPins::~CEnumPins() { filter->Release(); }

HRESULT CEnumPins::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IEnumPins)
        return GetInterface(static_cast<IEnumPins*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CEnumPins::Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched)
{
    if (pcFetched)
        *pcFetched = 0;
    if (!ppPins)
        return E_POINTER;
    if (!pcFetched && cPins > 1)
        return E_INVALIDARG;
    const GMutexLock held(lock);
    if (!InSyncLocked())
        return VFW_E_ENUM_OUT_OF_SYNC;
    ULONG fetched = 0;
    while (fetched < cPins && position < filter->GetPinCount()) {
        CBasePin* pin = filter->GetPin(position);
        if (!pin)
            break;
        pin->AddRef();
        ppPins[fetched++] = pin;
        ++position;
    }
    if (pcFetched)
        *pcFetched = fetched;
    return fetched == cPins ? S_OK : S_FALSE;
}

HRESULT CEnumPins::Skip(ULONG cPins)
{
    const GMutexLock held(lock);
    if (!InSyncLocked())
        return VFW_E_ENUM_OUT_OF_SYNC;
    const ULONG left = static_cast<ULONG>(filter->GetPinCount() - position);
    if (cPins > left) {
        position = filter->GetPinCount();
        return S_FALSE;
    }
    position += static_cast<int>(cPins);
    return S_OK;
}

HRESULT CEnumPins::Reset()
{
    const GMutexLock held(lock);
    version = filter->GetPinVersion();
    position = 0;
    return S_OK;
}

HRESULT CEnumPins::Clone(IEnumPins** ppEnum)
{
    if (!ppEnum)
        return E_POINTER;
    *ppEnum = nullptr;
    return ComGuard([&]() -> HRESULT {
        const GMutexLock held(lock);
        if (!InSyncLocked())
            return VFW_E_ENUM_OUT_OF_SYNC;
        auto* copy = new CEnumPins(filter, position, version);
        copy->AddRef();
        *ppEnum = copy;
        return S_OK;
    });
}

CEnumMediaTypes::CEnumMediaTypes(CBasePin* source, int firstPosition)
    : CUnknown(nullptr), pin(source), position(firstPosition)
{
    pin->AddRef();
}

CEnumMediaTypes::~CEnumMediaTypes() { pin->Release(); }

HRESULT CEnumMediaTypes::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IEnumMediaTypes)
        return GetInterface(static_cast<IEnumMediaTypes*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CEnumMediaTypes::Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched)
{
    if (pcFetched)
        *pcFetched = 0;
    if (!ppMediaTypes)
        return E_POINTER;
    if (!pcFetched && cMediaTypes > 1)
        return E_INVALIDARG;
    return ComGuard([&]() -> HRESULT {
        const GMutexLock held(lock);
        ULONG fetched = 0;
        CMediaType type;
        while (fetched < cMediaTypes && pin->GetMediaType(position, &type) == S_OK) {
            AM_MEDIA_TYPE* copy = CreateMediaType(type);
            if (!copy)
                break;
            ppMediaTypes[fetched++] = copy;
            ++position;
        }
        if (pcFetched)
            *pcFetched = fetched;
        return fetched == cMediaTypes ? S_OK : S_FALSE;
    });
}

HRESULT CEnumMediaTypes::Skip(ULONG cMediaTypes)
{
    return ComGuard([&]() -> HRESULT {
        const GMutexLock held(lock);
        CMediaType type;
        for (ULONG i = 0; i < cMediaTypes; ++i) {
            if (pin->GetMediaType(position, &type) != S_OK)
                return S_FALSE;
            ++position;
        }
        return S_OK;
    });
}

HRESULT CEnumMediaTypes::Reset()
{
    const GMutexLock held(lock);
    position = 0;
    return S_OK;
}

HRESULT CEnumMediaTypes::Clone(IEnumMediaTypes** ppEnum)
{
    if (!ppEnum)
        return E_POINTER;
    *ppEnum = nullptr;
    return ComGuard([&] {
        const GMutexLock held(lock);
        auto* copy = new CEnumMediaTypes(pin, position);
        copy->AddRef();
        *ppEnum = copy;
        return S_OK;
    });
}

}  // namespace vex
