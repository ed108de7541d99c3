// The Matroska handler over hostile bytes.

#include "fuzz/handler_fuzzing.h"
#include "mkv/mkv_reading.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::GMkvReading>(data, size);
}
