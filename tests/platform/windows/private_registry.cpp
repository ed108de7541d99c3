#include "platform/private_registry.h"

#include <stdexcept>
#include <string>

#include "platform/types.h"

namespace vex::test {

struct GPrivateRegistry::GState {
    WString name = L"Software\\vex-platform-test-" + std::to_wstring(GetCurrentProcessId());
    HKEY key = nullptr;
};

GPrivateRegistry::GPrivateRegistry() : state(std::make_unique<GState>())
{
    if (RegCreateKeyExW(HKEY_CURRENT_USER, state->name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS,
                        nullptr, &state->key, nullptr) != ERROR_SUCCESS ||
        RegOverridePredefKey(HKEY_CLASSES_ROOT, state->key) != ERROR_SUCCESS)
        throw std::runtime_error("no private registry");
}

GPrivateRegistry::~GPrivateRegistry()
{
    RegOverridePredefKey(HKEY_CLASSES_ROOT, nullptr);
    RegDeleteTreeW(state->key, nullptr);
    RegCloseKey(state->key);
    RegDeleteKeyW(HKEY_CURRENT_USER, state->name.c_str());
}

}  // namespace vex::test
