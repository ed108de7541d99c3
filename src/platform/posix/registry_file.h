// The text file that stands for the class registry: `["key"]` lines, each followed by its `"name"="value"` lines (`@`
// for the default value), in UTF-8; inside quotes a backslash goes before a quote or a backslash, and \xHHHH is one
// unit of UTF-16.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/types.h"

namespace vex {

struct GRegistryValue {
    WString name;
    WString value;
};

struct GRegistryKey {
    WString path;
    std::vector<GRegistryValue> values;
};

// The content of the file in memory. Keys and names compare without ASCII case.
class GRegistryTable {
public:
    // False when a line is none of ours; the table is then empty.
    bool Parse(std::string_view text);
    std::string Format() const;

    void Set(WStringView key, WStringView name, WStringView value);
    const WString* Find(WStringView key, WStringView name) const;
    bool DeleteTree(WStringView key);  // whether there was anything
    std::vector<WString> SubKeys(WStringView key) const;

private:
    GRegistryKey& KeyAt(WStringView path);
    bool ParseLine(std::string_view line);

    std::vector<GRegistryKey> keys;  // in order of creation, parents before children
};

// One process at a time: holds the lock file from construction to destruction. A directory that is missing is made.
class GRegistryEdit {
public:
    GRegistryEdit();
    ~GRegistryEdit();
    GRegistryEdit(const GRegistryEdit&) = delete;
    GRegistryEdit& operator=(const GRegistryEdit&) = delete;

    // Whether the file could be locked and read. Otherwise `table` is empty and Commit fails alike.
    HRESULT Status() const { return status; }
    // Puts `table` in the place of the file.
    HRESULT Commit();

    GRegistryTable table;

private:
    std::string directory;
    int lockDescriptor = -1;
    HRESULT status = S_OK;
};

// The directory, or nothing when the environment names neither it nor a home.
std::optional<std::string> RegistryDirectory();

// Reads the file as it is now, without the lock: it is only ever replaced whole. A missing file is an empty table.
HRESULT ReadRegistry(const std::string& directory, GRegistryTable& table);

}  // namespace vex
