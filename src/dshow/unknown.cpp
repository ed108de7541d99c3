#include "dshow/unknown.h"

#include <memory>
#include <system_error>
#include <utility>

#include "platform/com_apartment.h"
#include "platform/threads.h"
#include "platform/trace.h"

namespace vex {

std::atomic<LONG> CUnknown::activeObjects{0};
std::atomic<CUnknown*> CUnknown::waiting{nullptr};

namespace {

// Of CUnknown's finishers. Nothing of this is destroyed when the module is: a static destructor must not wait for a
// thread.
GMutex finishersLock;
GNativeThread* lastFinisher G_GUARDED_BY(finishersLock) = nullptr;  // joins the one before it

}  // namespace

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
    if (ReleasedByOwnThread()) {
        FinishElsewhere();
        return 0;
    }
    Finish();
    FinishWaiting();
    return 0;
}

void CUnknown::Finish()
{
    FinalRelease();
    delete this;
}

// A peer gave the last reference back from inside a call of ours: that call has to return before the object may go. The
// new thread counts as an object as long as it may call out of the module.
void CUnknown::FinishElsewhere()
{
    const GMutexLock held(finishersLock);
    activeObjects.fetch_add(1, std::memory_order_acq_rel);
    try {
        auto finisher = std::make_unique<GNativeThread>();
        *finisher = GNativeThread([this, before = lastFinisher] {
            {
                const GComApartment apartment;
                Finish();
            }
            activeObjects.fetch_sub(1, std::memory_order_acq_rel);
            Join(before);
        });
        lastFinisher = finisher.release();
        return;
    } catch (const std::system_error&) {
    } catch (const std::bad_alloc&) {
    }
    activeObjects.fetch_sub(1, std::memory_order_acq_rel);
    Trace("An object waits for a thread to be finished on\n");
    nextWaiting = waiting.load(std::memory_order_relaxed);
    waiting.store(this, std::memory_order_release);
}

void CUnknown::Join(GNativeThread* finisher)
{
    if (!finisher)
        return;
    finisher->join();
    delete finisher;
}

// On a thread of the host, which does for a thread that could not be had.
void CUnknown::FinishWaiting()
{
    if (!waiting.load(std::memory_order_acquire))
        return;
    CUnknown* object = nullptr;
    {
        const GMutexLock held(finishersLock);
        object = waiting.exchange(nullptr, std::memory_order_acq_rel);
    }
    while (object) {
        CUnknown* const next = object->nextWaiting;
        if (object->ReleasedByOwnThread())
            object->FinishElsewhere();
        else
            object->Finish();
        object = next;
    }
}

bool CUnknown::AllGone()
{
    FinishWaiting();
    if (ObjectsActive() != 0)
        return false;
    // What a finisher has left to do with no object is to end.
    const GMutexLock held(finishersLock);
    Join(std::exchange(lastFinisher, nullptr));
    return true;
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
