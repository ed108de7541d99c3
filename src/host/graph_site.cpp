#include "host/graph_site.h"

#include "dshow/unknown.h"

namespace vex {

namespace {

constexpr LONG kFirstPrivateEvent = 0x8000;

}  // namespace

std::vector<GGraphEvent> CGraphSite::Events()
{
    GMutexLock held(lock);
    return events;
}

HRESULT CGraphSite::FirstError()
{
    GMutexLock held(lock);
    for (const GGraphEvent& event : events)
        if (event.code == EC_ERRORABORT)
            return static_cast<HRESULT>(event.param1);
    return S_OK;
}

HRESULT CGraphSite::QueryInterface(REFIID riid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IFilterGraph)
        *ppv = static_cast<IFilterGraph*>(this);
    else if (riid == IID_IMediaEventSink)
        *ppv = static_cast<IMediaEventSink*>(this);
    else {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

ULONG CGraphSite::Release()
{
    const long left = --references;
    if (left == 0)
        delete this;
    return static_cast<ULONG>(left);
}

HRESULT CGraphSite::Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2)
{
    return ComGuard([&] {
        {
            const GGraphEvent event{EventCode, EventParam1, EventParam2};
            GMutexLock held(lock);
            if (EventCode >= kFirstPrivateEvent && !events.empty() && events.back() == event)
                return S_OK;
            events.push_back(event);
        }
        progress->Changed();
        return S_OK;
    });
}

}  // namespace vex
