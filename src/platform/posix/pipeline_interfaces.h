// The interfaces of the media pipeline, in the order of their function tables, with the standard's parameter names.
#pragma once

#include "platform/com.h"
#include "platform/media_records.h"

inline constexpr IID IID_IReferenceClock{0x56A86897, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMediaSample{0x56A8689A, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMemAllocator{0x56A8689C, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMemInputPin{0x56A8689D, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IEnumMediaTypes{0x89C31040, 0x846B, 0x11CE, {0x97, 0xD3, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
inline constexpr IID IID_IPin{0x56A86891, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IEnumPins{0x56A86892, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMediaFilter{0x56A86899, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IFilterGraph{0x56A8689F, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IBaseFilter{0x56A86895, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IQualityControl{0x56A868A5, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMediaEventSink{0x56A868A2, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
inline constexpr IID IID_IMediaSeeking{0x36B73880, 0xC2C8, 0x11CF, {0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C, 0xEF, 0x60}};
inline constexpr IID IID_IFileSourceFilter{
    0x56A868A6, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};

using HEVENT = DWORD_PTR;
using HSEMAPHORE = DWORD_PTR;

enum PIN_DIRECTION { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };
enum FILTER_STATE { State_Stopped = 0, State_Paused = 1, State_Running = 2 };

enum AM_SEEKING_SeekingFlags {
    AM_SEEKING_NoPositioning = 0x0,
    AM_SEEKING_AbsolutePositioning = 0x1,
    AM_SEEKING_RelativePositioning = 0x2,
    AM_SEEKING_IncrementalPositioning = 0x3,
    AM_SEEKING_PositioningBitsMask = 0x3,
    AM_SEEKING_SeekToKeyFrame = 0x4,
    AM_SEEKING_ReturnTime = 0x8,
    AM_SEEKING_Segment = 0x10,
    AM_SEEKING_NoFlush = 0x20
};

enum AM_SEEKING_SeekingCapabilities {
    AM_SEEKING_CanSeekAbsolute = 0x1,
    AM_SEEKING_CanSeekForwards = 0x2,
    AM_SEEKING_CanSeekBackwards = 0x4,
    AM_SEEKING_CanGetCurrentPos = 0x8,
    AM_SEEKING_CanGetStopPos = 0x10,
    AM_SEEKING_CanGetDuration = 0x20,
    AM_SEEKING_CanPlayBackwards = 0x40,
    AM_SEEKING_CanDoSegments = 0x80,
    AM_SEEKING_Source = 0x100
};

enum QualityMessageType { Famine = 0, Flood = 1 };

struct Quality {
    QualityMessageType Type;
    LONG Proportion;
    REFERENCE_TIME Late;
    REFERENCE_TIME TimeStamp;
};

struct ALLOCATOR_PROPERTIES {
    LONG cBuffers;
    LONG cbBuffer;  // bytes, prefix not included
    LONG cbAlign;
    LONG cbPrefix;
};

struct IBaseFilter;
struct IEnumFilters;
struct IEnumMediaTypes;
struct IEnumPins;
struct IFilterGraph;
struct IPin;

inline constexpr std::size_t MAX_FILTER_NAME = 128;
inline constexpr std::size_t MAX_PIN_NAME = 128;

struct PIN_INFO {
    IBaseFilter* pFilter;  // holds a reference that the receiver releases
    PIN_DIRECTION dir;
    WCHAR achName[MAX_PIN_NAME];
};

struct FILTER_INFO {
    WCHAR achName[MAX_FILTER_NAME];
    IFilterGraph* pGraph;  // holds a reference that the receiver releases
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

struct IReferenceClock : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdviseTime(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT hEvent,
                                                 DWORD_PTR* pdwAdviseCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE AdvisePeriodic(REFERENCE_TIME startTime, REFERENCE_TIME periodTime,
                                                     HSEMAPHORE hSemaphore, DWORD_PTR* pdwAdviseCookie) = 0;
    virtual HRESULT STDMETHODCALLTYPE Unadvise(DWORD_PTR dwAdviseCookie) = 0;
};

struct IMediaSample : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) = 0;
    virtual LONG STDMETHODCALLTYPE GetSize() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsSyncPoint() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsPreroll() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) = 0;
    virtual LONG STDMETHODCALLTYPE GetActualDataLength() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG a) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsDiscontinuity() = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
};

struct IMemAllocator : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit() = 0;
    virtual HRESULT STDMETHODCALLTYPE Decommit() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime,
                                                REFERENCE_TIME* pEndTime, DWORD dwFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) = 0;
};

struct IMemInputPin : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) = 0;
    virtual HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** pSamples, LONG nSamples,
                                                      LONG* nSamplesProcessed) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveCanBlock() = 0;
};

struct IEnumMediaTypes : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG cMediaTypes, AM_MEDIA_TYPE** ppMediaTypes, ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cMediaTypes) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** ppEnum) = 0;
};

struct IPin : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Connect(IPin* pReceivePin, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* pConnector, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* pInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* pPinDir) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** apPin, ULONG* nPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE EndOfStream() = 0;
    virtual HRESULT STDMETHODCALLTYPE BeginFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndFlush() = 0;
    virtual HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) = 0;
};

struct IEnumPins : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG cPins, IPin** ppPins, ULONG* pcFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG cPins) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumPins** ppEnum) = 0;
};

struct IMediaFilter : public IPersist {
    virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
    virtual HRESULT STDMETHODCALLTYPE Pause() = 0;
    virtual HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME tStart) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD dwMilliSecsTimeout, FILTER_STATE* State) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* pClock) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock** pClock) = 0;
};

struct IFilterGraph : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* pFilter, LPCWSTR pName) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter* pFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR pName, IBaseFilter** ppFilter) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectDirect(IPin* ppinOut, IPin* ppinIn, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reconnect(IPin* ppin) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect(IPin* ppin) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() = 0;
};

struct IBaseFilter : public IMediaFilter {
    virtual HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** ppEnum) = 0;
    virtual HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* pInfo) = 0;
    virtual HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* pGraph, LPCWSTR pName) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR* pVendorInfo) = 0;
};

struct IQualityControl : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Notify(IBaseFilter* pSelf, Quality q) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSink(IQualityControl* piqc) = 0;
};

struct IMediaEventSink : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR EventParam2) = 0;
};

struct IMediaSeeking : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCapabilities(DWORD* pCapabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE CheckCapabilities(DWORD* pCapabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsFormatSupported(const GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryPreferredFormat(GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTimeFormat(GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE IsUsingTimeFormat(const GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetTimeFormat(const GUID* pFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDuration(LONGLONG* pDuration) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStopPosition(LONGLONG* pStop) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurrentPosition(LONGLONG* pCurrent) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConvertTimeFormat(LONGLONG* pTarget, const GUID* pTargetFormat, LONGLONG Source,
                                                        const GUID* pSourceFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop,
                                                   DWORD dwStopFlags) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPositions(LONGLONG* pCurrent, LONGLONG* pStop) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAvailable(LONGLONG* pEarliest, LONGLONG* pLatest) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetRate(double dRate) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetRate(double* pdRate) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPreroll(LONGLONG* pllPreroll) = 0;
};

struct IFileSourceFilter : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) = 0;
};

#pragma GCC diagnostic pop
