// The contract between the frame and a container format: bytes in, stream descriptions and timed packets out.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "framework/contract/damage_log.h"
#include "framework/contract/packet.h"
#include "framework/contract/stream_info.h"
#include "io/file_base.h"
#include "io/result.h"

namespace vex {

enum class GSeekMode : std::uint8_t {
    Independent,  // every stream goes to the time on its own
    KeyFrame,     // all streams are aligned on a key frame of the reference stream
};

enum class GReadStatus : std::uint8_t {
    Packet,     // a packet was announced
    StreamEnd,  // GNextPacket::stream has no data left in this run; others may have
    Again,      // nothing to announce yet (a damaged unit was passed over): ask again at once
    Wait,       // the data has not arrived yet: ask again in a millisecond
    End,        // no stream has data left
};

// The packet that ReadPacket announced.
struct GNextPacket {
    std::uint32_t stream = 0;
    std::uint32_t size = 0;  // payload bytes announced; a packet of 0 is passed over unless the filter's rules take it
    bool keyFrame = false;
    bool discontinuity = false;
    bool continuation = false;
    REFERENCE_TIME start = kNoTime;  // 100 ns from the start of the file
    REFERENCE_TIME stop = kNoTime;
    LONGLONG mediaStart = kNoTime;  // only where the format has its own media times; else the frame derives them
    LONGLONG mediaStop = kNoTime;
};

// One open container. The frame owns it and calls it from one thread at a time: Open on the thread that loads,
// StartRun, ReadPacket and ReadPayload on the reader thread, Seek and Close only while that thread is parked or gone.
// Damage, the durations, IsIndexComplete, AcceptsSeek, ReadLeft, ReadAttachment and Interrupt may be called from any
// thread while it is open. No method throws but by std::bad_alloc.
class GReadHandler {
public:
    virtual ~GReadHandler() = default;
    GReadHandler(const GReadHandler&) = delete;
    GReadHandler& operator=(const GReadHandler&) = delete;

    // `path` as for GOsFile. An open handler is closed first; after a failure, std::bad_alloc included, it is closed.
    GStatus Open(const char* path);
    // Ends the handler's threads, forgets the container and closes the byte source.
    void Close();

    // 100 ns, as known now. May only grow.
    virtual REFERENCE_TIME Duration() const = 0;
    virtual std::span<const GStreamInfo> Streams() const = 0;
    // The longest stream as known now (an index may still grow), 100 ns.
    virtual REFERENCE_TIME LongestStreamDuration() const { return Duration(); }
    // False while a thread of the handler still builds an index out of what is in the file: seeks land short of the
    // end.
    virtual bool IsIndexComplete() const { return true; }

    // The reader begins to read, at the start and after every seek. `wanted`: the numbers of the streams whose packets
    // somebody takes. Packets of other streams may be announced; their payload is not asked for.
    virtual void StartRun(std::span<const std::uint32_t> wanted) { static_cast<void>(wanted); }
    // Announces the next packet in delivery order. Must return in bounded time and never wait longer than 1 ms.
    virtual GReadStatus ReadPacket(GNextPacket& next) = 0;
    // Reads the payload just announced into packet.data (its size becomes what was really there). False when it cannot
    // be read at all: the packet is passed over. Once per announced packet; not called for a packet nobody wants.
    virtual bool ReadPayload(GPacket2& packet) = 0;
    // In place of ReadPayload, for a payload that is a run of bytes of the file and delivered as it stands: leaves it
    // to be read by ReadLeft. False, with the packet as it was, when ReadPayload is to be called.
    bool LeavePayload(GPacket2& packet) { return source && source->ReadsAnywhere() && LeaveAnnounced(packet); }
    // Any thread, while the handler is open: reads the payload of a packet that was left, into the first packet.unread
    // bytes of `out`. The bytes to deliver; 0: none, the packet is passed over.
    std::size_t ReadLeft(const GPacket2& packet, std::uint8_t* out);
    // The packet class that the pin of `stream` works with.
    virtual GPacketPtr NewPacket(std::uint32_t stream) const
    {
        static_cast<void>(stream);
        return std::make_unique<GPacket2>();
    }

    // Codec headers to be sent in-band ahead of the stream's data after every start, given the connected type. They
    // pass through the queue and are rebased like data; headers that stay outside are GStreamInfo::leadSamples.
    virtual std::vector<GPacketPtr> HeaderPackets(std::uint32_t, const CMediaType&) { return {}; }

    // False for a time that Seek would refuse, 100 ns; asked before playback is disturbed.
    virtual bool AcceptsSeek(REFERENCE_TIME time) const
    {
        static_cast<void>(time);
        return true;
    }
    // Repositions every stream; returns the time reached (100 ns from the start of the file), or nothing when the seek
    // is refused and reading goes on where it was.
    virtual std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) = 0;

    // While set, what runs inside the handler returns as soon as it can: ReadPacket with Again, a search in Open with
    // an error. For a stop or a seek that must not wait for a long search.
    void Interrupt(bool set) { interrupted.store(set, std::memory_order_release); }

    GDamageReport Damage() const { return damage.Report(); }
    virtual std::vector<GProperty> Properties() const { return {}; }
    virtual std::vector<GAttachmentInfo> Attachments() const { return {}; }
    // Reads attachment bytes [offset, offset + out.size()) into `out`; false when they are not all there. Uses a byte
    // source of its own, so it may run beside the reader.
    virtual bool ReadAttachment(std::size_t, std::uint64_t, std::span<std::uint8_t>) { return false; }

protected:
    // `file` is what a path is opened with; null for a handler that needs no bytes. `cannotOpen`: traced when it fails.
    explicit GReadHandler(std::unique_ptr<GFileBase> file, const char* cannotOpen = "error, Do not open file!\n")
        : source(std::move(file)), openFailure(cannotOpen)
    {
    }

    // Reads what Open needs out of `source`, which is open. After a failure CloseContainer is called.
    virtual GStatus OpenContainer() = 0;
    // Forgets everything that OpenContainer made; harmless when there is nothing. A handler with threads of its own
    // also calls Close in its destructor: this base can no longer reach the override then.
    virtual void CloseContainer() = 0;

    // See LeavePayload: sets packet.position and packet.unread. All the bytes are in the file, as far as is known.
    virtual bool LeaveAnnounced(GPacket2& packet)
    {
        static_cast<void>(packet);
        return false;
    }
    // Any thread: only the first `there` bytes of a payload that was left can be read. Says so in the damage log and
    // returns how many are delivered.
    virtual std::size_t CutLeft(const GPacket2& packet, std::size_t there)
    {
        static_cast<void>(packet);
        return there;
    }

    // A second byte source on the open file, for another thread; null when it cannot be opened.
    std::unique_ptr<GFileBase> OpenAgain() const;
    // As given to Open; empty when closed.
    const std::string& Path() const { return path; }
    const std::atomic<bool>& Interrupted() const { return interrupted; }

    const std::unique_ptr<GFileBase> source;  // reader thread, once open
    GDamageLog damage;

private:
    const char* const openFailure;
    std::string path;
    std::atomic<bool> interrupted{false};
};

}  // namespace vex
