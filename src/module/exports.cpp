#include "platform/exports.h"

#include "dshow/class_factory.h"
#include "module/filter_table.h"

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv)
{
    return vex::GetClassObject(vex::FilterTable(), rclsid, riid, ppv);
}

STDAPI DllCanUnloadNow() { return vex::CanUnloadNow(); }

STDAPI DllRegisterServer() { return vex::RegisterServer(vex::FilterTable(), true); }

STDAPI DllUnregisterServer() { return vex::RegisterServer(vex::FilterTable(), false); }
