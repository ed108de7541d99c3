#include "windows/path_cases.h"

#include <cstdio>
#include <vector>

#include "windows/support.h"
#include "windows/test_graph.h"

namespace vex::wintest {

namespace {

using GPayloads = std::vector<GMd5Digest>;  // digests of all pins' samples, pin after pin

// Owns a Win32 handle.
struct GHandle {
    HANDLE value = nullptr;
    ~GHandle()
    {
        if (value && value != INVALID_HANDLE_VALUE)
            CloseHandle(value);
    }
};

// The form that the system takes at any length.
std::wstring Long(const std::wstring& path) { return L"\\\\?\\" + path; }

void Copy(const std::wstring& from, const std::wstring& to)
{
    Require(CopyFileW(Long(from).c_str(), Long(to).c_str(), FALSE) != 0,
            "copying to " + Utf8FromWide(to) + " fails with system error " + std::to_string(GetLastError()));
}

void MakeDirectory(const std::wstring& path)
{
    Require(CreateDirectoryW(Long(path).c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS,
            "making " + Utf8FromWide(path) + " fails with system error " + std::to_string(GetLastError()));
}

GPayloads Payloads(const GPlayed& played)
{
    GPayloads payloads;
    for (const auto& log : played.logs)
        for (const auto& sample : log->Samples())
            payloads.push_back(sample.md5);
    return payloads;
}

class GPathCases {
public:
    GPathCases(const GModuleAccess& moduleAccess, REFCLSID filter, const std::wstring& file, const std::wstring& other)
        : access(moduleAccess), clsid(filter), wanted(Payloads(Play(file))), decoyFile(other)
    {
        Require(!wanted.empty(), "the file cannot be played under its own name");
        Require(Payloads(Play(other)) != wanted, "the decoy has the same samples as the file");
    }

    void MustOpen(const std::wstring& path, const char* situation) const
    {
        const GPlayed played = Play(path);
        Require(SUCCEEDED(played.loaded.result), std::string(situation) + ": " + ResultText(played.loaded.result) +
                                                     ", \"" + played.loaded.errorText + "\"");
        Require(Payloads(played) == wanted, std::string(situation) + ": another file was played");
        std::printf("%s: opens\n", situation);
    }

    void MustFail(const std::wstring& path, const char* situation) const
    {
        const GPlayed played = Play(path);
        Require(played.loaded.result == E_FAIL,
                std::string(situation) + ": Load says " + ResultText(played.loaded.result));
        Require(!played.loaded.errorText.empty(), std::string(situation) + ": no reason is given");
        std::printf("%s: refused, \"%s\"\n", situation, played.loaded.errorText.c_str());
    }

    void MustNotMistake(const std::wstring& path, const char* situation) const
    {
        if (SUCCEEDED(Play(path).loaded.result))
            MustOpen(path, situation);
        else
            MustFail(path, situation);
    }

    const std::wstring& Decoy() const { return decoyFile; }

private:
    GPlayed Play(const std::wstring& path) const { return PlayWhole(access, clsid, path); }

    const GModuleAccess& access;
    const CLSID clsid;
    const GPayloads wanted;
    const std::wstring decoyFile;
};

// Another process that has the file open for writing.
class GWriter {
public:
    GWriter(const std::wstring& file, bool shared)
    {
        const std::wstring name = L"vex-wintest-" + std::to_wstring(GetCurrentProcessId());
        held.value = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
        std::wstring program(1024, L'\0');
        program.resize(GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size())));
        std::wstring command =
            L"\"" + program + L"\" hold " + (shared ? L"shared" : L"alone") + L" \"" + file + L"\" " + name;
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        Require(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                               &started) != 0,
                "the writing process cannot be started");
        CloseHandle(started.hThread);
        process.value = started.hProcess;
        const HANDLE either[] = {held.value, process.value};
        Require(WaitForMultipleObjects(2, either, FALSE, kPatienceMs) == WAIT_OBJECT_0,
                "the writing process did not open the file");
    }
    ~GWriter()
    {
        ResetEvent(held.value);
        WaitForSingleObject(process.value, kPatienceMs);
    }
    GWriter(const GWriter&) = delete;
    GWriter& operator=(const GWriter&) = delete;

private:
    GHandle held;
    GHandle process;
};

// The name of a file in an encoding that the ANSI code page lacks, beside files whose names a conversion would yield.
void TryWideNames(const GPathCases& cases, const std::wstring& directory, const std::wstring& file)
{
    std::printf("ANSI code page: %u\n", GetACP());
    const std::wstring wide = directory + L"\\\u65e5\u672c\u8a9e \u0395\u03bb\u03bb\u03ac\u03b4\u03b1 \U0001f39e.avi";
    Copy(file, wide);
    cases.MustOpen(wide, "a name in Japanese, Greek and an emoji");

    // U+0100 has "A" as its best fit in Western code pages.
    Copy(cases.Decoy(), directory + L"\\A.avi");
    Copy(file, directory + L"\\\u0100.avi");
    cases.MustOpen(directory + L"\\\u0100.avi", "a letter that the code page would replace by its best fit");
    MakeDirectory(directory + L"\\\u0416\u03a9");
    Copy(file, directory + L"\\\u0416\u03a9\\plain.avi");
    cases.MustOpen(directory + L"\\\u0416\u03a9\\plain.avi", "a directory that the code page lacks");
    cases.MustFail(directory + L"\\\u0102.avi", "a wide name that is not there, beside its best fit");
    // Far below the system's 260 characters, and beyond as many bytes in UTF-8.
    const std::wstring many = directory + L"\\" + std::wstring(60, L'\u65e5');
    MakeDirectory(many);
    Copy(file, many + L"\\" + std::wstring(60, L'\u672c'));
    cases.MustOpen(many + L"\\" + std::wstring(60, L'\u672c'), "a path of many letters that the code page lacks");
}

// A path beyond 260 characters, beside files at the places where a buffer of that size would cut it.
void TryLongPath(const GPathCases& cases, const std::wstring& directory, const std::wstring& file)
{
    constexpr std::size_t kOldLimit = 260;
    Require(directory.size() < kOldLimit - 50, "the directory's own path is too long for this test");
    std::wstring deep = directory;
    while (deep.size() + 100 < kOldLimit) {
        deep += L"\\" + std::wstring(std::min<std::size_t>(80, kOldLimit - 20 - deep.size()), L'd');
        MakeDirectory(deep);
    }
    const std::wstring path = deep + L"\\" + std::wstring(200, L'f') + L".avi";
    for (std::size_t length = kOldLimit - 3; length <= kOldLimit + 2; ++length)
        Copy(cases.Decoy(), path.substr(0, length));
    Copy(file, path);
    cases.MustNotMistake(path, "a path of more than 260 characters");
    cases.MustNotMistake(Long(path), "the same path in the system's long form");
}

void TryOpenFiles(const GPathCases& cases, const std::wstring& directory, const std::wstring& file)
{
    const std::wstring growing = directory + L"\\growing.avi";
    Copy(file, growing);
    {
        const GWriter writer(growing, true);
        cases.MustOpen(growing, "a file that another process has open for writing");
    }
    {
        const GWriter writer(growing, false);
        cases.MustFail(growing, "a file that another process does not share");
    }
    cases.MustOpen(growing, "the same file once it was closed");
}

void TryWhatIsNoFile(const GPathCases& cases, const std::wstring& directory)
{
    cases.MustFail(directory + L"\\missing.avi", "a file that is not there");
    cases.MustFail(directory, "a directory");
    const std::wstring empty = directory + L"\\empty.avi";
    CloseHandle(CreateFileW(empty.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    cases.MustFail(empty, "an empty file");
}

}  // namespace

int TryPaths(const GModuleAccess& access, REFCLSID clsid, const std::wstring& directory, const std::wstring& file,
             const std::wstring& decoy)
{
    const GPathCases cases(access, clsid, file, decoy);
    TryWideNames(cases, directory, file);
    TryLongPath(cases, directory, file);
    TryOpenFiles(cases, directory, file);
    TryWhatIsNoFile(cases, directory);
    Require(access.CanUnloadNow() == S_OK, "DllCanUnloadNow does not say S_OK after all was released");
    return 0;
}

int HoldFile(bool shared, const std::wstring& file, const std::wstring& eventName)
{
    const DWORD sharing = shared ? FILE_SHARE_READ | FILE_SHARE_WRITE : 0;
    const GHandle open{CreateFileW(file.c_str(), GENERIC_WRITE, sharing, nullptr, OPEN_EXISTING, 0, nullptr)};
    Require(open.value != INVALID_HANDLE_VALUE, "the file cannot be opened for writing");
    const GHandle held{OpenEventW(EVENT_ALL_ACCESS, FALSE, eventName.c_str())};
    Require(held.value != nullptr, "nobody waits for the file to be held");
    SetEvent(held.value);
    const ULONGLONG deadline = GetTickCount64() + 2 * kPatienceMs;
    while (WaitForSingleObject(held.value, 0) == WAIT_OBJECT_0 && GetTickCount64() < deadline)
        Sleep(10);
    return 0;
}

}  // namespace vex::wintest
