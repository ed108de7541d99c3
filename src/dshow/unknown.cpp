#include "dshow/unknown.h"

#include <system_error>

#include "platform/thread_primitives.h"
#include "platform/trace.h"

namespace vex {

std::atomic<LONG> CUnknown::activeObjects{0};

CUnknown::CUnknown(IUnknown* outer) : owner(outer ? outer : &inner)
{
    activeObjects.fetch_add(1, std::memory_order_acq_rel);
}

CUnknown::~CUnknown() { activeObjects.fetch_sub(1, std::memory_order_acq_rel); }

HRESULT CUnknown::NonDelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    if (riid == IID_IUnknown)
        return GetInterface(NonDelegatingUnknown(), ppv);
    *ppv = nullptr;
    return E_NOINTERFACE;
}

ULONG CUnknown::NonDelegatingAddRef() { return references.fetch_add(1, std::memory_order_relaxed) + 1; }

ULONG CUnknown::NonDelegatingRelease()
{
    const ULONG left = references.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left != 0)
        return left;
    // A reference taken and given back during destruction must not destroy the object a second time.
    references.store(1, std::memory_order_relaxed);
    if (!ReleasedByOwnThread()) {
        Finish();
        return 0;
    }
    // A peer gave the last reference back from inside a call of ours: that call has to return before the object may go.
    try {
        GNativeThread([this] { Finish(); }).detach();
    } catch (const std::system_error&) {
        Trace("An object stays alive: no thread to destroy it on\n");
    }
    return 0;
}

void CUnknown::Finish()
{
    FinalRelease();
    delete this;
}

HRESULT GetInterface(IUnknown* unknown, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = unknown;
    unknown->AddRef();
    return S_OK;
}

}  // namespace vex
