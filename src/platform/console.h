// The command line and the standard streams of a console program.
#pragma once

#include <string>
#include <vector>

namespace vex {

// The arguments, the program's name first, as UTF-8 on every target.
std::vector<std::string> CommandLineArguments(int argc, const char* const* argv);

// Standard output passes bytes on as they are written: no line-end translation. To be called before anything is written.
void PrepareStandardOutput();

// Whether somebody watches standard error as it is written.
bool StandardErrorIsTerminal();

}  // namespace vex
