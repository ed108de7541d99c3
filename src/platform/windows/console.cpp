#include "platform/console.h"

#include "platform/types.h"

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>

#include "platform/text.h"

namespace vex {

std::vector<std::string> CommandLineArguments(int argc, const char* const* argv)
{
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (!wide)
        return {argv, argv + argc};
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i)
        arguments.push_back(Utf8FromWide(wide[i]));
    LocalFree(wide);
    return arguments;
}

void PrepareStandardOutput()
{
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
}

bool StandardErrorIsTerminal() { return _isatty(_fileno(stderr)) != 0; }

}  // namespace vex
