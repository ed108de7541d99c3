// Reads Matroska files, with Cues or without, whole or still being written when they were cut off.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "formats/mkv/mkv_demux.h"
#include "formats/mkv/mkv_file.h"
#include "formats/mkv/mkv_packet.h"
#include "formats/mkv/mkv_track_types.h"
#include "framework/media/read_handler.h"
#include "platform/threads.h"

namespace vex {

// Streams() holds the tracks that a pin can be made for, in file order, under their track numbers. One packet is one
// Block; all are GMkvBlockPackets, also those given to ReadPayload.
class GMkvReadHandler final : public GReadHandler {
public:
    GMkvReadHandler() = default;
    ~GMkvReadHandler() override;

    GStatus Open(const char* path) override;
    // The same for a source that is open already; attachments cannot be read then.
    GStatus Open(std::unique_ptr<GFileBase> source);

    REFERENCE_TIME Duration() const override { return file.duration; }
    std::span<const GStreamInfo> Streams() const override { return infos; }
    // As the track declares it: how many frames a decoder may need at once. 0 for a stream that there is none of.
    std::uint64_t MinCache(std::uint32_t stream) const;

    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    GPacketPtr NewPacket() const override { return std::make_unique<GMkvBlockPacket>(); }
    std::vector<GPacketPtr> HeaderPackets(std::uint32_t stream, const CMediaType& connectedType) override;
    REFERENCE_TIME Seek(REFERENCE_TIME time, GSeekMode mode) override;

    GDamageReport Damage() const override;
    std::vector<GProperty> Properties() const override;
    std::vector<GAttachmentInfo> Attachments() const override;
    bool ReadAttachment(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> out) override
        G_EXCLUDES(attachmentLock);

private:
    // What reading needs to know of one stream.
    struct GTrackEntry {
        std::uint64_t number;                 // as Blocks name it
        const GMkvDescribedTrack* described;  // owned by `described` below
        std::uint32_t strippedBytes;          // that come back in front of every frame
        bool encoded;                         // frames are under content encodings
        bool subtitle;
    };

    GStatus Opened(GStatus status);
    void Close() G_EXCLUDES(attachmentLock);
    const GTrackEntry* FindEntry(std::uint64_t trackNumber) const;
    const GMkvDescribedTrack* FindStream(std::uint32_t stream) const;
    void Announce(const GTrackEntry& entry, GNextPacket& next);
    void DecodeFrames(const GMkvTrack& track, GMkvBlockPacket& packet);

    // Fixed from Open to Close.
    GMkvFile file;
    std::vector<GMkvDescribedTrack> described;
    std::vector<GStreamInfo> infos;
    std::vector<GTrackEntry> entries;  // by number, ascending

    // Reader thread.
    GMkvDemux demux{file};
    GMkvTimedBlock announced;  // what ReadPacket announced last
    const GTrackEntry* announcedEntry = nullptr;
    GBuffer frame;   // one frame of a lace while its encodings are undone
    GBuffer frames;  // those that are done

    GMutex attachmentLock;
    std::string filePath;
    std::unique_ptr<GFileBase> attachmentSource G_GUARDED_BY(attachmentLock);  // opened for the first attachment read
};

}  // namespace vex
