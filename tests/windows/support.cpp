#include "windows/support.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>

namespace vex::wintest {

void Check(HRESULT result, std::string_view what)
{
    if (FAILED(result))
        throw GTestFailure(std::string(what) + ": " + ResultText(result));
}

void Require(bool holds, std::string_view what)
{
    if (!holds)
        throw GTestFailure(std::string(what));
}

GUID ParseGuid(const std::wstring& text)
{
    GUID guid;
    Check(CLSIDFromString(text.c_str(), &guid), "not a class identifier: " + Utf8FromWide(text));
    return guid;
}

std::string TakeErrorText()
{
    GComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Put()) != S_OK)
        return {};
    BSTR description = nullptr;
    return SUCCEEDED(info->GetDescription(&description)) ? TakeText(description) : std::string();
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
    // Told apart from a program that the system ended on the way, which may have the exit status 0 as well.
    std::fputs("done\n", stderr);
    return status;
}

}  // namespace vex::wintest
