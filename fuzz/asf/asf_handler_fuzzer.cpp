// The ASF handler over hostile bytes.

#include "asf/asf_reading.h"
#include "fuzz/handler_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::GAsfReading>(data, size);
}
