// The commands. Each prints its result and returns the program's exit status.
#pragma once

#include "tools/vex/settings.h"

namespace vex {

int RunFilters(const GSettings& settings);
int RunProbe(const GSettings& settings);
int RunPlay(const GSettings& settings);
int RunDump(const GSettings& settings);
int RunSeek(const GSettings& settings);
int RunExtract(const GSettings& settings);

}  // namespace vex
