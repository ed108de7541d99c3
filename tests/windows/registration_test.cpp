// registration_test: what the filter mapper and COM say of registered filters. Usage: see kUsage.

#include <cstdio>
#include <set>

#include <strmif.h>
#include <uuids.h>

#include "windows/module_access.h"
#include "windows/support.h"

namespace vex::wintest {

namespace {

constexpr char kUsage[] =
    "registration_test CLSID...  A line for every filter of the mapper: its class identifier, its name and whether\n"
    "                            automatic graph building is offered it; then one for each CLSID: what creating it "
    "gives.\n"
    "                            The words of a line are separated by tabs.\n";

std::string BagText(IPropertyBag& bag, const wchar_t* name)
{
    VARIANT value;
    VariantInit(&value);
    std::string text;
    if (SUCCEEDED(bag.Read(name, &value, nullptr)) && value.vt == VT_BSTR)
        text = Utf8FromWide({value.bstrVal, SysStringLen(value.bstrVal)});
    VariantClear(&value);
    return text;
}

// Class identifier and name of all filters that the mapper offers at a merit, one entry for each registration.
std::multiset<std::string> MappedFilters(DWORD merit)
{
    GComPtr<IFilterMapper2> mapper;
    Check(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2, mapper.PutVoid()),
          "the system has no filter mapper");
    GComPtr<IEnumMoniker> all;
    Check(mapper->EnumMatchingFilters(all.Put(), 0, FALSE, merit, FALSE, 0, nullptr, nullptr, nullptr, FALSE, FALSE, 0,
                                      nullptr, nullptr, nullptr),
          "EnumMatchingFilters");
    std::multiset<std::string> mapped;
    GComPtr<IMoniker> moniker;
    while (all && all->Next(1, moniker.Put(), nullptr) == S_OK) {
        GComPtr<IPropertyBag> bag;
        if (SUCCEEDED(moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.PutVoid())))
            mapped.insert(BagText(*bag, L"CLSID") + '\t' + BagText(*bag, L"FriendlyName"));
    }
    return mapped;
}

HRESULT Create(const wchar_t* clsid)
{
    // Poisoned: a refusal must clear it.
    void* created = &created;
    const HRESULT result =
        CoCreateInstance(ParseGuid(clsid), nullptr, CLSCTX_INPROC_SERVER, IID_IFileSourceFilter, &created);
    if (SUCCEEDED(result))
        static_cast<IUnknown*>(created)->Release();
    else
        Require(!created, "a refusal leaves a pointer behind");
    return result;
}

int Body(std::span<wchar_t*> arguments)
{
    Require(!arguments.empty(), kUsage);
    const auto offered = MappedFilters(MERIT_UNLIKELY);
    for (const auto& filter : MappedFilters(MERIT_DO_NOT_USE))
        std::printf("%s\t%s\n", filter.c_str(), offered.count(filter) ? "offered" : "hidden");
    for (const wchar_t* clsid : arguments)
        std::printf("%s\t%s\n", Utf8FromWide(clsid).c_str(), ResultText(Create(clsid)).c_str());
    if (GetModuleHandleW(L"VEX.ax"))
        Require(GModuleAccess(L"registered").CanUnloadNow() == S_OK,
                "DllCanUnloadNow does not say S_OK after the filters were released");
    return 0;
}

}  // namespace

}  // namespace vex::wintest

int wmain(int argc, wchar_t** argv) { return vex::wintest::RunProgram(vex::wintest::Body, argc, argv); }
