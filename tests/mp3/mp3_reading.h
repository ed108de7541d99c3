// Opens MP3 bytes with the handler.
#pragma once

#include "formats/mp3/mp3_read_handler.h"
#include "support/handler_reading.h"

namespace vex::test {

class GMp3Reading : public GHandlerReading<GMp3ReadHandler> {
public:
    using GHandlerReading::GHandlerReading;
    // A Xing table need not lead to the first frame for time 0.
    static constexpr bool kRereads = false;
};

}  // namespace vex::test
