// registration_test: what regsvr32 left in the registry and in the filter mapper. Usage: see kUsage.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>
#include <map>
#include <optional>
#include <vector>

#include <strmif.h>
#include <uuids.h>

#include "windows/module_access.h"
#include "windows/support.h"

namespace vex::wintest {

namespace {

constexpr char kUsage[] =
    "registration_test snapshot                        every key and value of the software registry, a line each\n"
    "registration_test installed MODULEPATH [CLSID...] all is registered; the named classes load a filter, the others\n"
    "                                                  say that they are not available\n"
    "registration_test removed                         nothing is registered any more\n";

struct GClass {
    const wchar_t* name;
    const wchar_t* clsid;
};

// What hosts and installers know; written down a second time here so that a slip in the module shows.
constexpr std::array kClasses = std::to_array<GClass>({
    {L"Orvane AVI Source Filter", L"{6BA9DD10-09B9-4C8B-89A8-8AC445601214}"},
    {L"Orvane OGG Source Filter", L"{8B359726-D939-41A8-8CBD-69A27675D978}"},
    {L"Orvane MPEG Source Filter", L"{0D84C574-0C1D-466C-9D7B-49FD7BBF6E87}"},
    {L"Orvane MKV Source Filter", L"{9794BD42-281E-45EE-94CC-70A260E407B5}"},
    {L"Orvane MP4 Source Filter", L"{D18284FE-DE51-4F33-A9BB-A8D3AE4B66BB}"},
    {L"Orvane ASF Source Filter", L"{07D8B782-BC02-485B-8B45-0C6073127B2B}"},
    {L"Orvane FLV Source Filter", L"{4CDD9B3E-1D8E-48DE-8B5B-80AFADCB8CA1}"},
    {L"Orvane AsfEx Source Filter", L"{5A9841E4-3164-48AB-B54F-633A792FB047}"},
    {L"Orvane OGG Source Filter2", L"{4A9A79B3-6EAA-46AE-B024-5918C04C169E}"},
    {L"Orvane MP3 Source Filter", L"{C846F6AA-63EE-42CB-AB73-229BE6A795AA}"},
    {L"Orvane AAC Source Filter", L"{C1EA8A02-9E67-4967-AEDC-845B8AA13EC0}"},
    {L"Orvane MPEG Source Filter2", L"{4D40E319-013F-4F5C-900D-25EA9C1FF16D}"},
});

// Owns a registry key.
struct GKey {
    HKEY key = nullptr;
    GKey(HKEY root, const std::wstring& path) { RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &key); }
    ~GKey()
    {
        if (key)
            RegCloseKey(key);
    }
    GKey(const GKey&) = delete;
    GKey& operator=(const GKey&) = delete;
};

std::optional<std::wstring> Text(const std::wstring& path, const wchar_t* name)
{
    wchar_t text[1024];
    DWORD bytes = sizeof text;
    if (RegGetValueW(HKEY_CLASSES_ROOT, path.c_str(), name, RRF_RT_REG_SZ, nullptr, text, &bytes) != ERROR_SUCCESS)
        return std::nullopt;
    return std::wstring(text);
}

std::string Hex(std::span<const BYTE> bytes)
{
    std::string text;
    char digits[3];
    for (const BYTE byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

void PrintTree(HKEY parent, const std::wstring& path, const std::string& shown)
{
    const GKey opened(parent, path);
    if (!opened.key)
        return;
    std::printf("%s\n", shown.c_str());
    std::array<wchar_t, 16384> name;
    std::vector<BYTE> data(1 << 16);
    for (DWORD i = 0;; ++i) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD bytes = static_cast<DWORD>(data.size());
        DWORD type = 0;
        const LONG got = RegEnumValueW(opened.key, i, name.data(), &nameLength, nullptr, &type, data.data(), &bytes);
        if (got != ERROR_SUCCESS && got != ERROR_MORE_DATA)
            break;
        const std::string value = got == ERROR_SUCCESS ? Hex({data.data(), bytes}) : "(long)";
        std::printf("%s\t%s\t%lu\t%s\n", shown.c_str(), Utf8FromWide({name.data(), nameLength}).c_str(), type,
                    value.c_str());
    }
    for (DWORD i = 0;; ++i) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        if (RegEnumKeyExW(opened.key, i, name.data(), &nameLength, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
            break;
        const std::wstring child(name.data(), nameLength);
        PrintTree(opened.key, child, shown + "\\" + Utf8FromWide(child));
    }
}

// What the mapper tells of a registered filter.
struct GMapped {
    std::wstring name;
    std::vector<BYTE> data;  // the platform's FilterData record
};

std::wstring BagText(IPropertyBag& bag, const wchar_t* name)
{
    VARIANT value;
    VariantInit(&value);
    std::wstring text;
    if (SUCCEEDED(bag.Read(name, &value, nullptr)) && value.vt == VT_BSTR)
        text.assign(value.bstrVal, SysStringLen(value.bstrVal));
    VariantClear(&value);
    return text;
}

std::vector<BYTE> BagBytes(IPropertyBag& bag, const wchar_t* name)
{
    VARIANT value;
    VariantInit(&value);
    std::vector<BYTE> bytes;
    if (SUCCEEDED(bag.Read(name, &value, nullptr)) && value.vt == (VT_ARRAY | VT_UI1)) {
        LONG last = -1;
        void* data = nullptr;
        if (SUCCEEDED(SafeArrayGetUBound(value.parray, 1, &last)) &&
            SUCCEEDED(SafeArrayAccessData(value.parray, &data))) {
            bytes.assign(static_cast<BYTE*>(data), static_cast<BYTE*>(data) + last + 1);
            SafeArrayUnaccessData(value.parray);
        }
    }
    VariantClear(&value);
    return bytes;
}

// All filters that the mapper would offer at the lowest merit, by class identifier.
std::multimap<std::wstring, GMapped> MappedFilters(DWORD merit)
{
    GComPtr<IFilterMapper2> mapper;
    Check(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2, mapper.PutVoid()),
          "the system has no filter mapper");
    GComPtr<IEnumMoniker> all;
    Check(mapper->EnumMatchingFilters(all.Put(), 0, FALSE, merit, FALSE, 0, nullptr, nullptr, nullptr, FALSE, FALSE, 0,
                                      nullptr, nullptr, nullptr),
          "EnumMatchingFilters");
    std::multimap<std::wstring, GMapped> mapped;
    GComPtr<IMoniker> moniker;
    while (all && all->Next(1, moniker.Put(), nullptr) == S_OK) {
        GComPtr<IPropertyBag> bag;
        if (FAILED(moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag, bag.PutVoid())))
            continue;
        mapped.insert({BagText(*bag, L"CLSID"), {BagText(*bag, L"FriendlyName"), BagBytes(*bag, L"FilterData")}});
    }
    return mapped;
}

DWORD Word(const std::vector<BYTE>& data, std::size_t position)
{
    Require(position + 4 <= data.size(), "the mapper's record is short");
    DWORD word;
    std::memcpy(&word, data.data() + position, sizeof word);
    return word;
}

// FilterData begins {version, merit, pins, reserved}, then one record per pin {"0pi3" signature, flags, instances,
// media types, ...}; the platform's two-version layout writes the same words for version 1 filters.
void CheckMapping(const GClass& expected, const GMapped& mapped)
{
    const std::string name = Utf8FromWide(expected.name);
    Require(mapped.name == expected.name, name + " is called \"" + Utf8FromWide(mapped.name) + "\" by the mapper");
    Require(Word(mapped.data, 4) == MERIT_DO_NOT_USE, name + " has merit " + std::to_string(Word(mapped.data, 4)));
    Require(Word(mapped.data, 8) == 1, name + " has " + std::to_string(Word(mapped.data, 8)) + " pins");
    const DWORD flags = Word(mapped.data, 20);
    Require(flags == REG_PINFLAG_B_OUTPUT, name + " has pin flags " + std::to_string(flags));
    Require(Word(mapped.data, 28) == 0, name + " is registered with media types");
}

void CheckKeys(const GClass& expected, const std::wstring& modulePath)
{
    const std::wstring key = std::wstring(L"CLSID\\") + expected.clsid;
    const std::string name = Utf8FromWide(expected.name);
    Require(Text(key, nullptr) == expected.name, name + ": the key's default value is not the name");
    const auto server = Text(key + L"\\InprocServer32", nullptr);
    Require(server && _wcsicmp(server->c_str(), modulePath.c_str()) == 0,
            name + ": InprocServer32 is \"" + Utf8FromWide(server.value_or(L"(absent)")) + "\", not " +
                Utf8FromWide(modulePath));
    Require(Text(key + L"\\InprocServer32", L"ThreadingModel") == L"Both", name + ": ThreadingModel is not Both");
}

void CheckCreation(const GClass& expected, bool built)
{
    const std::string name = Utf8FromWide(expected.name);
    // Poisoned: a refusal must clear it.
    void* created = &created;
    const HRESULT result =
        CoCreateInstance(ParseGuid(expected.clsid), nullptr, CLSCTX_INPROC_SERVER, IID_IFileSourceFilter, &created);
    if (built) {
        Check(result, "creating " + name);
        static_cast<IUnknown*>(created)->Release();
    } else {
        Require(result == E_NOTIMPL && !created, name + " is not built, but creating it gives " + ResultText(result));
    }
    std::printf("%s: %s\n", name.c_str(), built ? "created" : "registered, refuses to be created");
}

int CheckInstalled(const std::wstring& modulePath, std::span<wchar_t*> built)
{
    const auto mapped = MappedFilters(MERIT_DO_NOT_USE);
    const auto offered = MappedFilters(MERIT_UNLIKELY);
    for (const GClass& expected : kClasses) {
        CheckKeys(expected, modulePath);
        std::wstring clsid = expected.clsid;
        Require(mapped.count(clsid) == 1, Utf8FromWide(expected.name) + " is " + std::to_string(mapped.count(clsid)) +
                                              " times in the filter mapper");
        CheckMapping(expected, mapped.find(clsid)->second);
        Require(offered.count(clsid) == 0, Utf8FromWide(expected.name) + " is offered to automatic graph building");
        const bool isBuilt =
            std::any_of(built.begin(), built.end(), [&](const wchar_t* one) { return !_wcsicmp(one, expected.clsid); });
        CheckCreation(expected, isBuilt);
    }
    const GModuleAccess registered(L"registered");
    Require(registered.CanUnloadNow() == S_OK, "DllCanUnloadNow does not say S_OK after the filters were released");
    return 0;
}

int CheckRemoved()
{
    const auto mapped = MappedFilters(MERIT_DO_NOT_USE);
    for (const GClass& expected : kClasses) {
        const std::string name = Utf8FromWide(expected.name);
        const GKey key(HKEY_CLASSES_ROOT, std::wstring(L"CLSID\\") + expected.clsid);
        Require(!key.key, name + ": its key is still there");
        Require(mapped.count(expected.clsid) == 0, name + " is still in the filter mapper");
        GComPtr<IUnknown> created;
        const HRESULT result =
            CoCreateInstance(ParseGuid(expected.clsid), nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, created.PutVoid());
        Require(result == REGDB_E_CLASSNOTREG, name + ": creating it gives " + ResultText(result));
    }
    return 0;
}

int Body(std::span<wchar_t*> arguments)
{
    const std::wstring mode = arguments.empty() ? L"" : arguments[0];
    if (mode == L"snapshot" && arguments.size() == 1) {
        PrintTree(HKEY_LOCAL_MACHINE, L"Software", "HKLM\\Software");
        PrintTree(HKEY_CURRENT_USER, L"Software", "HKCU\\Software");
        return 0;
    }
    if (mode == L"installed" && arguments.size() >= 2)
        return CheckInstalled(arguments[1], arguments.subspan(2));
    if (mode == L"removed" && arguments.size() == 1)
        return CheckRemoved();
    throw GTestFailure(kUsage);
}

}  // namespace

}  // namespace vex::wintest

int wmain(int argc, wchar_t** argv) { return vex::wintest::RunProgram(vex::wintest::Body, argc, argv); }
