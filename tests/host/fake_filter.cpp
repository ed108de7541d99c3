#include "host/fake_filter.h"

#include <algorithm>
#include <array>

#include "dshow/class_factory.h"
#include "dshow/source.h"
#include "dshow/source_seeking.h"

namespace vex::test {

namespace {

GFakeScript currentScript;

class CFakePin final : public CSourceStream, public CSourceSeeking {
public:
    CFakePin(CSource* source, CCritSec* lock, std::size_t pinIndex, GFakePin pinScript)
        : CSourceStream(source, pinScript.name),
          CSourceSeeking(lock, pinScript.samples * kFakeSampleTime),
          index(pinIndex),
          script(std::move(pinScript))
    {
    }

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override
    {
        if (riid == IID_IMediaSeeking)
            return GetInterface(static_cast<IMediaSeeking*>(this), ppv);
        return CSourceStream::NonDelegatingQueryInterface(riid, ppv);
    }

    STDMETHODIMP SetPositions(LONGLONG* pCurrent, DWORD dwCurrentFlags, LONGLONG* pStop, DWORD dwStopFlags) override
    {
        const bool playing = ThreadExists();
        if (playing) {
            DeliverBeginFlush();
            StopThread();
        }
        const HRESULT result = CSourceSeeking::SetPositions(pCurrent, dwCurrentFlags, pStop, dwStopFlags);
        if (playing) {
            DeliverEndFlush();
            RunThread();
        }
        return result;
    }

    HRESULT GetMediaType(int position, CMediaType* type) override
    {
        if (position < 0)
            return E_INVALIDARG;
        if (position > 0)
            return VFW_S_NO_MORE_ITEMS;
        *type = CMediaType(MEDIATYPE_Video, MEDIASUBTYPE_RGB24);
        return S_OK;
    }
    HRESULT CheckMediaType(const CMediaType* type) override
    {
        return type->subtype == MEDIASUBTYPE_RGB24 ? S_OK : E_INVALIDARG;
    }
    HRESULT DecideBufferSize(IMemAllocator* wanted, ALLOCATOR_PROPERTIES* request) override
    {
        request->cBuffers = 1;
        request->cbBuffer = static_cast<LONG>(std::max(script.sampleBytes, 1u));
        ALLOCATOR_PROPERTIES actual{};
        return wanted->SetProperties(request, &actual);
    }

protected:
    HRESULT ChangeStart() override { return S_OK; }
    HRESULT ChangeStop() override { return S_OK; }
    HRESULT ChangeRate() override { return S_OK; }

    HRESULT DoBufferProcessingLoop() override
    {
        const GSegment segment = Segment();
        if (!script.skipsSegment)
            DeliverNewSegment(segment.start, segment.stop, segment.rate);
        bool first = true;
        for (auto number = static_cast<std::uint32_t>(segment.start / kFakeSampleTime); number < script.samples;
             ++number) {
            if (RequestPending())
                return S_FALSE;
            if (Send(number, segment.start, first) != S_OK)
                return S_OK;
            first = false;
        }
        if (script.neverEnds)
            return S_OK;
        if (FAILED(script.failWith)) {
            Filter()->NotifyEvent(EC_ERRORABORT, script.failWith, 0);
            return script.failWith;
        }
        DeliverEndOfStream();
        if (script.endsTwice)
            DeliverEndOfStream();
        return S_OK;
    }

private:
    HRESULT Send(std::uint32_t number, REFERENCE_TIME base, bool first)
    {
        GComPtr<IMediaSample> sample;
        if (const HRESULT result = GetDeliveryBuffer(sample.Put()); FAILED(result))
            return result;
        BYTE* memory = nullptr;
        sample->GetPointer(&memory);
        const auto payload = FakePayload(index, number, script.sampleBytes);
        std::copy(payload.begin(), payload.end(), memory);
        sample->SetActualDataLength(static_cast<LONG>(payload.size()));
        REFERENCE_TIME start = number * kFakeSampleTime - base;
        REFERENCE_TIME stop = start + kFakeSampleTime;
        LONGLONG mediaStart = number;
        LONGLONG mediaStop = number + 1;
        sample->SetTime(script.hasTimes ? &start : nullptr, script.hasTimes && script.hasStop ? &stop : nullptr);
        sample->SetMediaTime(script.hasTimes ? &mediaStart : nullptr, script.hasTimes ? &mediaStop : nullptr);
        sample->SetSyncPoint(number % 2 == 0);
        sample->SetDiscontinuity(first);
        sample->SetPreroll(number == 1);
        return Deliver(sample.Get());
    }

    const std::size_t index;
    const GFakePin script;
};

class CFakeFilter final : public CSource, public IFileSourceFilter {
public:
    explicit CFakeFilter(IUnknown* outer) : CSource(VEX_W("Fake"), outer, kFakeClsid) {}

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override
    {
        if (riid == IID_IFileSourceFilter)
            return GetInterface(static_cast<IFileSourceFilter*>(this), ppv);
        return CSource::NonDelegatingQueryInterface(riid, ppv);
    }

    STDMETHODIMP Load(LPCOLESTR, const AM_MEDIA_TYPE*) override
    {
        if (FAILED(currentScript.loadResult)) {
            if (!currentScript.loadError.empty())
                LeaveError(currentScript.loadError);
            return currentScript.loadResult;
        }
        for (std::size_t i = 0; i < currentScript.pins.size(); ++i)
            AddPin(std::make_unique<CFakePin>(this, &seekLock, i, currentScript.pins[i]));
        return S_OK;
    }
    STDMETHODIMP GetCurFile(LPOLESTR*, AM_MEDIA_TYPE*) override { return E_NOTIMPL; }

private:
    static void LeaveError(WString text)
    {
        GComPtr<ICreateErrorInfo> writer;
        if (FAILED(CreateErrorInfo(writer.Put())))
            return;
        writer->SetDescription(text.data());
        SetErrorInfo(0, QueryFor<IErrorInfo>(writer.Get(), IID_IErrorInfo).Get());
    }

    CCritSec seekLock;
};

constexpr std::array kTable{CFactoryTemplate{
    VEX_W("Fake"), kFakeClsid, [](IUnknown* outer, HRESULT*) -> CUnknown* { return new CFakeFilter(outer); }, {}}};

HRESULT STDMETHODCALLTYPE FakeGetClassObject(REFCLSID clsid, REFIID iid, void** ppv)
{
    return GetClassObject(kTable, clsid, iid, ppv);
}

HRESULT STDMETHODCALLTYPE FakeCanUnloadNow() { return CanUnloadNow(); }

}  // namespace

GModule FakeModule(GFakeScript script)
{
    currentScript = std::move(script);
    return {FakeGetClassObject, FakeCanUnloadNow, nullptr};
}

std::vector<std::uint8_t> FakePayload(std::size_t pin, std::uint32_t number, std::uint32_t bytes)
{
    std::vector<std::uint8_t> payload(bytes);
    for (std::uint32_t i = 0; i < bytes; ++i)
        payload[i] = static_cast<std::uint8_t>(pin * 31 + number * 7 + i);
    return payload;
}

}  // namespace vex::test
