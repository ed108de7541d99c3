#include <memory>

#include "dshow/base_filter.h"
#include "dshow/enumerators.h"
#include "platform/on_exit.h"

namespace vex {

CBasePin::CBasePin(CBaseFilter* owningFilter, WString pinName, PIN_DIRECTION dir)
    : CUnknown(nullptr), filter(owningFilter), name(std::move(pinName)), direction(dir)
{
}

HRESULT CBasePin::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IPin)
        return GetInterface(static_cast<IPin*>(this), ppv);
    if (riid == IID_IQualityControl)
        return GetInterface(static_cast<IQualityControl*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

ULONG CBasePin::NonDelegatingAddRef() { return filter->AddRef(); }

ULONG CBasePin::NonDelegatingRelease() { return filter->Release(); }

bool CBasePin::IsConnected()
{
    const GMutexLock held(pinLock);
    return static_cast<bool>(peer);
}

GComPtr<IPin> CBasePin::Peer()
{
    const GMutexLock held(pinLock);
    return peer;
}

CMediaType CBasePin::ConnectedType()
{
    const GMutexLock held(pinLock);
    return connectedType;
}

HRESULT CBasePin::CheckConnect(IPin* receivePin)
{
    PIN_DIRECTION other = PINDIR_INPUT;
    const HRESULT hr = receivePin->QueryDirection(&other);
    if (FAILED(hr))
        return hr;
    return other == direction ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT CBasePin::Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt)
{
    if (!pReceivePin)
        return E_POINTER;
    if (filter->OnOwnThread())
        return VFW_E_NOT_STOPPED;
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&filter->changeLock);
        if (IsConnected())
            return VFW_E_ALREADY_CONNECTED;
        if (!filter->IsStopped())
            return VFW_E_NOT_STOPPED;
        bool agreed = false;
        const GOnExit undo([&] {
            if (!agreed)
                BreakConnect();
        });
        HRESULT hr = CheckConnect(pReceivePin);
        if (SUCCEEDED(hr))
            hr = AgreeMediaType(pReceivePin, pmt);
        agreed = SUCCEEDED(hr);
        return hr;
    });
}

// A complete type is tried as it is; a partial one selects among what the two pins offer.
HRESULT CBasePin::AgreeMediaType(IPin* receivePin, const AM_MEDIA_TYPE* wanted)
{
    if (wanted && wanted->majortype != GUID_NULL && wanted->formattype != GUID_NULL)
        return AttemptConnection(receivePin, CMediaType(*wanted));
    // What the peer asks for by itself, it takes best.
    HRESULT result = VFW_E_NO_ACCEPTABLE_TYPES;
    for (IPin* offering : {receivePin, static_cast<IPin*>(this)}) {
        const HRESULT hr = TryTypes(offering, receivePin, wanted);
        if (SUCCEEDED(hr))
            return hr;
        if (hr != VFW_E_NO_ACCEPTABLE_TYPES)
            result = hr;
    }
    return result;
}

// The types that `offering` enumerates, in its order of preference.
HRESULT CBasePin::TryTypes(IPin* offering, IPin* receivePin, const AM_MEDIA_TYPE* wanted)
{
    HRESULT result = VFW_E_NO_ACCEPTABLE_TYPES;
    GComPtr<IEnumMediaTypes> types;
    if (FAILED(offering->EnumMediaTypes(types.Put())) || !types)
        return result;
    AM_MEDIA_TYPE* offered = nullptr;
    while (types->Next(1, &offered, nullptr) == S_OK) {
        const std::unique_ptr<AM_MEDIA_TYPE, decltype(&DeleteMediaType)> owned(offered, DeleteMediaType);
        const CMediaType type(*offered);
        if (wanted && !type.MatchesPartial(*wanted))
            continue;
        const HRESULT hr = AttemptConnection(receivePin, type);
        if (SUCCEEDED(hr))
            return hr;
        // "Does not like this type" is no more than the default answer; anything else says more.
        if (hr != E_FAIL && hr != E_INVALIDARG && hr != VFW_E_TYPE_NOT_ACCEPTED)
            result = hr;
    }
    return result;
}

// Leaves no connection at either end unless it succeeds.
HRESULT CBasePin::AttemptConnection(IPin* receivePin, const CMediaType& type)
{
    if (CheckMediaType(&type) != S_OK)
        return VFW_E_TYPE_NOT_ACCEPTED;
    CMediaType ours = type;
    {
        const GMutexLock held(pinLock);
        peer = GComPtr<IPin>(receivePin);
        std::swap(connectedType, ours);
    }
    bool received = false;
    bool complete = false;
    const GOnExit undo([&] {
        if (complete)
            return;
        if (received)
            receivePin->Disconnect();
        ForgetPeer();
    });
    HRESULT hr = receivePin->ReceiveConnection(static_cast<IPin*>(this), &type);
    received = SUCCEEDED(hr);
    if (received)
        hr = CompleteConnect(receivePin);
    complete = SUCCEEDED(hr);
    return hr;
}

void CBasePin::ForgetPeer()
{
    GComPtr<IPin> dropped;  // released after the lock
    const GMutexLock held(pinLock);
    std::swap(dropped, peer);
    connectedType.Clear();
}

HRESULT CBasePin::ReceiveConnection(IPin*, const AM_MEDIA_TYPE*)
{
    return E_UNEXPECTED;  // an output pin connects, it is not connected to
}

HRESULT CBasePin::Disconnect()
{
    if (filter->OnOwnThread())
        return VFW_E_NOT_STOPPED;
    return ComGuard([&]() -> HRESULT {
        const CAutoLock change(&filter->changeLock);
        if (!filter->IsStopped())
            return VFW_E_NOT_STOPPED;
        if (!IsConnected())
            return S_FALSE;
        const HRESULT hr = BreakConnect();
        if (FAILED(hr))
            return hr;
        ForgetPeer();
        return S_OK;
    });
}

HRESULT CBasePin::ConnectedTo(IPin** pPin)
{
    if (!pPin)
        return E_POINTER;
    *pPin = Peer().Detach();
    return *pPin ? S_OK : VFW_E_NOT_CONNECTED;
}

HRESULT CBasePin::ConnectionMediaType(AM_MEDIA_TYPE* pmt)
{
    if (!pmt)
        return E_POINTER;
    const GMutexLock held(pinLock);
    if (peer)
        return connectedType.CopyTo(pmt);
    *pmt = AM_MEDIA_TYPE{};
    return VFW_E_NOT_CONNECTED;
}

HRESULT CBasePin::QueryPinInfo(PIN_INFO* pInfo)
{
    if (!pInfo)
        return E_POINTER;
    pInfo->pFilter = filter;
    filter->AddRef();
    pInfo->dir = direction;
    CopyName(pInfo->achName, MAX_PIN_NAME, name);
    return S_OK;
}

HRESULT CBasePin::QueryDirection(PIN_DIRECTION* pPinDir)
{
    if (!pPinDir)
        return E_POINTER;
    *pPinDir = direction;
    return S_OK;
}

HRESULT CBasePin::QueryAccept(const AM_MEDIA_TYPE* pmt)
{
    if (!pmt)
        return E_POINTER;
    return ComGuard([&]() -> HRESULT {
        const CMediaType type(*pmt);
        return CheckMediaType(&type) == S_OK ? S_OK : S_FALSE;
    });
}

HRESULT CBasePin::EnumMediaTypes(IEnumMediaTypes** ppEnum)
{
    if (!ppEnum)
        return E_POINTER;
    *ppEnum = nullptr;
    return ComGuard([&] {
        auto* types = new CEnumMediaTypes(this, 0);
        types->AddRef();
        *ppEnum = types;
        return S_OK;
    });
}

HRESULT CBasePin::QueryInternalConnections(IPin**, ULONG*)
{
    return E_NOTIMPL;  // every output depends on every input
}

}  // namespace vex
