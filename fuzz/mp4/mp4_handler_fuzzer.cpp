// The MP4 handler over hostile bytes.

#include "fuzz/handler_fuzzing.h"
#include "mp4/mp4_reading.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::GMp4Reading>(data, size);
}
