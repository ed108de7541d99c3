#include "platform/console.h"

#include <unistd.h>

namespace vex {

std::vector<std::string> CommandLineArguments(int argc, const char* const* argv) { return {argv, argv + argc}; }

void PrepareStandardOutput() {}

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace vex
