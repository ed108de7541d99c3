// A host as somebody outside this tree would write it, from the installed headers and libraries alone: creates the AVI
// filter, reaches its private interface, and sees the module idle again.

#include <cstdio>

#include "formats/avi/avi_interface.h"
#include "framework/vex_interfaces.h"
#include "platform/exports.h"
#include "platform/pipeline.h"

namespace {

int Fail(const char* what)
{
    std::fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

}  // namespace

int main()
{
    IClassFactory* factory = nullptr;
    if (FAILED(DllGetClassObject(vex::CLSID_VexAvi, IID_IClassFactory, reinterpret_cast<void**>(&factory))))
        return Fail("no class factory");

    IBaseFilter* filter = nullptr;
    const HRESULT created = factory->CreateInstance(nullptr, IID_IBaseFilter, reinterpret_cast<void**>(&filter));
    factory->Release();
    if (FAILED(created))
        return Fail("no filter");

    vex::IVexAVI* control = nullptr;
    if (FAILED(filter->QueryInterface(vex::IID_IVexAVI, reinterpret_cast<void**>(&control))))
        return Fail("no private interface");
    control->Release();

    if (DllCanUnloadNow() != S_FALSE)
        return Fail("the module would unload under a living filter");
    filter->Release();
    if (DllCanUnloadNow() != S_OK)
        return Fail("the module is not idle after the last release");

    // The host's own half of the platform library.
    void* memory = CoTaskMemAlloc(16);
    CoTaskMemFree(memory);
    return memory ? 0 : Fail("no task memory");
}
