// The four functions that the module exports. No exception leaves them.
#pragma once

#include "platform/com.h"

#ifndef _WIN32
#pragma GCC visibility push(default)
extern "C" {
// The shared class factory of a class identifier; CLASS_E_CLASSNOTAVAILABLE for an unknown one.
HRESULT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv);
// S_OK when no object of the module is alive and no host holds a server lock, else S_FALSE.
HRESULT DllCanUnloadNow();
// Writes the class keys and the filter mapper entries of all filters; stops at the first failure.
HRESULT DllRegisterServer();
HRESULT DllUnregisterServer();
}
#pragma GCC visibility pop
#endif
