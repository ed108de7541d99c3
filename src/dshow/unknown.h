// IUnknown for the module's objects, with aggregation and the count of living objects.
#pragma once

#include <atomic>
#include <new>

#include "platform/com.h"
#include "platform/thread_primitives.h"

namespace vex {

// Runs a COM method's body: what it throws becomes a result, so that no exception leaves the module.
template <class Body>
HRESULT ComGuard(Body&& body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_UNEXPECTED;
    }
}

// Base of every COM object of the module. A new object has no reference: whoever creates it queries or adds one.
//
// The NonDelegating methods are the object's own reference count and interfaces, as opposed to those of an outer object
// that aggregates it.
class CUnknown {
public:
    explicit CUnknown(IUnknown* outer);
    virtual ~CUnknown();
    CUnknown(const CUnknown&) = delete;
    CUnknown& operator=(const CUnknown&) = delete;

    // Answers IUnknown; a derived class answers its own interfaces and hands the rest down to its base.
    virtual HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv);
    virtual ULONG STDMETHODCALLTYPE NonDelegatingAddRef();
    virtual ULONG STDMETHODCALLTYPE NonDelegatingRelease();

    // The unknown that QueryInterface, AddRef and Release delegate to: the outer one, or the object's own. Not owned.
    IUnknown* GetOwner() const { return owner; }
    // The object's own unknown: what the creator of an aggregate holds.
    IUnknown* NonDelegatingUnknown() { return &inner; }

    // Living objects of the module. The thread that ended the last one may still be on its way out.
    static LONG ObjectsActive() { return activeObjects.load(std::memory_order_acquire); }
    // True when no object lives and no thread of the module runs any more. A thread of the host.
    static bool AllGone();

protected:
    // Called once, when the last reference is gone and before destruction begins: the place to end threads that still
    // use the object as its most derived self.
    virtual void FinalRelease() {}
    // True on a thread that FinalRelease would have to wait for: the object is then finished on a thread of its own.
    virtual bool ReleasedByOwnThread() { return false; }

    std::atomic<ULONG> references{0};

private:
    void Finish();
    void FinishElsewhere();
    static void FinishWaiting();
    static void Join(GNativeThread* finisher);

    class GInner final : public IUnknown {
    public:
        explicit GInner(CUnknown& described) : object(described) {}
        STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override
        {
            return object.NonDelegatingQueryInterface(riid, ppv);
        }
        STDMETHODIMP_(ULONG) AddRef() override { return object.NonDelegatingAddRef(); }
        STDMETHODIMP_(ULONG) Release() override { return object.NonDelegatingRelease(); }

    private:
        CUnknown& object;
    };

    GInner inner{*this};
    IUnknown* const owner;
    CUnknown* nextWaiting = nullptr;
    static std::atomic<LONG> activeObjects;
    static std::atomic<CUnknown*> waiting;  // last reference gone, but no thread to finish them on; a list
};

// Hands out `unknown` with a reference added; what every NonDelegatingQueryInterface ends in.
HRESULT GetInterface(IUnknown* unknown, void** ppv);

// The delegating IUnknown of a class derived from CUnknown and one or more interfaces.
#define DECLARE_IUNKNOWN                                                                                               \
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override                                         \
    {                                                                                                                  \
        return GetOwner()->QueryInterface(riid, ppv);                                                                  \
    }                                                                                                                  \
    ULONG STDMETHODCALLTYPE AddRef() override { return GetOwner()->AddRef(); }                                         \
    ULONG STDMETHODCALLTYPE Release() override { return GetOwner()->Release(); }

}  // namespace vex
