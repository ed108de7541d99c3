// A peer's allocator that has only so much to give.
#pragma once

#include <algorithm>

#include "dshow/media_sample.h"
#include "support/test_object.h"

namespace vex::test {

// Grants buffers of at most `most` bytes.
class CLimitedAllocator final : public GTestObject<IMemAllocator> {
public:
    explicit CLimitedAllocator(LONG most = INT32_MAX) : limit(most) {}
    std::atomic<bool> commits{true};  // or has no memory
    HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) override
    {
        ALLOCATOR_PROPERTIES limited = *request;
        limited.cbBuffer = std::min(limited.cbBuffer, limit);
        return real->SetProperties(&limited, actual);
    }
    HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* props) override { return real->GetProperties(props); }
    HRESULT STDMETHODCALLTYPE Commit() override { return commits ? real->Commit() : E_OUTOFMEMORY; }
    HRESULT STDMETHODCALLTYPE Decommit() override { return real->Decommit(); }
    HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* end,
                                        DWORD flags) override
    {
        return real->GetBuffer(sample, start, end, flags);
    }
    HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* sample) override { return real->ReleaseBuffer(sample); }

private:
    const LONG limit;
    const GComPtr<IMemAllocator> real{new CMemAllocator};
};

}  // namespace vex::test
