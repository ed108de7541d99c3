#include "tools/vex/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/text.h"

namespace vex {

namespace {

constexpr std::size_t kHeldBytes = 256 * 1024;

}  // namespace

bool GOutputFile::Open(const std::string& path)
{
    held.reserve(kHeldBytes);
    standardOutput = path.empty();
    if (standardOutput || file.CreateForWriting(NarrowPathFromWide(WideFromPathArgument(path)).c_str()))
        return true;
    error = DescribeOsError(file.LastError());
    return false;
}

void GOutputFile::Write(std::span<const std::uint8_t> bytes)
{
    if (!error.empty())
        return;
    if (bytes.size() > kHeldBytes - held.size())
        Flush();
    while (bytes.size() > kHeldBytes) {
        held.assign(bytes.begin(), bytes.begin() + kHeldBytes);
        bytes = bytes.subspan(kHeldBytes);
        Flush();
    }
    held.insert(held.end(), bytes.begin(), bytes.end());
}

void GOutputFile::Flush()
{
    if (held.empty() || !error.empty())
        return;
    if (standardOutput) {
        if (std::fwrite(held.data(), 1, held.size(), stdout) != held.size())
            error = std::strerror(errno);
    } else if (file.WriteAt(static_cast<std::int64_t>(position), held.data(), static_cast<std::uint32_t>(held.size())) <
               0) {
        error = DescribeOsError(file.LastError());
    }
    if (error.empty())
        position += held.size();
    held.clear();
}

bool GOutputFile::Close()
{
    Flush();
    file.Close();
    return error.empty();
}

}  // namespace vex
