// The sending half of a connection over shared memory.
#pragma once

#include "dshow/base_filter.h"

namespace vex {

// Connects to a peer that takes samples (IMemInputPin) and agrees with it on an allocator: the peer's own first, then
// one of ours. The Deliver family is called from the pin's streaming thread; all of it calls out with no lock held.
class CBaseOutputPin : public CBasePin {
public:
    CBaseOutputPin(CBaseFilter* owningFilter, WString pinName);
    ~CBaseOutputPin() override = default;

    HRESULT Active() override;    // commits the allocator
    HRESULT Inactive() override;  // decommits it, which wakes a GetDeliveryBuffer that waits

    // What the pin wants of an allocator; called while connecting.
    virtual HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) = 0;

    HRESULT GetDeliveryBuffer(IMediaSample** sample);
    HRESULT Deliver(IMediaSample* sample);
    HRESULT DeliverEndOfStream();
    HRESULT DeliverBeginFlush();
    HRESULT DeliverEndFlush();
    HRESULT DeliverNewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate);

    // Gives the allocator buffers of `bytes` bytes, all else unchanged, and commits it again, whatever the outcome.
    // Streaming thread; no sample may be held.
    HRESULT ResizeBuffers(LONG bytes);

protected:
    HRESULT CheckConnect(IPin* receivePin) override;
    HRESULT CompleteConnect(IPin* receivePin) override;
    HRESULT BreakConnect() override;

    GComPtr<IMemAllocator> Allocator();

private:
    HRESULT DecideAllocator(IMemInputPin* receiver);
    HRESULT OfferAllocator(IMemInputPin* receiver, IMemAllocator* candidate, ALLOCATOR_PROPERTIES* request);
    GComPtr<IMemInputPin> Receiver();

    GComPtr<IMemAllocator> allocator G_GUARDED_BY(pinLock);
    GComPtr<IMemInputPin> receiver G_GUARDED_BY(pinLock);
    bool active G_GUARDED_BY(pinLock) = false;  // between Active and Inactive: ResizeBuffers may commit
};

}  // namespace vex
