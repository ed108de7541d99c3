#include "platform/registry.h"

#include <limits>

#include "platform/registry_key.h"

namespace vex {
namespace {

HRESULT FromStatus(LSTATUS status) { return HResultFromOsError(static_cast<std::uint32_t>(status)); }

// An open key of the registry; closed when it goes out of scope.
class GRegKey {
public:
    GRegKey() = default;
    ~GRegKey()
    {
        if (key)
            RegCloseKey(key);
    }
    GRegKey(const GRegKey&) = delete;
    GRegKey& operator=(const GRegKey&) = delete;

    LSTATUS Open(HKEY parent, const WString& path, REGSAM access)
    {
        return RegOpenKeyExW(parent, path.c_str(), 0, access, &key);
    }
    LSTATUS Create(HKEY parent, const WString& path)
    {
        return RegCreateKeyExW(parent, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &key,
                               nullptr);
    }
    HKEY Get() const { return key; }

private:
    HKEY key = nullptr;
};

// Names of keys are at most 255 characters long.
constexpr DWORD kNameCapacity = 260;

LSTATUS DeleteBelow(HKEY parent, const WString& path)
{
    {
        GRegKey key;
        if (const LSTATUS status = key.Open(parent, path, KEY_READ | KEY_WRITE); status != ERROR_SUCCESS)
            return status;
        // Always the first: each deletion moves the others down.
        for (;;) {
            WCHAR name[kNameCapacity] = {};
            DWORD length = kNameCapacity;
            const LSTATUS found = RegEnumKeyExW(key.Get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr);
            if (found == ERROR_NO_MORE_ITEMS)
                break;
            if (found != ERROR_SUCCESS)
                return found;
            if (const LSTATUS status = DeleteBelow(key.Get(), name); status != ERROR_SUCCESS)
                return status;
        }
    }
    return RegDeleteKeyW(parent, path.c_str());
}

}  // namespace

HRESULT GClassesRoot::SetString(WStringView key, WStringView name, WStringView value)
{
    if (!IsKeyBelowRoot(key) || value.size() > std::numeric_limits<std::int32_t>::max() / sizeof(WCHAR) - 1)
        return E_INVALIDARG;
    GRegKey opened;
    if (const LSTATUS status = opened.Create(HKEY_CLASSES_ROOT, WString(key)); status != ERROR_SUCCESS)
        return FromStatus(status);
    const WString text(value);
    return FromStatus(RegSetValueExW(opened.Get(), name.empty() ? nullptr : WString(name).c_str(), 0, REG_SZ,
                                     reinterpret_cast<const BYTE*>(text.c_str()),
                                     static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR))));
}

std::optional<WString> GClassesRoot::GetString(WStringView key, WStringView name)
{
    GRegKey opened;
    if (!IsKeyBelowRoot(key) || opened.Open(HKEY_CLASSES_ROOT, WString(key), KEY_READ) != ERROR_SUCCESS)
        return std::nullopt;
    const WString valueName(name);
    for (;;) {
        DWORD type = 0;
        DWORD bytes = 0;
        if (RegQueryValueExW(opened.Get(), valueName.c_str(), nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS ||
            (type != REG_SZ && type != REG_EXPAND_SZ))
            return std::nullopt;
        WString text(bytes / sizeof(WCHAR), L'\0');
        const LSTATUS status = RegQueryValueExW(opened.Get(), valueName.c_str(), nullptr, &type,
                                                reinterpret_cast<BYTE*>(text.data()), &bytes);
        // Longer than a moment ago: another process has just set it.
        if (status == ERROR_MORE_DATA)
            continue;
        if (status != ERROR_SUCCESS)
            return std::nullopt;
        text.resize(bytes / sizeof(WCHAR));
        if (!text.empty() && text.back() == 0)  // whoever wrote the value need not have ended it
            text.pop_back();
        return text;
    }
}

HRESULT GClassesRoot::DeleteTree(WStringView key)
{
    if (!IsKeyBelowRoot(key))
        return E_INVALIDARG;
    const LSTATUS status = DeleteBelow(HKEY_CLASSES_ROOT, WString(key));
    const bool missing = status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND;
    return missing ? S_OK : FromStatus(status);
}

std::vector<WString> GClassesRoot::SubKeys(WStringView key)
{
    std::vector<WString> names;
    GRegKey opened;
    if (opened.Open(HKEY_CLASSES_ROOT, WString(key), KEY_READ) != ERROR_SUCCESS)
        return names;
    for (DWORD index = 0;; ++index) {
        WCHAR name[kNameCapacity] = {};
        DWORD length = kNameCapacity;
        if (RegEnumKeyExW(opened.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            return names;
        names.emplace_back(name, length);
    }
}

}  // namespace vex
