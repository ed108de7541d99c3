// Opens FLV bytes with the handler and reads packets the way the frame does.
#pragma once

#include "formats/flv/flv_read_handler.h"
#include "support/flv_builder.h"
#include "support/handler_reading.h"

namespace vex::test {

// A composition time may put a packet before the file.
struct GFlvReadPacket : GReadPacket {
    const char* Fault(std::uint64_t fileSize) const
    {
        return payload.size() > fileSize ? "a payload is larger than its file" : TimeFault();
    }
};

using GFlvReading = GHandlerReading<GFlvReadHandler, GFlvReadPacket>;

}  // namespace vex::test
