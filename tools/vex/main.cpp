// vex: the command-line host.
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "platform/console.h"
#include "tools/vex/command_line.h"
#include "tools/vex/commands.h"
#include "tools/vex/generate.h"
#include "tools/vex/report.h"

namespace vex {

namespace {

int RunCommand(const GSettings& settings)
{
    switch (settings.command) {
    case GCommand::Filters:
        return RunFilters(settings);
    case GCommand::Probe:
        return RunProbe(settings);
    case GCommand::Play:
        return RunPlay(settings);
    case GCommand::Dump:
        return RunDump(settings);
    case GCommand::Seek:
        return RunSeek(settings);
    case GCommand::Extract:
        return RunExtract(settings);
    }
    return kUnusable;
}

int Main(std::vector<std::string> arguments)
{
    // For the build, which installs what this prints; not for people.
    if (arguments.size() == 2 && arguments[0] == "--generate") {
        const std::string text = Generate(arguments[1]);
        Print(text);
        return text.empty() ? kUnusable : kSound;
    }
    const GCommandLine line = ReadCommandLine(std::move(arguments));
    return line.settings ? RunCommand(*line.settings) : line.status;
}

}  // namespace

}  // namespace vex

int main(int argc, char** argv)
{
    using namespace vex;
    PrepareStandardOutput();
    int status = kUnusable;
    try {
        std::vector<std::string> arguments = CommandLineArguments(argc, argv);
        if (!arguments.empty())
            arguments.erase(arguments.begin());
        status = Main(std::move(arguments));
    } catch (const std::bad_alloc&) {
        Complain("out of memory");
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    EndIfInterrupted();
    return FinishOutput() ? status : kUnusable;
}
