// COM as the module uses it: IUnknown, the class factory interface, task memory, BSTR and error information.
#pragma once

#include "platform/types.h"

#include <utility>

#ifdef _WIN32

#include <oaidl.h>
#include <objbase.h>
#include <oleauto.h>
#include <olectl.h>
#include <unknwn.h>

#else

inline constexpr IID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IClassFactory{0x00000001, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IPersist{0x0000010C, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IErrorInfo{0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
inline constexpr IID IID_ICreateErrorInfo{0x22F03340, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};
inline constexpr IID IID_ISupportErrorInfo{
    0xDF0B3D60, 0x548F, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

// Interfaces are called through their tables only and destroyed by Release; none has a virtual destructor, so that
// the table layout is that of the COM binary standard.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

struct IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) = 0;
    virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
using LPUNKNOWN = IUnknown*;

struct IClassFactory : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) = 0;
    virtual HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) = 0;
};

struct IPersist : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetClassID(CLSID* pClassID) = 0;
};

struct IErrorInfo : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) = 0;
};

struct ICreateErrorInfo : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR szSource) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR szDescription) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR szHelpFile) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD dwHelpContext) = 0;
};

struct ISupportErrorInfo : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID riid) = 0;
};

#pragma GCC diagnostic pop

// Task memory: what one side allocates and the other frees. Null when the allocation fails; freeing null is harmless.
void* CoTaskMemAlloc(std::size_t cb);
void CoTaskMemFree(void* pv);

// BSTR: length-prefixed, NUL-terminated UTF-16. Null when the allocation fails.
BSTR SysAllocString(const OLECHAR* psz);
BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui);
void SysFreeString(BSTR bstrString);
UINT SysStringLen(BSTR pbstr);

// The calling thread's error object. GetErrorInfo hands it over once (S_FALSE when there is none).
HRESULT CreateErrorInfo(ICreateErrorInfo** pperrinfo);
HRESULT SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo);
HRESULT GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo);

// The braced text of a GUID ("{6BA9DD10-...}", 38 characters and a NUL); returns the characters written including
// the NUL, or 0 when `cchMax` is below 39.
int StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax);

#endif

namespace vex {

// Owning COM pointer. Copying adds a reference, destruction releases it.
template <class T>
class GComPtr {
public:
    GComPtr() = default;
    GComPtr(std::nullptr_t) {}
    explicit GComPtr(T* borrowed) : object(borrowed)
    {
        if (borrowed)
            borrowed->AddRef();
    }
    GComPtr(const GComPtr& other) : GComPtr(other.object) {}
    GComPtr(GComPtr&& other) noexcept : object(other.Detach()) {}
    ~GComPtr() { Reset(); }
    GComPtr& operator=(GComPtr other) noexcept
    {
        std::swap(object, other.object);
        return *this;
    }

    // Takes over a reference that the caller already owns.
    static GComPtr Adopt(T* owned)
    {
        GComPtr result;
        result.object = owned;
        return result;
    }

    void Reset()
    {
        if (T* old = Detach())
            old->Release();
    }
    T* Detach() { return std::exchange(object, nullptr); }
    // For out parameters: releases what is held and hands out the address.
    T** Put()
    {
        Reset();
        return &object;
    }
    void** PutVoid() { return reinterpret_cast<void**>(Put()); }
    T* Get() const { return object; }
    T* operator->() const { return object; }
    T& operator*() const { return *object; }
    explicit operator bool() const { return object != nullptr; }

private:
    T* object = nullptr;
};

// QueryInterface into an owning pointer; empty when `from` is null or does not answer `iid`.
template <class T>
GComPtr<T> QueryFor(IUnknown* from, REFIID iid)
{
    GComPtr<T> result;
    if (from && FAILED(from->QueryInterface(iid, result.PutVoid())))
        return {};
    return result;
}

}  // namespace vex
