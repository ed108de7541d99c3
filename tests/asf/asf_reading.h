// Opens ASF bytes with the handler and reads objects the way the frame does.
#pragma once

#include <chrono>
#include <thread>
#include <utility>

#include "formats/asf/asf_read_handler.h"
#include "support/asf_builder.h"
#include "support/handler_reading.h"

namespace vex::test {

class GAsfReading : public GHandlerReading<GAsfExReadHandler> {
public:
    explicit GAsfReading(std::vector<std::uint8_t> bytes,
                         std::chrono::milliseconds growthPause = std::chrono::milliseconds(1))
        : GHandlerReading(std::move(bytes), GAsfExReadHandler::GTimes{growthPause, kHangBound})
    {
    }

    const char* SeekFault(REFERENCE_TIME time, GSeekMode, REFERENCE_TIME reached) const
    {
        return reached != std::max<REFERENCE_TIME>(time, 0) ? "a seek to a time reaches another" : nullptr;
    }

    // Returns when the index has come to the end of the file.
    void WaitForIndex()
    {
        for (const GHangCheck hang("an index that never catches up"); !Handler().IsIndexComplete(); hang.Check())
            std::this_thread::yield();
    }
};

}  // namespace vex::test
