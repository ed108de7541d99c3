// Opens MP4 bytes with the handler and reads packets the way the frame does.
#pragma once

#include "formats/mp4/mp4_read_handler.h"
#include "support/handler_reading.h"
#include "support/mp4_builder.h"

namespace vex::test {

class GMp4Reading : public GHandlerReading<GMp4ReadHandler> {
public:
    explicit GMp4Reading(GMp4Bytes bytes) : GHandlerReading(std::move(bytes)) {}
    explicit GMp4Reading(const GMp4TestFile& file) : GHandlerReading(file.Build()) {}
    explicit GMp4Reading(const GTempFile& file) : GHandlerReading(file) {}

    void AskMore()
    {
        if (Handler().AvailableTime() < 0)
            throw std::logic_error("a time that is available is negative");
        Seek(0);  // a file begins at its first sample, a seek to 0 at the first sync sample
    }
    const char* SeekFault(REFERENCE_TIME time, GSeekMode, REFERENCE_TIME reached) const
    {
        return reached == time || time < 0 || time > REFERENCE_TIME{1} << 60 ? nullptr : "a seek moves its target";
    }
};

inline std::vector<GReadPacket> ReadFile(const GMp4TestFile& file) { return GMp4Reading(file).ReadAll(); }

inline std::vector<std::size_t> Sizes(const std::vector<GReadPacket>& packets)
{
    std::vector<std::size_t> sizes;
    for (const GReadPacket& packet : packets)
        sizes.push_back(packet.payload.size());
    return sizes;
}

}  // namespace vex::test
