// IMediaSeeking of a source's pin, in reference time.
#pragma once

#include "platform/pipeline.h"
#include "platform/threads.h"

namespace vex {

// A mix-in: the pin supplies IUnknown. The lock is shared by all pins of a filter and is held for the fields only,
// never while a hook runs.
class CSourceSeeking : public IMediaSeeking {
public:
    // IMediaSeeking. The one time format is TIME_FORMAT_MEDIA_TIME (100 ns).
    STDMETHODIMP GetCapabilities(DWORD* pCapabilities) override;
    STDMETHODIMP CheckCapabilities(DWORD* pCapabilities) override;
    STDMETHODIMP IsFormatSupported(const GUID* pFormat) override;
    STDMETHODIMP QueryPreferredFormat(GUID* pFormat) override;
    STDMETHODIMP GetTimeFormat(GUID* pFormat) override;
    STDMETHODIMP IsUsingTimeFormat(const GUID* pFormat) override;
    STDMETHODIMP SetTimeFormat(const GUID* pFormat) override;
    STDMETHODIMP GetDuration(LONGLONG* pDuration) override;
    STDMETHODIMP GetStopPosition(LONGLONG* pStop) override;
    STDMETHODIMP GetCurrentPosition(LONGLONG* pCurrent) override;
    STDMETHODIMP ConvertTimeFormat(LONGLONG* pTarget, const GUID* pTargetFormat, LONGLONG Source,
                                   const GUID* pSourceFormat) override;
    STDMETHODIMP SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop, DWORD dwStopFlags) override;
    STDMETHODIMP GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) override;
    STDMETHODIMP GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) override;
    STDMETHODIMP SetRate(double dRate) override;
    STDMETHODIMP GetRate(double* pdRate) override;
    STDMETHODIMP GetPreroll(LONGLONG* pllPreroll) override;

protected:
    // The first stop position is the end of the file, or `range` (100 ns) where the file is shorter.
    CSourceSeeking(CCritSec* sharedLock, REFERENCE_TIME fileDuration, REFERENCE_TIME range);
    ~CSourceSeeking() = default;

    struct GSegment {
        REFERENCE_TIME start;  // 100 ns
        REFERENCE_TIME stop;
        double rate;
    };
    GSegment Segment();
    void SetStart(REFERENCE_TIME time);
    void SetStop(REFERENCE_TIME time);
    // The file has grown. A stop position at the end, as the first one was, moves along.
    void RaiseDuration(REFERENCE_TIME time);

    // What SetPositions asks for, as absolute times; E_INVALIDARG and E_POINTER as the interface lays down.
    struct GRequest {
        bool moveStart = false;
        bool moveStop = false;
        REFERENCE_TIME start = 0;
        REFERENCE_TIME stop = 0;
    };
    HRESULT ReadRequest(const LONGLONG* pCurrent, DWORD currentFlags, const LONGLONG* pStop, DWORD stopFlags,
                        GRequest& request);

    // Hooks, called after a value changed, with no lock held.
    virtual HRESULT ChangeStart() = 0;
    virtual HRESULT ChangeStop() = 0;
    virtual HRESULT ChangeRate() = 0;

private:
    CCritSec* const lock;
    const REFERENCE_TIME minimumRange;
    DWORD capabilities G_GUARDED_BY(lock);
    REFERENCE_TIME duration G_GUARDED_BY(lock);
    REFERENCE_TIME startPosition G_GUARDED_BY(lock) = 0;
    REFERENCE_TIME stopPosition G_GUARDED_BY(lock);
    double playbackRate G_GUARDED_BY(lock) = 1.0;
};

}  // namespace vex
