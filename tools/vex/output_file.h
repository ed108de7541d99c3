// A file, or standard output, written piece by piece.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/file.h"

namespace vex {

// One thread at a time. The first failure stays; what is written after it is dropped.
class GOutputFile {
public:
    // `path` is UTF-8; an existing file is replaced. An empty path is standard output.
    bool Open(const std::string& path);
    void Write(std::span<const std::uint8_t> bytes);
    // Writes what is still held. False when not everything could be written.
    bool Close();

    std::uint64_t Written() const { return position + held.size(); }  // bytes
    const std::string& Error() const { return error; }                // why, after a failure

private:
    void Flush();

    GOsFile file;
    bool standardOutput = false;
    std::uint64_t position = 0;
    std::vector<std::uint8_t> held;
    std::string error;
};

}  // namespace vex
