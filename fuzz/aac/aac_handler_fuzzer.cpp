// The AAC handler over hostile bytes.

#include "aac/aac_reading.h"
#include "fuzz/handler_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::GAacReading>(data, size);
}
