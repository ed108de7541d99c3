#include "dshow/source.h"

namespace vex {

CSource::CSource(WString filterName, IUnknown* outer, REFCLSID clsid) : CBaseFilter(std::move(filterName), outer, clsid)
{
}

CSource::~CSource() = default;

int CSource::GetPinCount()
{
    const GMutexLock held(pinsLock);
    return static_cast<int>(pins.size());
}

CBasePin* CSource::GetPin(int index)
{
    const GMutexLock held(pinsLock);
    return index >= 0 && static_cast<std::size_t>(index) < pins.size() ? pins[static_cast<std::size_t>(index)].get()
                                                                       : nullptr;
}

bool CSource::OnOwnThread()
{
    const GMutexLock held(pinsLock);
    for (const auto& pin : pins)
        if (pin->IsWorker())
            return true;
    return false;
}

void CSource::AddPin(std::unique_ptr<CSourceStream> pin)
{
    {
        const GMutexLock held(pinsLock);
        pins.push_back(std::move(pin));
    }
    IncrementPinVersion();
}

void CSource::RemovePins()
{
    std::vector<std::unique_ptr<CSourceStream>> removed;
    {
        const GMutexLock held(pinsLock);
        removed.swap(pins);
    }
    if (!removed.empty())
        IncrementPinVersion();
}

CSourceStream::CSourceStream(CSource* source, WString pinName) : CBaseOutputPin(source, std::move(pinName)) {}

CSourceStream::~CSourceStream() = default;

HRESULT CSourceStream::Send(Command command)
{
    const DWORD reply = CallWorker(command);
    return reply == kNoWorker ? E_FAIL : static_cast<HRESULT>(reply);
}

HRESULT CSourceStream::Active()
{
    if (!IsConnected())
        return S_OK;
    HRESULT hr = CBaseOutputPin::Active();
    if (FAILED(hr))
        return hr;
    if (!Create())
        return E_FAIL;
    hr = Send(CMD_INIT);
    return FAILED(hr) ? hr : Send(CMD_PAUSE);
}

HRESULT CSourceStream::Inactive()
{
    if (!IsConnected())
        return S_OK;
    const HRESULT hr = CBaseOutputPin::Inactive();
    if (ThreadExists()) {
        Send(CMD_STOP);
        Send(CMD_EXIT);
        Close();
    }
    return hr;
}

DWORD CSourceStream::ThreadProc()
{
    SetCurrentThreadName("vex pin");
    if (GetRequest() != CMD_INIT) {
        Reply(static_cast<DWORD>(E_UNEXPECTED));
        return 1;
    }
    Reply(static_cast<DWORD>(NOERROR));
    for (;;) {
        switch (GetRequest()) {
        case CMD_EXIT:
            Reply(static_cast<DWORD>(NOERROR));
            return 0;
        case CMD_RUN:
        case CMD_PAUSE:
            Reply(static_cast<DWORD>(NOERROR));
            DoBufferProcessingLoop();
            break;
        case CMD_STOP:
            Reply(static_cast<DWORD>(NOERROR));
            break;
        default:
            Reply(static_cast<DWORD>(E_NOTIMPL));
            break;
        }
    }
}

}  // namespace vex
