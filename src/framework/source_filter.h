// The source filter frame: one filter class from which every container's filter is a page of code.
//
// The filter owns the read handler. One reader thread pulls packets from it and pushes them into the pins' queues; one
// streaming thread per pin turns them into samples. How they stop, seek and start again is in docs/threads.md.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "dshow/source.h"
#include "framework/contract/filter_info.h"
#include "framework/contract/read_handler.h"
#include "framework/filter_rules.h"
#include "framework/output_pin.h"
#include "framework/preparation.h"
#include "framework/vex_interfaces.h"

namespace vex {

class CVexFilter : public CSource, public IFileSourceFilter, public IVexInspect, public ISupportErrorInfo {
public:
    // `filterInfo` and `filterRules` are constant data that outlives the filter.
    CVexFilter(const GFilterInfo& filterInfo, const GFilterRules& filterRules, IUnknown* outer,
               std::unique_ptr<GReadHandler> formatHandler);
    ~CVexFilter() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IFileSourceFilter. Why a load failed is left in the calling thread's error-information object.
    STDMETHODIMP Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) override;

    // IBaseFilter and IMediaFilter
    STDMETHODIMP FindPin(LPCWSTR Id, IPin** ppPin) override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME tStart) override;
    STDMETHODIMP Stop() override;

    // IVexInspect
    STDMETHODIMP GetPropertyCount(LONG pin, ULONG* pCount) override;
    STDMETHODIMP GetProperty(LONG pin, ULONG index, BSTR* pName, BSTR* pValue, VexPropertyType* pType) override;
    STDMETHODIMP GetPinLanguage(LONG pin, BSTR* pLanguage) override;
    STDMETHODIMP GetDamage(ULONGLONG* pPlaces, ULONGLONG* pBytes, BSTR* pFirst) override;
    STDMETHODIMP IsIndexComplete() override;
    STDMETHODIMP GetAttachmentCount(ULONG* pCount) override;
    STDMETHODIMP GetAttachment(ULONG index, BSTR* pName, BSTR* pMimeType, BSTR* pDescription,
                               ULONGLONG* pSize) override;
    STDMETHODIMP ReadAttachment(ULONG index, ULONGLONG offset, BYTE* pBuffer, ULONG cb) override;
    STDMETHODIMP GetLoadState(VexLoadState* pState, BSTR* pReason) override;
    STDMETHODIMP SetSeekOptions(BOOL keyFrames, BOOL preroll) override;
    STDMETHODIMP GetLoadProgress(ULONGLONG* pDone, ULONGLONG* pTotal) override;

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

    bool OnOwnThread() override;

    // For the pins.
    const GFilterRules& Rules() const { return rules; }
    // Of the file as known now, 100 ns; never less than it said before.
    REFERENCE_TIME Duration();
    REFERENCE_TIME SegmentStart() const { return segmentStart.load(std::memory_order_acquire); }
    bool PrerollMark() const { return prerollMark.load(std::memory_order_relaxed); }
    CCritSec* SeekingLock() { return &seekingLock; }
    // Seeks the whole filter to `position` (100 ns), which becomes the position reached. S_FALSE when there was nothing
    // to do or the handler refused; an error when the seek failed: `position` is then the one that holds. `moved`: the
    // caller asked for another position than the pin had. `onReached` is called once the position is reached and before
    // any pin starts its segment there.
    HRESULT SeekTo(CVexOutputPin* caller, REFERENCE_TIME& position, bool moved, const std::function<void()>& onReached);
    // A running pin begins a new segment with what is queued. Under changeLock.
    void RestartPin(CVexOutputPin& pin);

    // A pin's streaming thread: see GReadHandler.
    std::size_t ReadLeft(const GPacket2& packet, std::uint8_t* out) { return handler->ReadLeft(packet, out); }

protected:
    virtual std::unique_ptr<CVexOutputPin> MakePin(const GStreamInfo& stream);
    // What has to be done before `path` can be opened, on a thread of its own; null when nothing has. Load then returns
    // at once, without pins. An error fails Load. Under changeLock, and never while an earlier preparation runs.
    virtual GResult<std::unique_ptr<GPreparation>> Prepare(const WString& path);
    // Reader thread: a packet of a stream whose target is the filter.
    virtual void TakePacket(GPacketPtr packet) { static_cast<void>(packet); }

    void FinalRelease() override;
    GReadHandler& Handler() { return *handler; }
    bool IsLoaded() const { return loadState.load(std::memory_order_acquire) == VexLoad_Done; }

    // The methods of the private interfaces that set and get an option.
    static HRESULT SetOption(std::atomic<bool>& option, LONG value);
    template <class Flag>
    static HRESULT GetOption(const std::atomic<bool>& option, Flag* value)
    {
        if (!value)
            return E_POINTER;
        *value = option ? 1 : 0;
        return S_OK;
    }

    std::atomic<bool> keyFrameSeek{false};
    std::atomic<bool> prerollMark;

private:
    // Commands to the reader thread.
    enum ReaderCommand : DWORD { kExit = 0, kPark = 1 };

    class GReader final : public CAMThread {
    public:
        explicit GReader(CVexFilter& served) : filter(served) {}
        ~GReader() override { Close(); }
        // Waits for a command, at most 1 ms.
        void Idle() { WaitRequest(1); }

    protected:
        DWORD ThreadProc() override;

    private:
        CVexFilter& filter;
    };

    class GLoader final : public CAMThread {
    public:
        explicit GLoader(CVexFilter& served) : filter(served) {}
        ~GLoader() override { Close(); }

    protected:
        DWORD ThreadProc() override;

    private:
        CVexFilter& filter;
    };

    // Loading.
    HRESULT LoadLocked(const WString& path);
    GStatus Open(const WString& path);
    GStatus MakePins();
    HRESULT FinishLoad(const GStatus& opened, std::string remark = {});
    HRESULT BeginPreparation();
    void LoadPrepared();
    void SetName(WString path);
    void SetLoadError(const GError& error);
    void SetLoadReason(std::string text);

    // Reader thread.
    enum class GLoopEnd : std::uint8_t { EndOfStream, Interrupted };
    void ReadToEnd();
    GLoopEnd PacketLoop();
    bool BeginRun();
    bool SendHeaders();
    bool PassOn(const GNextPacket& next);
    bool PassToPin(const GNextPacket& next, CVexOutputPin& pin);
    void PassToFilter(const GNextPacket& next);
    bool Push(CVexOutputPin& pin, GPacketPtr packet);
    void EndStream(std::uint32_t stream);
    void EndStreams();
    void RebaseTimes(GPacket2& packet);
    CVexOutputPin* FindConnected(std::uint32_t stream) const;

    enum class GQueues : std::uint8_t { Keep, Empty };
    void StopReader();
    bool FreePins();
    void HaltPins();
    void RestartPins(GQueues queues);
    HRESULT SeekRunning(REFERENCE_TIME& position, bool moved, const std::function<void()>& onReached);
    HRESULT Reposition(REFERENCE_TIME& position, bool moved);
    void BeginSearch() G_EXCLUDES(searchLock);
    bool EndSearch() G_EXCLUDES(searchLock);
    void BeginStopWait() G_EXCLUDES(searchLock);
    void EndStopWait() G_EXCLUDES(searchLock);
    bool IsRelayed(CVexOutputPin* caller, REFERENCE_TIME position);

    const GFilterRules& rules;
    const std::unique_ptr<GReadHandler> handler;  // reader thread while it reads, else under changeLock

    std::atomic<VexLoadState> loadState{VexLoad_None};  // written under changeLock
    GMutex nameLock;
    WString fileName G_GUARDED_BY(nameLock);
    std::string loadReason G_GUARDED_BY(nameLock);  // why it failed, or is not whole; UTF-8
    std::unique_ptr<GPreparation> preparation;      // constant while the loader runs
    std::atomic<REFERENCE_TIME> duration{0};        // 100 ns; only grows once loaded
    std::vector<CVexOutputPin*> pins;               // constant once loaded; owned by CSource
    std::vector<std::uint32_t> filterStreams;       // constant once loaded
    std::vector<GProperty> properties;              // constant once loaded
    std::vector<GAttachmentInfo> attachments;       // constant once loaded

    GMutex searchLock;
    bool searching G_GUARDED_BY(searchLock) = false;     // a seek of the handler is in progress, under changeLock
    unsigned stopsWaiting G_GUARDED_BY(searchLock) = 0;  // threads in Stop that want changeLock

    CCritSec seekingLock;                         // the pins' seeking values
    std::atomic<REFERENCE_TIME> segmentStart{0};  // 100 ns
    std::atomic<REFERENCE_TIME> seekBase{0};      // subtracted from packet times
    REFERENCE_TIME currentPosition = 0;           // under changeLock
    bool handlerMoved = false;                    // under changeLock: by reading until a stop, or by a seek that failed
    REFERENCE_TIME lastTarget = kNoTime;          // under changeLock
    std::vector<CVexOutputPin*> relayedBy;        // under changeLock: pins that asked for lastTarget

    // Reader thread; under changeLock while it is parked or gone.
    bool resumesRun = false;  // the next run goes on with the one before: its seek was refused
    GPacketPtr carried;       // read, but its queue was full when a command came
    CVexOutputPin* carriedTo = nullptr;

    CAMEvent resumeEvent;  // releases the reader into the packet loop
    CAMEvent readerReady;  // the reader has started the pins
    GReader reader{*this};
    GLoader loader{*this};
};

}  // namespace vex
