// From arguments to settings.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/vex/settings.h"

namespace vex {

// Either settings to run with, or the exit status that ends the program at once: help and versions have been printed on
// standard output, complaints on standard error.
struct GCommandLine {
    std::optional<GSettings> settings;
    int status = kSound;
};

// `arguments` are UTF-8, without the program's name.
GCommandLine ReadCommandLine(std::vector<std::string> arguments);

}  // namespace vex
