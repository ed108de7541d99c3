#include "windows/module_access.h"

#include "windows/support.h"

namespace vex::wintest {

namespace {

template <class Function>
Function* Export(HMODULE module, const char* name)
{
    auto* function = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    Require(function != nullptr, std::string("the module does not export ") + name);
    return function;
}

}  // namespace

GModuleAccess::GModuleAccess(const std::wstring& pathOrRegistered)
{
    if (pathOrRegistered == L"registered")
        return;
    module = LoadLibraryExW(pathOrRegistered.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    Require(module != nullptr,
            Utf8FromWide(pathOrRegistered) + " cannot be loaded: system error " + std::to_string(GetLastError()));
}

GModuleAccess::~GModuleAccess()
{
    if (module)
        FreeLibrary(module);
}

HMODULE GModuleAccess::Module() const
{
    const HMODULE answering = module ? module : GetModuleHandleW(L"VEX.ax");
    Require(answering != nullptr, "VEX.ax is not loaded");
    return answering;
}

HRESULT GModuleAccess::Create(REFCLSID clsid, REFIID iid, void** out) const
{
    if (!module)
        return CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, out);
    GComPtr<IClassFactory> factory;
    const auto get = Export<decltype(DllGetClassObject)>(module, "DllGetClassObject");
    if (const HRESULT got = get(clsid, IID_IClassFactory, factory.PutVoid()); FAILED(got))
        return got;
    return factory->CreateInstance(nullptr, iid, out);
}

HRESULT GModuleAccess::CanUnloadNow() const { return Export<decltype(DllCanUnloadNow)>(Module(), "DllCanUnloadNow")(); }

}  // namespace vex::wintest
