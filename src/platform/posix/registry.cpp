#include "platform/registry.h"

#include "platform/posix/registry_file.h"
#include "platform/registry_key.h"

namespace vex {

HRESULT GClassesRoot::SetString(WStringView key, WStringView name, WStringView value)
{
    if (!IsKeyBelowRoot(key))
        return E_INVALIDARG;
    GRegistryEdit edit;
    edit.table.Set(key, name, value);
    return edit.Commit();
}

std::optional<WString> GClassesRoot::GetString(WStringView key, WStringView name)
{
    GRegistryTable table;
    const std::optional<std::string> directory = RegistryDirectory();
    if (!directory || FAILED(ReadRegistry(*directory, table)))
        return std::nullopt;
    const WString* value = table.Find(key, name);
    return value ? std::optional(*value) : std::nullopt;
}

HRESULT GClassesRoot::DeleteTree(WStringView key)
{
    if (!IsKeyBelowRoot(key))
        return E_INVALIDARG;
    GRegistryEdit edit;
    return SUCCEEDED(edit.Status()) && edit.table.DeleteTree(key) ? edit.Commit() : edit.Status();
}

std::vector<WString> GClassesRoot::SubKeys(WStringView key)
{
    GRegistryTable table;
    const std::optional<std::string> directory = RegistryDirectory();
    if (!directory || FAILED(ReadRegistry(*directory, table)))
        return {};
    return table.SubKeys(key);
}

}  // namespace vex
