// Opens Ogg bytes with the handler and reads packets the way the frame does.
#pragma once

#include <chrono>
#include <thread>
#include <utility>

#include "formats/ogg/ogg_read_handler.h"
#include "support/handler_reading.h"
#include "support/ogg_builder.h"

namespace vex::test {

struct GReadOggPacket : GReadPacket {
    // Packets ahead of a stream's first granule may have times before the file.
    const char* Fault(std::uint64_t fileSize) const
    {
        return payload.size() > fileSize ? "a payload is larger than its file" : TimeFault();
    }
};

class GOggReading : public GHandlerReading<GOGG2ReadHandler, GReadOggPacket> {
public:
    // The index looks for growth every millisecond.
    explicit GOggReading(GOggBytes bytes, GOggPinNames names = GOggPinNames::Second)
        : GHandlerReading(std::move(bytes), names,
                          GOggIndexPauses{std::chrono::milliseconds(1), std::chrono::milliseconds(1)})
    {
    }

    // What the index has seen differs from one reading of a growing file to the next.
    static constexpr bool kRereads = false;

    const char* SeekFault(REFERENCE_TIME time, GSeekMode mode, REFERENCE_TIME reached) const
    {
        if (mode == GSeekMode::Independent)
            return reached != time ? "a seek to a time reaches another" : nullptr;
        return nullptr;
    }

    // Returns when the index has come to the end of the file.
    void WaitForIndex()
    {
        for (const GHangCheck hang("an index that never catches up"); !Handler().IsIndexComplete(); hang.Check())
            std::this_thread::yield();
    }
};

}  // namespace vex::test
