// The MP3 handler over hostile bytes.

#include "fuzz/handler_fuzzing.h"
#include "mp3/mp3_reading.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::GMp3Reading>(data, size);
}
