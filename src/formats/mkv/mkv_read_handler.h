// Reads Matroska files, with Cues or without, whole or still being written when they were cut off.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "formats/mkv/mkv_demux.h"
#include "formats/mkv/mkv_file.h"
#include "formats/mkv/mkv_packet.h"
#include "formats/mkv/mkv_track_types.h"
#include "framework/contract/read_handler.h"
#include "io/cache_file.h"
#include "platform/threads.h"

namespace vex {

// Streams() holds the tracks that a pin can be made for, in file order, under their track numbers. One packet is one
// Block; all are GMkvBlockPackets, also those given to ReadPayload.
class GMkvReadHandler final : public GReadHandler {
public:
    // `byteSource` is what a path is opened with; attachments are read through its NewInstance.
    explicit GMkvReadHandler(std::unique_ptr<GFileBase> byteSource = std::make_unique<GCacheFile>())
        : GReadHandler(std::move(byteSource))
    {
    }

    REFERENCE_TIME Duration() const override { return file.duration; }
    std::span<const GStreamInfo> Streams() const override { return infos; }
    // As the track declares it: how many frames a decoder may need at once. 0 for a stream that there is none of.
    std::uint64_t MinCache(std::uint32_t stream) const;

    GReadStatus ReadPacket(GNextPacket& next) override;
    bool ReadPayload(GPacket2& packet) override;
    GPacketPtr NewPacket(std::uint32_t) const override { return std::make_unique<GMkvBlockPacket>(); }
    std::vector<GPacketPtr> HeaderPackets(std::uint32_t stream, const CMediaType& connectedType) override;
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

    std::vector<GProperty> Properties() const override;
    std::vector<GAttachmentInfo> Attachments() const override;
    bool ReadAttachment(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> out) override
        G_EXCLUDES(attachmentLock);

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override G_EXCLUDES(attachmentLock);
    bool LeaveAnnounced(GPacket2& packet) override;
    std::size_t CutLeft(const GPacket2& packet, std::size_t there) override;

private:
    // What reading needs to know of one stream.
    struct GTrackEntry {
        std::uint64_t number;                 // as Blocks name it
        const GMkvDescribedTrack* described;  // owned by `described` below
        std::uint32_t strippedBytes;          // that come back in front of every frame
        bool encoded;                         // frames are under content encodings
        bool subtitle;
    };

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
    std::unique_ptr<GFileBase> attachmentSource G_GUARDED_BY(attachmentLock);  // opened for the first attachment read
};

}  // namespace vex
