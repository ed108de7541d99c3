// File names that are hard to pass on, and files that somebody else has open.
#pragma once

#include <string>

#include "windows/module_access.h"

namespace vex::wintest {

// Copies `file` under difficult names into `directory` (absolute, existing), each beside decoys that a mangled name
// would hit, and loads the copies. `decoy` is a playable file with other samples than `file`. Throws on the first wrong
// answer.
int TryPaths(const GModuleAccess& access, REFCLSID clsid, const std::wstring& directory, const std::wstring& file,
             const std::wstring& decoy);

// Holds `file` open for writing, sharing it or not, from the moment it sets the named event until that is reset.
int HoldFile(bool shared, const std::wstring& file, const std::wstring& eventName);

}  // namespace vex::wintest
