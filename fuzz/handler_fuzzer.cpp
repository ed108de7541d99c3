// A format's read handler over hostile bytes. vex_handler_fuzzer names the class of the format's tests and its header.

#include VEX_READING_HEADER

#include "fuzz/handler_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return vex::fuzz::FuzzHandler<vex::test::VEX_READING>(data, size);
}
