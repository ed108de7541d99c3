// The mapper of this target is a branch of the class registry:
//     FilterMapper\{clsid}    name, merit (eight hexadecimal digits), pins
// with one line per pin: its name, a tab, and those of "rendered output zero many" that hold.
#include "platform/com.h"
#include "platform/posix/os_error.h"
#include "platform/posix/registry_file.h"
#include "platform/registry.h"

namespace vex {
namespace {

WString MapperKey(REFCLSID clsid)
{
    WCHAR text[39] = {};
    StringFromGUID2(clsid, text, 39);
    return WString(u"FilterMapper\\") + text;
}

WString MeritText(std::uint32_t merit)
{
    WString text;
    for (int shift = 28; shift >= 0; shift -= 4)
        text.push_back(u"0123456789ABCDEF"[merit >> shift & 0xF]);
    return text;
}

WString PinText(const GPinRegistration& pin)
{
    WString text(pin.name ? pin.name : u"");
    WCHAR separator = u'\t';
    const auto flag = [&](bool holds, const WCHAR* name) {
        if (!holds)
            return;
        text.push_back(separator);
        text += name;
        separator = u' ';
    };
    flag(pin.rendered, u"rendered");
    flag(pin.output, u"output");
    flag(pin.zeroInstances, u"zero");
    flag(pin.manyInstances, u"many");
    return text;
}

}  // namespace

GFilterMapper::GFilterMapper() : status(RegistryDirectory() ? S_OK : HResultFromOsError(kErrorPathNotFound)) {}

GFilterMapper::~GFilterMapper() = default;

HRESULT GFilterMapper::Register(const GFilterRegistration& filter)
{
    if (FAILED(status))
        return status;
    WString pins;
    for (const GPinRegistration& pin : filter.pins)
        pins += (pins.empty() ? WString() : WString(u"\n")) + PinText(pin);
    const WString key = MapperKey(filter.clsid);
    GRegistryEdit edit;
    edit.table.DeleteTree(key);
    edit.table.Set(key, u"name", filter.name ? filter.name : u"");
    edit.table.Set(key, u"merit", MeritText(filter.merit));
    edit.table.Set(key, u"pins", pins);
    return edit.Commit();
}

HRESULT GFilterMapper::Unregister(REFCLSID clsid)
{
    if (FAILED(status))
        return status;
    GRegistryEdit edit;
    return SUCCEEDED(edit.Status()) && edit.table.DeleteTree(MapperKey(clsid)) ? edit.Commit() : edit.Status();
}

}  // namespace vex
