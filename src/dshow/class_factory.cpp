#include "dshow/class_factory.h"

namespace vex {

namespace {

std::atomic<LONG> serverLocks{0};

class CClassFactory final : public CUnknown, public IClassFactory {
public:
    explicit CClassFactory(const CFactoryTemplate& served) : CUnknown(nullptr), entry(served) {}

    DECLARE_IUNKNOWN

    STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override
    {
        if (riid == IID_IClassFactory)
            return GetInterface(static_cast<IClassFactory*>(this), ppv);
        return CUnknown::NonDelegatingQueryInterface(riid, ppv);
    }

    STDMETHODIMP CreateInstance(IUnknown* pUnkOuter, REFIID riid, void** ppv) override
    {
        if (!ppv)
            return E_POINTER;
        *ppv = nullptr;
        // Whoever aggregates must ask for the object's own unknown.
        if (pUnkOuter && riid != IID_IUnknown)
            return E_NOINTERFACE;
        return ComGuard([&]() -> HRESULT {
            HRESULT hr = S_OK;
            CUnknown* object = entry.create(pUnkOuter, &hr);
            if (!object)
                return FAILED(hr) ? hr : E_OUTOFMEMORY;
            object->NonDelegatingAddRef();
            if (SUCCEEDED(hr))
                hr = object->NonDelegatingQueryInterface(riid, ppv);
            object->NonDelegatingRelease();
            return hr;
        });
    }

    STDMETHODIMP LockServer(BOOL fLock) override
    {
        serverLocks.fetch_add(fLock ? 1 : -1, std::memory_order_acq_rel);
        return S_OK;
    }

private:
    const CFactoryTemplate& entry;
};

WString ClassKey(REFCLSID clsid)
{
    WCHAR text[39] = {};
    StringFromGUID2(clsid, text, 39);
    return WString(VEX_W("CLSID\\")) + text;
}

HRESULT WriteClassKeys(const CFactoryTemplate& entry, const WString& modulePath)
{
    const WString key = ClassKey(entry.clsid);
    HRESULT hr = GClassesRoot::SetString(key, {}, entry.name);
    if (FAILED(hr))
        return hr;
    const WString server = key + VEX_W("\\InprocServer32");
    hr = GClassesRoot::SetString(server, {}, modulePath);
    if (FAILED(hr))
        return hr;
    return GClassesRoot::SetString(server, VEX_W("ThreadingModel"), VEX_W("Both"));
}

// Each filter is unregistered first, so that registering twice leaves one entry.
HRESULT UpdateMapper(std::span<const CFactoryTemplate> table, bool install)
{
    GFilterMapper mapper;
    HRESULT hr = mapper.Status();
    if (FAILED(hr))
        return hr;
    for (const CFactoryTemplate& entry : table) {
        hr = mapper.Unregister(entry.clsid);
        if (SUCCEEDED(hr) && install)
            hr = mapper.Register(entry.setup);
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

}  // namespace

HRESULT GetClassObject(std::span<const CFactoryTemplate> table, REFCLSID rclsid, REFIID riid, void** ppv)
{
    if (!ppv)
        return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != IID_IClassFactory)
        return E_NOINTERFACE;
    return ComGuard([&]() -> HRESULT {
        for (const CFactoryTemplate& entry : table) {
            if (entry.clsid != rclsid)
                continue;
            auto* factory = new CClassFactory(entry);
            factory->NonDelegatingAddRef();
            const HRESULT hr = factory->NonDelegatingQueryInterface(riid, ppv);
            factory->NonDelegatingRelease();
            return hr;
        }
        return CLASS_E_CLASSNOTAVAILABLE;
    });
}

// A factory that a host holds counts as a living object.
HRESULT CanUnloadNow()
{
    return serverLocks.load(std::memory_order_acquire) == 0 && CUnknown::AllGone() ? S_OK : S_FALSE;
}

HRESULT RegisterServer(std::span<const CFactoryTemplate> table, bool install)
{
    return ComGuard([&]() -> HRESULT {
        WString modulePath;
        HRESULT hr = GetOwnModulePath(modulePath);
        if (FAILED(hr))
            return hr;
        if (install) {
            for (const CFactoryTemplate& entry : table) {
                hr = WriteClassKeys(entry, modulePath);
                if (FAILED(hr))
                    return hr;
            }
        }
        hr = UpdateMapper(table, install);
        if (FAILED(hr) || install)
            return hr;
        for (const CFactoryTemplate& entry : table) {
            hr = GClassesRoot::DeleteTree(ClassKey(entry.clsid));
            if (FAILED(hr))
                return hr;
        }
        return S_OK;
    });
}

}  // namespace vex
