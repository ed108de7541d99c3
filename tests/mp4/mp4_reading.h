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

// A track of the same bytes whose samples are packed otherwise.
inline GMp4TestTrack Packed(const std::vector<std::uint32_t>& chunkSamples, std::string entry,
                            std::uint16_t version = 0, std::array<std::uint32_t, 4> packing = {})
{
    GMp4TestTrack track = PcmSound(chunkSamples);
    track.entry = std::move(entry);
    track.version = version;
    track.packing = packing;
    return track;
}

// One of everything that is read, the header first.
inline GMp4Bytes SmallFile()
{
    GMp4TestTrack video = NumberedVideo(6, 2);
    video.entry = "avc1";
    video.children = Box("avcC", {1, 77, 0, 30, 0xFF, 0xE1, 0, 3, 0x67, 77, 30, 1, 0, 2, 0x68, 0xCE});
    GMp4TestTrack aac = NumberedVideo(4, 1, 3);
    aac.handler = "soun";
    aac.entry = "mp4a";
    aac.version = 1;
    aac.children = Box("wave", Esds(0x40, {0x12, 0x10}));
    return HeaderFirst({.tracks = {video, PcmSound({300, 20}), aac}});
}

inline std::vector<std::size_t> Sizes(const std::vector<GReadPacket>& packets)
{
    std::vector<std::size_t> sizes;
    for (const GReadPacket& packet : packets)
        sizes.push_back(packet.payload.size());
    return sizes;
}

}  // namespace vex::test
