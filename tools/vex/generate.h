// The manual page and the shell completions, out of the same tables as the command line itself.
#pragma once

#include <string>
#include <string_view>

namespace vex {

// `what` is man, bash, zsh or fish; an empty text for anything else.
std::string Generate(std::string_view what);

}  // namespace vex
