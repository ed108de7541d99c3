#include "dshow/source_seeking.h"

#include <algorithm>
#include <cmath>

#include "platform/guids.h"

namespace vex {

namespace {

constexpr DWORD kCapabilities = AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanSeekForwards | AM_SEEKING_CanSeekBackwards |
                                AM_SEEKING_CanGetStopPos | AM_SEEKING_CanGetDuration;

REFERENCE_TIME SaturatingAdd(REFERENCE_TIME a, REFERENCE_TIME b)
{
    REFERENCE_TIME sum = 0;
    if (!__builtin_add_overflow(a, b, &sum))
        return sum;
    return a < 0 ? INT64_MIN : INT64_MAX;
}

// A null format means the one in use.
bool IsMediaTime(const GUID* format) { return !format || *format == TIME_FORMAT_MEDIA_TIME; }

}  // namespace

CSourceSeeking::CSourceSeeking(CCritSec* sharedLock, REFERENCE_TIME fileDuration, REFERENCE_TIME range)
    : lock(sharedLock),
      minimumRange(range),
      capabilities(kCapabilities),
      duration(fileDuration),
      stopPosition(std::max(fileDuration, range))
{
}

HRESULT CSourceSeeking::GetCapabilities(DWORD* pCapabilities)
{
    if (!pCapabilities)
        return E_POINTER;
    const CAutoLock held(lock);
    *pCapabilities = capabilities;
    return S_OK;
}

HRESULT CSourceSeeking::CheckCapabilities(DWORD* pCapabilities)
{
    if (!pCapabilities)
        return E_POINTER;
    const CAutoLock held(lock);
    const DWORD asked = *pCapabilities;
    *pCapabilities = asked & capabilities;
    if (*pCapabilities == asked)
        return S_OK;
    return *pCapabilities != 0 ? S_FALSE : E_FAIL;
}

HRESULT CSourceSeeking::IsFormatSupported(const GUID* pFormat)
{
    if (!pFormat)
        return E_POINTER;
    return *pFormat == TIME_FORMAT_MEDIA_TIME ? S_OK : S_FALSE;
}

HRESULT CSourceSeeking::QueryPreferredFormat(GUID* pFormat)
{
    if (!pFormat)
        return E_POINTER;
    *pFormat = TIME_FORMAT_MEDIA_TIME;
    return S_OK;
}

HRESULT CSourceSeeking::GetTimeFormat(GUID* pFormat) { return QueryPreferredFormat(pFormat); }

HRESULT CSourceSeeking::IsUsingTimeFormat(const GUID* pFormat) { return IsFormatSupported(pFormat); }

HRESULT CSourceSeeking::SetTimeFormat(const GUID* pFormat)
{
    if (!pFormat)
        return E_POINTER;
    return *pFormat == TIME_FORMAT_MEDIA_TIME ? S_OK : E_INVALIDARG;
}

HRESULT CSourceSeeking::GetDuration(LONGLONG* pDuration)
{
    if (!pDuration)
        return E_POINTER;
    const CAutoLock held(lock);
    *pDuration = duration;
    return S_OK;
}

HRESULT CSourceSeeking::GetStopPosition(LONGLONG* pStop)
{
    if (!pStop)
        return E_POINTER;
    const CAutoLock held(lock);
    *pStop = stopPosition;
    return S_OK;
}

HRESULT CSourceSeeking::GetCurrentPosition(LONGLONG* pCurrent)
{
    return pCurrent ? E_NOTIMPL : E_POINTER;  // the renderers know what is on the screen, a source does not
}

HRESULT CSourceSeeking::ConvertTimeFormat(LONGLONG* pTarget, const GUID* pTargetFormat, LONGLONG Source,
                                          const GUID* pSourceFormat)
{
    if (!pTarget)
        return E_POINTER;
    if (!IsMediaTime(pTargetFormat) || !IsMediaTime(pSourceFormat))
        return E_INVALIDARG;
    *pTarget = Source;
    return S_OK;
}

HRESULT CSourceSeeking::ReadRequest(const LONGLONG* pCurrent, DWORD currentFlags, const LONGLONG* pStop,
                                    DWORD stopFlags, GRequest& request)
{
    const DWORD startBits = currentFlags & AM_SEEKING_PositioningBitsMask;
    const DWORD stopBits = stopFlags & AM_SEEKING_PositioningBitsMask;
    if ((startBits != 0 && !pCurrent) || (stopBits != 0 && !pStop))
        return E_POINTER;
    if (startBits == AM_SEEKING_IncrementalPositioning)
        return E_INVALIDARG;
    const CAutoLock held(lock);
    request.start = startPosition;
    request.stop = stopPosition;
    request.moveStart = startBits != 0;
    request.moveStop = stopBits != 0;
    if (startBits == AM_SEEKING_AbsolutePositioning)
        request.start = *pCurrent;
    else if (startBits == AM_SEEKING_RelativePositioning)
        request.start = SaturatingAdd(startPosition, *pCurrent);
    if (stopBits == AM_SEEKING_AbsolutePositioning)
        request.stop = *pStop;
    else if (stopBits == AM_SEEKING_RelativePositioning)
        request.stop = SaturatingAdd(stopPosition, *pStop);
    else if (stopBits == AM_SEEKING_IncrementalPositioning)
        request.stop = SaturatingAdd(request.start, *pStop);
    return S_OK;
}

HRESULT CSourceSeeking::SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop, DWORD dwStopFlags)
{
    GRequest request;
    HRESULT hr = ReadRequest(pCurrent, dwCurrentFlags, pStop, dwStopFlags, request);
    if (FAILED(hr))
        return hr;
    {
        const CAutoLock held(lock);
        if (request.moveStart)
            startPosition = request.start;
        if (request.moveStop)
            stopPosition = request.stop;
    }
    if (request.moveStart)
        hr = ChangeStart();
    if (SUCCEEDED(hr) && request.moveStop)
        hr = ChangeStop();
    if (pCurrent && (dwCurrentFlags & AM_SEEKING_ReturnTime))
        *pCurrent = request.start;
    if (pStop && (dwStopFlags & AM_SEEKING_ReturnTime))
        *pStop = request.stop;
    return hr;
}

HRESULT CSourceSeeking::GetPositions(LONGLONG* pCurrent, LONGLONG* pStop)
{
    const CAutoLock held(lock);
    if (pCurrent)
        *pCurrent = startPosition;
    if (pStop)
        *pStop = stopPosition;
    return S_OK;
}

HRESULT CSourceSeeking::GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest)
{
    const CAutoLock held(lock);
    if (pEarliest)
        *pEarliest = 0;
    if (pLatest)
        *pLatest = duration;
    return S_OK;
}

HRESULT CSourceSeeking::SetRate(double dRate)
{
    if (!std::isfinite(dRate) || dRate <= 0.0)
        return E_INVALIDARG;  // playing backwards is not among the capabilities
    {
        const CAutoLock held(lock);
        playbackRate = dRate;
    }
    return ChangeRate();
}

HRESULT CSourceSeeking::GetRate(double* pdRate)
{
    if (!pdRate)
        return E_POINTER;
    const CAutoLock held(lock);
    *pdRate = playbackRate;
    return S_OK;
}

HRESULT CSourceSeeking::GetPreroll(LONGLONG* pllPreroll)
{
    if (!pllPreroll)
        return E_POINTER;
    *pllPreroll = 0;
    return S_OK;
}

CSourceSeeking::GSegment CSourceSeeking::Segment()
{
    const CAutoLock held(lock);
    return {startPosition, stopPosition, playbackRate};
}

void CSourceSeeking::SetStart(REFERENCE_TIME time)
{
    const CAutoLock held(lock);
    startPosition = time;
}

void CSourceSeeking::SetStop(REFERENCE_TIME time)
{
    const CAutoLock held(lock);
    stopPosition = time;
}

void CSourceSeeking::RaiseDuration(REFERENCE_TIME time)
{
    const CAutoLock held(lock);
    if (time <= duration)
        return;
    if (stopPosition == std::max(duration, minimumRange))
        stopPosition = std::max(time, minimumRange);
    duration = time;
}

}  // namespace vex
