#include "io/result.h"

#include "platform/file.h"

namespace vex {

std::string Describe(const GError& error)
{
    std::string text = error.what;
    if (error.osError != 0)
        text += ": " + DescribeOsError(error.osError);
    if (error.filePos != 0)
        text += " (at byte " + std::to_string(error.filePos) + ")";
    return text;
}

}  // namespace vex
