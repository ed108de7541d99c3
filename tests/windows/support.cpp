#include "windows/support.h"

#include <bcrypt.h>
#include <fcntl.h>
#include <io.h>

#include <array>
#include <cstdio>

namespace vex::wintest {

void Check(HRESULT result, std::string_view what)
{
    if (FAILED(result))
        throw GTestFailure(std::string(what) + ": " + HexResult(result));
}

void Require(bool holds, std::string_view what)
{
    if (!holds)
        throw GTestFailure(std::string(what));
}

std::string Utf8(std::wstring_view text)
{
    if (text.empty())
        return {};
    const int length = static_cast<int>(text.size());
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), bytes, nullptr, nullptr);
    return result;
}

std::string HexResult(HRESULT result)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08lx", static_cast<unsigned long>(result));
    return text;
}

std::string GuidText(REFGUID guid)
{
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return Utf8(text);
}

GUID ParseGuid(const std::wstring& text)
{
    GUID guid;
    Check(CLSIDFromString(text.c_str(), &guid), "not a class identifier: " + Utf8(text));
    return guid;
}

std::string TakeErrorText()
{
    GComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Put()) != S_OK)
        return {};
    BSTR description = nullptr;
    if (FAILED(info->GetDescription(&description)) || !description)
        return {};
    const std::string text = Utf8({description, SysStringLen(description)});
    SysFreeString(description);
    return text;
}

std::string Md5(std::span<const BYTE> bytes)
{
    // Opened once for the whole program: round counts must not see it come and go.
    static const BCRYPT_ALG_HANDLE algorithm = [] {
        BCRYPT_ALG_HANDLE opened = nullptr;
        BCryptOpenAlgorithmProvider(&opened, BCRYPT_MD5_ALGORITHM, nullptr, 0);
        return opened;
    }();
    std::array<BYTE, 16> digest{};
    BCRYPT_HASH_HANDLE hash = nullptr;
    bool hashed = algorithm && BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) >= 0;
    hashed = hashed && BCryptHashData(hash, const_cast<BYTE*>(bytes.data()), static_cast<ULONG>(bytes.size()), 0) >= 0;
    hashed = hashed && BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0) >= 0;
    if (hash)
        BCryptDestroyHash(hash);
    Require(hashed, "the system has no MD5");
    std::string text;
    for (const BYTE byte : digest) {
        constexpr char kDigits[] = "0123456789abcdef";
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

int RunProgram(int (*body)(std::span<wchar_t*> arguments), int argc, wchar_t** argv)
{
    _setmode(_fileno(stdout), _O_BINARY);
    int status = 1;
    try {
        Check(CoInitializeEx(nullptr, COINIT_MULTITHREADED), "CoInitializeEx");
        status = body(std::span(argv, static_cast<std::size_t>(argc)).subspan(1));
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "FAIL: %s\n", failure.what());
    }
    std::fflush(nullptr);
    // After a failure threads may still stand in the module: leave without running anybody's destructors.
    if (status != 0)
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
    CoUninitialize();
    return status;
}

}  // namespace vex::wintest
