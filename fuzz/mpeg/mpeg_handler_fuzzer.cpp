// The MPEG handler over hostile bytes.

#include "fuzz/handler_fuzzing.h"
#include "mpeg/mpeg_reading.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::GMpegReading>(data, size);
}
