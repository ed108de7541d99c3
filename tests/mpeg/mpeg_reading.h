// Opens MPEG bytes with the handler and reads packets the way the frame does.
#pragma once

#include "formats/mpeg/mpeg_read_handler.h"
#include "support/handler_reading.h"
#include "support/mpeg_builder.h"

namespace vex::test {

using GMpegReading = GHandlerReading<GMpeg2ReadHandler>;

inline constexpr std::uint32_t kPrivateAc3 = 0xBD80;

// What a player may do with `bytes`; the packets of the first reading.
std::size_t Survive(const GMpegBytes& bytes);

}  // namespace vex::test
