// The command line and the standard streams of a console program.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vex {

// The arguments, the program's name first, as UTF-8 on every target.
std::vector<std::string> CommandLineArguments(int argc, const char* const* argv);

// Standard output passes bytes on as they are written: no line-end translation. To be called before anything is
// written.
void PrepareStandardOutput();

// Whether somebody watches standard error as it is written.
bool StandardErrorIsTerminal();

// While one exists, what would end the program at once (Ctrl-C, a request to terminate, output into a closed pipe) is
// noted instead, so that the program can clean up. A second Ctrl-C ends it. One at a time.
class GInterruptWatch {
public:
    // Called once, on a thread of its own.
    explicit GInterruptWatch(std::function<void()> onInterrupt);
    ~GInterruptWatch();
    GInterruptWatch(const GInterruptWatch&) = delete;
    GInterruptWatch& operator=(const GInterruptWatch&) = delete;
};

// Whether a watch has noted something. Any thread.
bool WasInterrupted();
// Ends the program as it would have ended then; returns when nothing was noted.
void EndIfInterrupted();

}  // namespace vex
