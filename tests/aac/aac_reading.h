// Opens AAC bytes with the handler.
#pragma once

#include "formats/aac/aac_read_handler.h"
#include "support/handler_reading.h"

namespace vex::test {

using GAacReading = GHandlerReading<GAacReadHandler>;

}  // namespace vex::test
