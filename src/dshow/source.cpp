#include "dshow/source.h"

#include <algorithm>
#include <iterator>
#include <string>

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

int CSource::PinNumber(const CBasePin* pin)
{
    const GMutexLock held(pinsLock);
    const auto found = std::ranges::find_if(pins, [&](const auto& own) { return own.get() == pin; });
    return found == pins.end() ? 0 : static_cast<int>(found - pins.begin()) + 1;
}

HRESULT CSource::FindPin(LPCWSTR Id, IPin** ppPin)
{
    if (!Id || !ppPin)
        return E_POINTER;
    *ppPin = nullptr;
    int number = 0;
    for (; *Id >= VEX_W('0') && *Id <= VEX_W('9') && number <= GetPinCount(); ++Id)
        number = number * 10 + (*Id - VEX_W('0'));
    CBasePin* pin = *Id == 0 ? GetPin(number - 1) : nullptr;
    if (!pin)
        return VFW_E_NOT_FOUND;
    pin->AddRef();
    *ppPin = pin;
    return S_OK;
}

void CSource::AddPins(std::vector<std::unique_ptr<CSourceStream>> added)
{
    {
        const GMutexLock held(pinsLock);
        pins.reserve(pins.size() + added.size());
        std::ranges::move(added, std::back_inserter(pins));
    }
    IncrementPinVersion();
}

CSourceStream::CSourceStream(CSource* source, WString pinName)
    : CBaseOutputPin(source, std::move(pinName)), sourceFilter(source)
{
}

CSourceStream::~CSourceStream() = default;

HRESULT CSourceStream::Send(Command command)
{
    const DWORD reply = CallWorker(command);
    return reply == kNoWorker ? E_FAIL : static_cast<HRESULT>(reply);
}

HRESULT CSourceStream::QueryId(LPWSTR* Id)
{
    if (!Id)
        return E_POINTER;
    *Id = nullptr;
    const int number = sourceFilter->PinNumber(this);
    if (number == 0)
        return VFW_E_NOT_FOUND;
    return ComGuard([&] {
        const std::string text = std::to_string(number);
        *Id = TaskMemCopy(WString(text.begin(), text.end()));
        return *Id ? S_OK : E_OUTOFMEMORY;
    });
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
