#include "dshow/base_output_pin.h"

#include "dshow/media_sample.h"

namespace vex {

CBaseOutputPin::CBaseOutputPin(CBaseFilter* owningFilter, WString pinName)
    : CBasePin(owningFilter, std::move(pinName), PINDIR_OUTPUT)
{
}

GComPtr<IMemAllocator> CBaseOutputPin::Allocator()
{
    const GMutexLock held(pinLock);
    return allocator;
}

GComPtr<IMemInputPin> CBaseOutputPin::Receiver()
{
    const GMutexLock held(pinLock);
    return receiver;
}

HRESULT CBaseOutputPin::CheckConnect(IPin* receivePin)
{
    const HRESULT hr = CBasePin::CheckConnect(receivePin);
    if (FAILED(hr))
        return hr;
    GComPtr<IMemInputPin> input = QueryFor<IMemInputPin>(receivePin, IID_IMemInputPin);
    if (!input)
        return VFW_E_NO_TRANSPORT;
    const GMutexLock held(pinLock);
    receiver = std::move(input);
    return S_OK;
}

HRESULT CBaseOutputPin::CompleteConnect(IPin*)
{
    const GComPtr<IMemInputPin> input = Receiver();
    return input ? DecideAllocator(input.Get()) : VFW_E_NO_TRANSPORT;
}

HRESULT CBaseOutputPin::BreakConnect()
{
    GComPtr<IMemAllocator> oldAllocator;
    GComPtr<IMemInputPin> oldReceiver;
    {
        const GMutexLock held(pinLock);
        std::swap(oldAllocator, allocator);
        std::swap(oldReceiver, receiver);
    }
    if (oldAllocator)
        oldAllocator->Decommit();
    return S_OK;
}

HRESULT CBaseOutputPin::OfferAllocator(IMemInputPin* input, IMemAllocator* candidate, ALLOCATOR_PROPERTIES* request)
{
    HRESULT hr = DecideBufferSize(candidate, request);
    if (SUCCEEDED(hr))
        hr = input->NotifyAllocator(candidate, FALSE);
    if (FAILED(hr))
        return hr;
    const GMutexLock held(pinLock);
    allocator = GComPtr<IMemAllocator>(candidate);
    return S_OK;
}

HRESULT CBaseOutputPin::DecideAllocator(IMemInputPin* input)
{
    ALLOCATOR_PROPERTIES request{};
    input->GetAllocatorRequirements(&request);  // a peer without wishes leaves zeros
    if (request.cbAlign == 0)
        request.cbAlign = 1;

    GComPtr<IMemAllocator> theirs;
    if (SUCCEEDED(input->GetAllocator(theirs.Put())) && theirs) {
        ALLOCATOR_PROPERTIES wanted = request;
        if (SUCCEEDED(OfferAllocator(input, theirs.Get(), &wanted)))
            return S_OK;
    }
    const GComPtr<IMemAllocator> ours(new CMemAllocator);
    return OfferAllocator(input, ours.Get(), &request);
}

HRESULT CBaseOutputPin::Active()
{
    const GComPtr<IMemAllocator> memory = Allocator();
    if (!memory)
        return VFW_E_NO_ALLOCATOR;
    {
        const GMutexLock held(pinLock);
        active = true;
    }
    return memory->Commit();
}

HRESULT CBaseOutputPin::Inactive()
{
    {
        const GMutexLock held(pinLock);
        active = false;
    }
    const GComPtr<IMemAllocator> memory = Allocator();
    return memory ? memory->Decommit() : VFW_E_NO_ALLOCATOR;
}

HRESULT CBaseOutputPin::ResizeBuffers(LONG bytes)
{
    const GComPtr<IMemAllocator> memory = Allocator();
    if (!memory)
        return VFW_E_NO_ALLOCATOR;
    HRESULT hr = memory->Decommit();
    if (FAILED(hr))
        return hr;
    ALLOCATOR_PROPERTIES properties{};
    ALLOCATOR_PROPERTIES granted{};
    hr = memory->GetProperties(&properties);
    properties.cbBuffer = bytes;
    if (SUCCEEDED(hr))
        hr = memory->SetProperties(&properties, &granted);
    if (SUCCEEDED(hr) && granted.cbBuffer < bytes)
        hr = E_FAIL;
    // Also after a failure: what comes next may fit the buffers there are.
    const HRESULT committed = memory->Commit();
    // A stop that decommitted meanwhile must stay the last word.
    bool stopping = false;
    {
        const GMutexLock held(pinLock);
        stopping = !active;
    }
    if (stopping) {
        memory->Decommit();
        return VFW_E_NOT_COMMITTED;
    }
    return FAILED(hr) ? hr : committed;
}

HRESULT CBaseOutputPin::GetDeliveryBuffer(IMediaSample** sample)
{
    const GComPtr<IMemAllocator> memory = Allocator();
    return memory ? memory->GetBuffer(sample, nullptr, nullptr, 0) : E_NOINTERFACE;
}

HRESULT CBaseOutputPin::Deliver(IMediaSample* sample)
{
    const GComPtr<IMemInputPin> input = Receiver();
    return input ? input->Receive(sample) : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverEndOfStream()
{
    const GComPtr<IPin> to = Peer();
    return to ? to->EndOfStream() : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverBeginFlush()
{
    const GComPtr<IPin> to = Peer();
    return to ? to->BeginFlush() : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverEndFlush()
{
    const GComPtr<IPin> to = Peer();
    return to ? to->EndFlush() : VFW_E_NOT_CONNECTED;
}

HRESULT CBaseOutputPin::DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate)
{
    const GComPtr<IPin> to = Peer();
    return to ? to->NewSegment(start, stop, rate) : VFW_E_NOT_CONNECTED;
}

}  // namespace vex
