// Filters and pins: identity, enumeration, state and connection.
//
// Locks (docs/threads.md): a filter has two. `changeLock` serialises what may take long and waits for threads (state
// changes, seeks, connecting); it is never taken on a streaming thread. `stateLock` guards the fields below for a few
// instructions and may be taken anywhere.
#pragma once

#include <vector>

#include "dshow/media_type.h"
#include "dshow/unknown.h"
#include "platform/pipeline.h"
#include "platform/text.h"
#include "platform/threads.h"

namespace vex {

class CBasePin;

class CBaseFilter : public CUnknown, public IBaseFilter {
public:
    CBaseFilter(WString filterName, IUnknown* outer, REFCLSID clsid);
    ~CBaseFilter() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IPersist
    STDMETHODIMP GetClassID(CLSID* pClassID) override;

    // IMediaFilter. State changes are done when the call returns; GetState waits at most its time-out for a change
    // that another thread is making (VFW_S_STATE_INTERMEDIATE), and not at all on a thread that the change waits for
    // or that makes it.
    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME tStart) override;
    STDMETHODIMP GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* pClock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** pClock) override;

    // IBaseFilter
    STDMETHODIMP EnumPins(IEnumPins** ppEnum) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* pInfo) override;
    STDMETHODIMP JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR* pVendorInfo) override;

    // Pins in order; null when out of range. The pins live as long as the filter.
    virtual int GetPinCount() = 0;
    virtual CBasePin* GetPin(int index) = 0;
    // Changes whenever a pin comes or goes: enumerators made before are out of sync.
    virtual LONG GetPinVersion() const { return pinVersion.load(std::memory_order_acquire); }

    // Tells the graph of an event; E_NOTIMPL outside a graph, which takes no notice.
    HRESULT NotifyEvent(LONG eventCode, LONG_PTR param1, LONG_PTR param2);

    // True on a thread that this filter itself runs: such a thread must not wait for a state change or a seek.
    virtual bool OnOwnThread() { return false; }

    FILTER_STATE State();
    bool IsStopped() { return State() == State_Stopped; }

    CCritSec changeLock;

protected:
    // A state change in progress, as GetState sees it; they nest on one thread. Under changeLock.
    class GStateChange {
    public:
        explicit GStateChange(CBaseFilter& changingFilter);
        ~GStateChange();
        GStateChange(const GStateChange&) = delete;
        GStateChange& operator=(const GStateChange&) = delete;

        void Reached(FILTER_STATE newState);

    private:
        CBaseFilter& filter;
    };

    bool ReleasedByOwnThread() override { return OnOwnThread(); }
    void IncrementPinVersion() { pinVersion.fetch_add(1, std::memory_order_acq_rel); }

private:
    HRESULT ActivatePins();

    const CLSID classId;
    std::atomic<LONG> pinVersion{1};

    GMutex stateLock;
    GCondition stateChanged;
    WString name G_GUARDED_BY(stateLock);
    FILTER_STATE state G_GUARDED_BY(stateLock) = State_Stopped;
    int changing G_GUARDED_BY(stateLock) = 0;     // state changes in progress, one at a time but entered again by Run
    GThreadId changer G_GUARDED_BY(stateLock){};  // who makes them
    IFilterGraph* graph G_GUARDED_BY(stateLock) = nullptr;         // not owned: the graph owns the filter
    IMediaEventSink* eventSink G_GUARDED_BY(stateLock) = nullptr;  // the graph's, not owned
    GComPtr<IReferenceClock> clock G_GUARDED_BY(stateLock);
};

// A pin shares the life of its filter: its references count on the filter, its identity is its own.
class CBasePin : public CUnknown, public IPin, public IQualityControl {
public:
    CBasePin(CBaseFilter* owningFilter, WString pinName, PIN_DIRECTION dir);
    ~CBasePin() override = default;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE NonDelegatingAddRef() override;
    ULONG STDMETHODCALLTYPE NonDelegatingRelease() override;

    // IPin
    STDMETHODIMP Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** pPin) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* pInfo) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* pPinDir) override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** ppEnum) override;
    STDMETHODIMP QueryInternalConnections(IPin** apPin, ULONG* nPin) override;
    STDMETHODIMP EndOfStream() override { return E_UNEXPECTED; }
    STDMETHODIMP BeginFlush() override { return E_UNEXPECTED; }
    STDMETHODIMP EndFlush() override { return E_UNEXPECTED; }
    STDMETHODIMP NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return S_OK; }

    // IQualityControl: nothing here can be delivered sooner or later. A renderer that is told so drops by itself.
    STDMETHODIMP Notify(IBaseFilter*, Quality) override { return E_NOTIMPL; }
    STDMETHODIMP SetSink(IQualityControl*) override { return S_OK; }

    // The offered types in order of preference: E_INVALIDARG below 0, VFW_S_NO_MORE_ITEMS past the last.
    virtual HRESULT GetMediaType(int position, CMediaType* type) = 0;
    virtual HRESULT CheckMediaType(const CMediaType* type) = 0;

    // State hooks, under the filter's changeLock.
    virtual HRESULT Active() { return S_OK; }
    virtual HRESULT Inactive() { return S_OK; }

    bool IsConnected();
    GComPtr<IPin> Peer();
    const WString& Name() const { return name; }
    CBaseFilter* Filter() const { return filter; }

protected:
    // Connection hooks, under the filter's changeLock.
    virtual HRESULT CheckConnect(IPin* receivePin);
    virtual HRESULT CompleteConnect(IPin*) { return S_OK; }
    virtual HRESULT BreakConnect() { return S_OK; }

    CMediaType ConnectedType();

    GMutex pinLock;  // guards the connection for a few instructions

private:
    HRESULT AgreeMediaType(IPin* receivePin, const AM_MEDIA_TYPE* wanted);
    HRESULT AttemptConnection(IPin* receivePin, const CMediaType& type);
    HRESULT TryTypes(IPin* offering, IPin* receivePin, const AM_MEDIA_TYPE* wanted);
    void ForgetPeer();

    CBaseFilter* const filter;  // owns this pin
    const WString name;
    const PIN_DIRECTION direction;
    GComPtr<IPin> peer G_GUARDED_BY(pinLock);
    CMediaType connectedType G_GUARDED_BY(pinLock);
};

// Copies a name into a fixed array of `capacity` characters, cut if need be, always terminated.
void CopyName(WCHAR* target, std::size_t capacity, const WString& source);
// Task-memory copy of a text; null when memory is short.
LPWSTR TaskMemCopy(const WString& text);

}  // namespace vex
