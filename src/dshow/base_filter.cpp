#include "dshow/base_filter.h"

#include <algorithm>

#include "dshow/enumerators.h"
#include "platform/on_exit.h"

namespace vex {

CBaseFilter::GStateChange::GStateChange(CBaseFilter& changingFilter) : filter(changingFilter)
{
    const GMutexLock held(filter.stateLock);
    ++filter.changing;
    filter.changer = ThisThreadId();
}

CBaseFilter::GStateChange::~GStateChange()
{
    const GMutexLock held(filter.stateLock);
    --filter.changing;
    filter.stateChanged.notify_all();
}

void CBaseFilter::GStateChange::Reached(FILTER_STATE newState)
{
    const GMutexLock held(filter.stateLock);
    filter.state = newState;
}

CBaseFilter::CBaseFilter(WString filterName, IUnknown* outer, REFCLSID clsid)
    : CUnknown(outer), classId(clsid), name(std::move(filterName))
{
}

CBaseFilter::~CBaseFilter() = default;

HRESULT CBaseFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (riid == IID_IBaseFilter || riid == IID_IMediaFilter || riid == IID_IPersist)
        return GetInterface(static_cast<IBaseFilter*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

HRESULT CBaseFilter::GetClassID(CLSID* pClassID)
{
    if (!pClassID)
        return E_POINTER;
    *pClassID = classId;
    return S_OK;
}

FILTER_STATE CBaseFilter::State()
{
    const GMutexLock held(stateLock);
    return state;
}

HRESULT CBaseFilter::Stop()
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    const CAutoLock change(&changeLock);
    GStateChange progress(*this);
    HRESULT result = S_OK;
    if (State() != State_Stopped) {
        for (int i = 0; i < GetPinCount(); ++i) {
            CBasePin* pin = GetPin(i);
            if (!pin->IsConnected())
                continue;
            const HRESULT hr = pin->Inactive();
            if (FAILED(hr) && SUCCEEDED(result))
                result = hr;
        }
    }
    progress.Reached(State_Stopped);
    return result;
}

HRESULT CBaseFilter::Pause()
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    const CAutoLock change(&changeLock);
    GStateChange progress(*this);
    if (State() == State_Stopped) {
        const HRESULT hr = ActivatePins();
        if (FAILED(hr))
            return hr;
    }
    progress.Reached(State_Paused);
    return S_OK;
}

// All of them or, also when one throws, none.
HRESULT CBaseFilter::ActivatePins()
{
    int begun = 0;
    bool done = false;
    const GOnExit undo([&] {
        for (int i = 0; i < begun && !done; ++i)
            if (GetPin(i)->IsConnected())
                GetPin(i)->Inactive();
    });
    while (begun < GetPinCount()) {
        CBasePin* pin = GetPin(begun++);
        const HRESULT hr = pin->IsConnected() ? pin->Active() : S_OK;
        if (FAILED(hr))
            return hr;
    }
    done = true;
    return S_OK;
}

HRESULT CBaseFilter::Run(REFERENCE_TIME)
{
    if (OnOwnThread())
        return VFW_E_WRONG_STATE;
    const CAutoLock change(&changeLock);
    GStateChange progress(*this);
    if (State() == State_Stopped) {
        const HRESULT hr = Pause();
        if (FAILED(hr))
            return hr;
    }
    progress.Reached(State_Running);
    return S_OK;
}

HRESULT CBaseFilter::GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State)
{
    if (!State)
        return E_POINTER;
    const bool ownThread = OnOwnThread();
    GMutexLock held(stateLock);
    if (ownThread || changer == ThisThreadId())  // a peer asks in the middle of a change
        dwMilliSecsTimeout = 0;
    const bool forEver = dwMilliSecsTimeout == INFINITE;
    const auto deadline = GSteadyClock::now() + std::chrono::milliseconds(forEver ? 0 : dwMilliSecsTimeout);
    while (changing > 0) {
        if (forEver) {
            held.Wait(stateChanged);
            continue;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - GSteadyClock::now());
        if (left.count() <= 0) {
            *State = state;
            return VFW_S_STATE_INTERMEDIATE;
        }
        held.WaitFor(stateChanged, left);
    }
    *State = state;
    return S_OK;
}

HRESULT CBaseFilter::SetSyncSource(IReferenceClock* pClock)
{
    GComPtr<IReferenceClock> replaced(pClock);
    const GMutexLock held(stateLock);
    std::swap(clock, replaced);  // the old clock is released after the lock: a release may call out
    return S_OK;
}

HRESULT CBaseFilter::GetSyncSource(IReferenceClock** pClock)
{
    if (!pClock)
        return E_POINTER;
    const GMutexLock held(stateLock);
    *pClock = GComPtr<IReferenceClock>(clock).Detach();
    return S_OK;
}

HRESULT CBaseFilter::EnumPins(IEnumPins** ppEnum)
{
    if (!ppEnum)
        return E_POINTER;
    *ppEnum = nullptr;
    return ComGuard([&] {
        auto* pins = new CEnumPins(this, 0, GetPinVersion());
        pins->AddRef();
        *ppEnum = pins;
        return S_OK;
    });
}

HRESULT CBaseFilter::QueryFilterInfo(FILTER_INFO* pInfo)
{
    if (!pInfo)
        return E_POINTER;
    const GMutexLock held(stateLock);
    CopyName(pInfo->achName, MAX_FILTER_NAME, name);
    pInfo->pGraph = graph;
    if (graph)
        graph->AddRef();
    return S_OK;
}

HRESULT CBaseFilter::JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName)
{
    return ComGuard([&] {
        // The event sink belongs to the graph itself, so no reference is kept on it: it would keep the graph alive.
        const GComPtr<IMediaEventSink> sink = QueryFor<IMediaEventSink>(pGraph, IID_IMediaEventSink);
        const GMutexLock held(stateLock);
        graph = pGraph;
        eventSink = sink.Get();
        if (pName)
            name = pName;
        return S_OK;
    });
}

HRESULT CBaseFilter::QueryVendorInfo(LPWSTR* pVendorInfo)
{
    if (!pVendorInfo)
        return E_POINTER;
    *pVendorInfo = nullptr;
    return E_NOTIMPL;
}

HRESULT CBaseFilter::NotifyEvent(LONG eventCode, LONG_PTR param1, LONG_PTR param2)
{
    GComPtr<IMediaEventSink> sink;
    {
        const GMutexLock held(stateLock);
        sink = GComPtr<IMediaEventSink>(eventSink);
    }
    return sink ? sink->Notify(eventCode, param1, param2) : E_NOTIMPL;
}

void CopyName(WCHAR* target, std::size_t capacity, const WString& source)
{
    const std::size_t length = std::min(source.size(), capacity - 1);
    std::copy_n(source.data(), length, target);
    target[length] = 0;
}

LPWSTR TaskMemCopy(const WString& text)
{
    const std::size_t bytes = (text.size() + 1) * sizeof(WCHAR);
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (copy)
        std::memcpy(copy, text.c_str(), bytes);
    return copy;
}

}  // namespace vex
