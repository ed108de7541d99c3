// What a decoder of the system's makes of our samples.
#pragma once

#include <string>
#include <vector>

#include "windows/test_graph.h"

namespace vex::wintest {

// Plays `file` through the decoder to the end, then seeks to each of `targets` (100 ns) and plays `perSeek` decoded
// samples from there. The decoded bytes go to `output`, one after the other; stdout gets a line of JSON for the decoded
// type and one for each sample, with the target as `seek` for those after a seek.
int Decode(const GModuleAccess& access, REFCLSID clsid, GDecoder decoder, const std::wstring& file,
           const std::wstring& output, std::size_t perSeek, const std::vector<LONGLONG>& targets);

}  // namespace vex::wintest
