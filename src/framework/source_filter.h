// The source filter frame: one filter class from which every container's filter is a page of code.
//
// The filter owns the read handler. One reader thread pulls packets from it and pushes them into the pins' queues; one
// streaming thread per pin turns them into samples. How they stop, seek and start again is in docs/threads.md.
#pragma once

#include <atomic>
#include <optional>
#include <vector>

#include "dshow/source.h"
#include "framework/filter_rules.h"
#include "framework/media/read_handler.h"
#include "framework/output_pin.h"
#include "framework/packet_queue.h"
#include "framework/vex_interfaces.h"

namespace vex {

class CVexFilter : public CSource, public IFileSourceFilter, public IVexInspect, public ISupportErrorInfo {
public:
    CVexFilter(WString filterName, IUnknown* outer, REFCLSID clsid, const GFilterRules& filterRules,
               std::unique_ptr<GReadHandler> formatHandler);
    ~CVexFilter() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

    // IFileSourceFilter. Why a load failed is left in the calling thread's error-information object.
    STDMETHODIMP Load(LPCOLESTR pszFileName, const AM_MEDIA_TYPE* pmt) override;
    STDMETHODIMP GetCurFile(LPOLESTR* ppszFileName, AM_MEDIA_TYPE* pmt) override;

    // IMediaFilter
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

    // ISupportErrorInfo
    STDMETHODIMP InterfaceSupportsErrorInfo(REFIID riid) override;

    bool OnOwnThread() override;

    // For the pins.
    const GFilterRules& Rules() const { return rules; }
    REFERENCE_TIME Duration() const { return duration; }
    REFERENCE_TIME SegmentStart() const { return segmentStart.load(std::memory_order_acquire); }
    bool PrerollMark() const { return prerollMark.load(std::memory_order_relaxed); }
    CCritSec* SeekingLock() { return &seekingLock; }
    GPacketPool& Pool() { return pool; }
    // Seeks the whole filter to `position` (100 ns), which becomes the position reached; S_FALSE when there was nothing
    // to do. `moved`: the caller asked for another position than the pin had. `onReached` is called between the two: the
    // position is reached, no pin has started its segment there.
    HRESULT SeekTo(CVexOutputPin* caller, REFERENCE_TIME& position, bool moved, const std::function<void()>& onReached);

protected:
    // The pin's name, or none for a stream that gets no pin; `index` is the stream's 0-based place in the file.
    virtual std::optional<WString> NamePin(const GStreamInfo& stream, std::size_t index);
    virtual std::unique_ptr<CVexOutputPin> MakePin(WString pinName, const GStreamInfo& stream);

    void FinalRelease() override;
    GReadHandler& Handler() { return *handler; }
    bool IsLoaded() { return loaded.load(std::memory_order_acquire); }

    std::atomic<bool> keyFrameSeek{false};
    std::atomic<bool> prerollMark;

private:
    // Commands to the reader thread.
    enum ReaderCommand : DWORD { kExit = 0, kPark = 1 };

    class GReader final : public CAMThread {
    public:
        explicit GReader(CVexFilter& served) : filter(served) {}
        ~GReader() override { Close(); }

    protected:
        DWORD ThreadProc() override;

    private:
        CVexFilter& filter;
    };

    HRESULT Open(const WString& path);
    bool MakePins();
    void SetLoadError(const GError& error);

    // Reader thread.
    enum class GLoopEnd : std::uint8_t { EndOfStream, Interrupted };
    void ReadToEnd();
    GLoopEnd PacketLoop();
    bool SendHeaders(const std::function<bool()>& giveUp);
    bool PassOn(const GNextPacket& next, CVexOutputPin& pin, const std::function<bool()>& giveUp);
    void EndStreams();
    void RebaseTimes(GPacket2& packet);

    void StopReader();
    void HaltPins();
    void RestartPins();
    void Reposition(REFERENCE_TIME& position, bool moved);
    bool IsRelayed(CVexOutputPin* caller, REFERENCE_TIME position);

    const GFilterRules& rules;
    const std::unique_ptr<GReadHandler> handler;  // reader thread while it reads, else under changeLock
    GPacketPool pool;

    std::atomic<bool> loaded{false};
    GMutex nameLock;
    WString fileName G_GUARDED_BY(nameLock);
    REFERENCE_TIME duration = 0;               // constant once loaded
    std::vector<CVexOutputPin*> pins;          // constant once loaded; owned by CSource
    std::vector<GProperty> properties;         // constant once loaded
    std::vector<GAttachmentInfo> attachments;  // constant once loaded

    CCritSec seekingLock;                         // the pins' seeking values
    std::atomic<REFERENCE_TIME> segmentStart{0};  // 100 ns
    std::atomic<REFERENCE_TIME> seekBase{0};      // subtracted from packet times
    REFERENCE_TIME currentPosition = 0;           // under changeLock
    bool readSinceSeek = false;                   // under changeLock: the handler may stand beyond currentPosition
    REFERENCE_TIME lastTarget = kNoTime;          // under changeLock
    std::vector<CVexOutputPin*> relayedBy;        // under changeLock: pins that asked for lastTarget

    CAMEvent resumeEvent;  // releases the reader into the packet loop
    CAMEvent readerReady;  // the reader has started the pins
    GReader reader{*this};
};

}  // namespace vex
