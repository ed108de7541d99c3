// The graph as a filter sees it: it takes the filter's events and owns nothing else.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "host/progress.h"
#include "platform/pipeline.h"

namespace vex {

struct GGraphEvent {
    LONG code = 0;
    LONG_PTR param1 = 0;
    LONG_PTR param2 = 0;
    bool operator==(const GGraphEvent&) const = default;
};

// Handed to IBaseFilter::JoinFilterGraph. Building and searching a graph is refused with E_NOTIMPL.
class CGraphSite final : public IFilterGraph, public IMediaEventSink {
public:
    explicit CGraphSite(std::shared_ptr<GProgress> shared) : progress(std::move(shared)) {}

    // The events so far, in order; a filter's private event that is repeated at once counts as one, since a download
    // tells its progress with every 10 KiB. Any thread.
    std::vector<GGraphEvent> Events();
    // The code of the first EC_ERRORABORT so far, S_OK when there was none. Any thread.
    HRESULT FirstError();

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override { return E_NOTIMPL; }

    HRESULT STDMETHODCALLTYPE Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2) override;

private:
    ~CGraphSite() = default;

    const std::shared_ptr<GProgress> progress;
    std::atomic<long> references{1};
    GMutex lock;
    std::vector<GGraphEvent> events G_GUARDED_BY(lock);
};

}  // namespace vex
