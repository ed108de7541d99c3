// Source filters: a filter that owns output pins, each with a streaming thread.
#pragma once

#include <memory>
#include <vector>

#include "dshow/base_output_pin.h"

namespace vex {

class CSourceStream;

// Owns its pins. They are added while loading and live as long as the filter.
class CSource : public CBaseFilter {
public:
    CSource(WString filterName, IUnknown* outer, REFCLSID clsid);
    ~CSource() override;

    int GetPinCount() override;
    CBasePin* GetPin(int index) override;
    // By the identifier that QueryId gives: the pin's number in decimal. Names may repeat, numbers do not.
    STDMETHODIMP FindPin(LPCWSTR Id, IPin** ppPin) override;
    // 1-based; 0 for a pin that is not ours.
    int PinNumber(const CBasePin* pin);

    // True on a streaming thread of one of the pins.
    bool OnOwnThread() override;

protected:
    // All of them or, when this throws, none.
    void AddPins(std::vector<std::unique_ptr<CSourceStream>> added);

private:
    GMutex pinsLock;
    std::vector<std::unique_ptr<CSourceStream>> pins G_GUARDED_BY(pinsLock);
};

// An output pin with a streaming thread. The thread exists from Active to Inactive and obeys the commands below; while
// it plays it runs DoBufferProcessingLoop, which looks at pending commands between samples.
class CSourceStream : public CBaseOutputPin, public CAMThread {
public:
    enum Command : DWORD { CMD_INIT, CMD_PAUSE, CMD_RUN, CMD_STOP, CMD_EXIT };

    CSourceStream(CSource* source, WString pinName);
    ~CSourceStream() override;

    STDMETHODIMP QueryId(LPWSTR* Id) override;
    HRESULT Active() override;
    HRESULT Inactive() override;

    // Commands to the thread, each waits for the answer; E_FAIL without a thread. CMD_STOP waits for the sample in
    // delivery: whoever sends it makes sure that the peer lets go of it (flush, or a decommitted allocator).
    HRESULT RunThread() { return Send(CMD_RUN); }
    HRESULT StopThread() { return Send(CMD_STOP); }

protected:
    // Streaming thread hooks.
    virtual HRESULT OnThreadStartPlay() { return S_OK; }
    // Plays until told to stop; S_FALSE when a stop command waits.
    virtual HRESULT DoBufferProcessingLoop() = 0;

    DWORD ThreadProc() override;

private:
    HRESULT Send(Command command);

    CSource* const sourceFilter;
};

}  // namespace vex
