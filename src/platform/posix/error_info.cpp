// The error object of a thread. A program and the module that it loads each carry a copy of this file but have to meet
// in one place, so a program offers its copy by name and every other copy looks there first.
#include <dlfcn.h>

#include <atomic>
#include <new>

#include "platform/com.h"

namespace {

class GErrorInfo final : public ICreateErrorInfo, public IErrorInfo {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        if (riid == IID_ICreateErrorInfo || riid == IID_IUnknown) {
            *ppv = static_cast<ICreateErrorInfo*>(this);
        } else if (riid == IID_IErrorInfo) {
            *ppv = static_cast<IErrorInfo*>(this);
        } else {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return references.fetch_add(1, std::memory_order_relaxed) + 1; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = references.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            delete this;
        return left;
    }

    HRESULT STDMETHODCALLTYPE SetGUID(REFGUID rguid) override
    {
        guid = rguid;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSource(LPOLESTR szSource) override { return Keep(source, szSource); }
    HRESULT STDMETHODCALLTYPE SetDescription(LPOLESTR szDescription) override
    {
        return Keep(description, szDescription);
    }
    HRESULT STDMETHODCALLTYPE SetHelpFile(LPOLESTR szHelpFile) override { return Keep(helpFile, szHelpFile); }
    HRESULT STDMETHODCALLTYPE SetHelpContext(DWORD dwHelpContext) override
    {
        helpContext = dwHelpContext;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetGUID(GUID* pGUID) override { return Give(guid, pGUID); }
    HRESULT STDMETHODCALLTYPE GetSource(BSTR* pBstrSource) override { return GiveText(source, pBstrSource); }
    HRESULT STDMETHODCALLTYPE GetDescription(BSTR* pBstrDescription) override
    {
        return GiveText(description, pBstrDescription);
    }
    HRESULT STDMETHODCALLTYPE GetHelpFile(BSTR* pBstrHelpFile) override { return GiveText(helpFile, pBstrHelpFile); }
    HRESULT STDMETHODCALLTYPE GetHelpContext(DWORD* pdwHelpContext) override
    {
        return Give(helpContext, pdwHelpContext);
    }

private:
    ~GErrorInfo()
    {
        SysFreeString(source);
        SysFreeString(description);
        SysFreeString(helpFile);
    }

    static HRESULT Keep(BSTR& field, const OLECHAR* text)
    {
        const BSTR copy = SysAllocString(text);
        if (text && !copy)
            return E_OUTOFMEMORY;
        SysFreeString(field);
        field = copy;
        return S_OK;
    }
    template <class T>
    static HRESULT Give(const T& field, T* out)
    {
        if (!out)
            return E_POINTER;
        *out = field;
        return S_OK;
    }
    static HRESULT GiveText(BSTR field, BSTR* out)
    {
        if (!out)
            return E_POINTER;
        *out = SysAllocStringLen(field, SysStringLen(field));
        return *out ? S_OK : E_OUTOFMEMORY;
    }

    std::atomic<ULONG> references{1};
    GUID guid{};
    BSTR source = nullptr;
    BSTR description = nullptr;
    BSTR helpFile = nullptr;
    DWORD helpContext = 0;
};

thread_local vex::GComPtr<IErrorInfo> threadError;

}  // namespace

extern "C" {

[[gnu::visibility("default")]] HRESULT VexCreateErrorInfo(ICreateErrorInfo** created)
{
    *created = new (std::nothrow) GErrorInfo;
    return *created ? S_OK : E_OUTOFMEMORY;
}

// Puts `next` (a reference that is taken over) in the place of what is returned (a reference handed over).
[[gnu::visibility("default")]] IErrorInfo* VexExchangeErrorInfo(IErrorInfo* next)
{
    IErrorInfo* previous = threadError.Detach();
    threadError = vex::GComPtr<IErrorInfo>::Adopt(next);
    return previous;
}
}

namespace {

template <class Function>
Function* OfProgram(const char* name, Function* own)
{
    void* found = ::dlsym(RTLD_DEFAULT, name);
    return found ? reinterpret_cast<Function*>(found) : own;
}

vex::GComPtr<IErrorInfo> ExchangeErrorInfo(IErrorInfo* next)
{
    static const auto exchange = OfProgram("VexExchangeErrorInfo", &VexExchangeErrorInfo);
    return vex::GComPtr<IErrorInfo>::Adopt(exchange(next));
}

}  // namespace

HRESULT CreateErrorInfo(ICreateErrorInfo** pperrinfo)
{
    if (!pperrinfo)
        return E_INVALIDARG;
    static const auto create = OfProgram("VexCreateErrorInfo", &VexCreateErrorInfo);
    return create(pperrinfo);
}

HRESULT SetErrorInfo(ULONG dwReserved, IErrorInfo* perrinfo)
{
    if (dwReserved != 0)
        return E_INVALIDARG;
    if (perrinfo)
        perrinfo->AddRef();
    ExchangeErrorInfo(perrinfo);
    return S_OK;
}

HRESULT GetErrorInfo(ULONG dwReserved, IErrorInfo** pperrinfo)
{
    if (dwReserved != 0 || !pperrinfo)
        return E_INVALIDARG;
    *pperrinfo = ExchangeErrorInfo(nullptr).Detach();
    return *pperrinfo ? S_OK : S_FALSE;
}
