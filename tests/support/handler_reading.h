// Opens bytes with a read handler and reads packets the way the frame does.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/contract/read_handler.h"
#include "io/cache_file.h"
#include "io/limits.h"
#include "support/memory_file.h"
#include "support/read_packet.h"
#include "support/temp_file.h"
#include "support/watchdog.h"
#include "support/watched_source.h"

namespace vex::test {

// A handler on bytes in memory, which may be made to grow or to fail, or on a file of the disk. H is constructed from
// its byte source and what is given behind the bytes. The handler of a file that cannot be opened has no packets. A
// packet that no file may lead to is thrown as a std::logic_error: it fails a test and ends a fuzz target.
template <class H, class Read = GReadPacket>
class GHandlerReading {
public:
    template <class... Arguments>
    explicit GHandlerReading(std::vector<std::uint8_t> bytes, Arguments&&... arguments)
        : disk(std::make_shared<GMemoryDisk>(std::move(bytes))),
          handler(Watched(std::make_unique<GMemoryFile>(disk)), std::forward<Arguments>(arguments)...),
          opened(handler.Open("memory"))
    {
        WantAll();
    }
    // A byte source of the test's own.
    template <class... Arguments>
    explicit GHandlerReading(std::unique_ptr<GFileBase> file, Arguments&&... arguments)
        : handler(Watched(std::move(file)), std::forward<Arguments>(arguments)...), opened(handler.Open("source"))
    {
        WantAll();
    }
    // `file` outlives the reading.
    template <class... Arguments>
    explicit GHandlerReading(const GTempFile& file, Arguments&&... arguments)
        : handler(Watched(std::make_unique<GCacheFile>()), std::forward<Arguments>(arguments)...),
          opened(handler.Open(file.Path()))
    {
        WantAll();
    }

    bool IsOpen() const { return opened.Ok(); }
    const GStatus& Opened() const { return opened; }
    H& Handler() { return handler; }
    std::span<const GStreamInfo> Streams() const { return handler.Streams(); }
    GDamageReport Damage() const { return handler.Damage(); }
    GSourceWatch& Watch() { return watch; }
    // Bytes in memory grow.
    void Append(std::span<const std::uint8_t> more) { disk->Append(more); }
    // Bytes that no payload or attachment can be larger than.
    std::uint64_t LargestPayload() const { return disk ? static_cast<std::uint64_t>(disk->Size()) : kMaxPacketSize; }
    // The value of a property of the file; empty when there is none of that name.
    std::string Property(const std::string& name) const
    {
        for (const GProperty& property : handler.Properties())
            if (property.name == name)
                return property.value;
        return {};
    }

    // Only these streams' packets are read from the next run on: from a seek, or from now when nothing has been read.
    void Want(std::vector<std::uint32_t> streams) { wanted = std::move(streams); }
    void WantAll()
    {
        wanted.clear();
        for (const GStreamInfo& stream : handler.Streams())
            wanted.push_back(stream.number);
    }

    // Payloads that can be left to a pin are read as the pin reads them.
    void LeavePayloads() { leaving = true; }

    // As far as the next packet of a wanted stream, its payload left alone. Packet, Wait or End: what is to be asked
    // again is asked again, and ends of streams are put down.
    GReadStatus Announce(GNextPacket& next)
    {
        BeginRun();
        for (const GHangCheck hang(kNoEnd);; hang.Check()) {
            const GReadStatus status = handler.ReadPacket(next);
            ++calls;
            if (status == GReadStatus::StreamEnd)
                ended.push_back(next.stream);
            else if (status == GReadStatus::Packet ? IsWanted(next.stream) : status != GReadStatus::Again)
                return status;
        }
    }
    // The next packet; nothing at the end. Waits for bytes or an index to arrive.
    std::optional<GNextPacket> Announced()
    {
        GNextPacket next;
        for (const GHangCheck hang(kNoEnd);; hang.Check()) {
            const GReadStatus status = Announce(next);
            if (status == GReadStatus::Packet)
                return next;
            if (status == GReadStatus::End)
                return std::nullopt;
            std::this_thread::yield();
        }
    }
    // The same with its payload.
    std::optional<Read> Next()
    {
        const auto next = Announced();
        return next ? std::optional(ReadPayload(*next)) : std::nullopt;
    }

    // To the end.
    std::vector<Read> ReadAll()
    {
        std::vector<Read> packets;
        while (auto packet = Next())
            packets.push_back(std::move(*packet));
        return packets;
    }
    // Without waiting for more bytes.
    std::optional<Read> NextAvailable()
    {
        GNextPacket next;
        return Announce(next) == GReadStatus::Packet ? std::optional(ReadPayload(next)) : std::nullopt;
    }
    std::vector<Read> ReadAvailable()
    {
        std::vector<Read> packets;
        while (auto packet = NextAvailable())
            packets.push_back(std::move(*packet));
        return packets;
    }
    // The handler may refuse; reading goes on where it was then.
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode = GSeekMode::Independent)
    {
        if (!handler.AcceptsSeek(time))
            return std::nullopt;
        const auto reached = handler.Seek(time, mode);
        runBegun = runBegun && !reached;
        return reached;
    }
    // Nothing when the seek is refused.
    std::vector<Read> ReadFrom(REFERENCE_TIME time, GSeekMode mode = GSeekMode::Independent)
    {
        return Seek(time, mode) ? ReadAll() : std::vector<Read>();
    }

    // For GHandlerTrial; the class of a format hides what differs. AskMore: what only this handler can be asked.
    // SeekFault: what is wrong with the place that a seek reached, or null. kRereads: a second reading from 0 gives the
    // same packets.
    void AskMore() {}
    const char* SeekFault(REFERENCE_TIME, GSeekMode, REFERENCE_TIME) const { return nullptr; }
    static constexpr bool kRereads = true;

    // The streams that were said to have ended in this run, in order.
    const std::vector<std::uint32_t>& Ended() const { return ended; }
    std::size_t Calls() const { return calls; }  // of ReadPacket

private:
    static constexpr const char* kNoEnd = "a handler that has neither a packet nor an end";

    static void Require(const char* fault)
    {
        if (fault)
            throw std::logic_error(fault);
    }
    std::unique_ptr<GFileBase> Watched(std::unique_ptr<GFileBase> source)
    {
        return std::make_unique<GWatchedSource>(std::move(source), watch);
    }
    void BeginRun()
    {
        if (std::exchange(runBegun, true))
            return;
        ended.clear();
        handler.StartRun(wanted);
    }
    bool IsWanted(std::uint32_t stream) const { return std::ranges::find(wanted, stream) != wanted.end(); }

    // Into a packet that the stream's last payload was read into, as the pools of the frame have them.
    Read ReadPayload(const GNextPacket& next)
    {
        GPacketPtr& packet = pool[next.stream];
        if (!packet)
            packet = handler.NewPacket(next.stream);
        packet->Recycle();
        packet->stream = next.stream;
        packet->keyFrame = next.keyFrame;
        packet->discontinuity = next.discontinuity;
        packet->continuation = next.continuation;
        packet->start = next.start;
        packet->stop = next.stop;
        Read read;
        read.next = next;
        read.delivered = leaving && next.size != 0 && handler.LeavePayload(*packet) ? ReadLeft(*packet)
                                                                                    : handler.ReadPayload(*packet);
        read.Take(*packet);
        Require(read.Fault(LargestPayload()));
        return read;
    }

    bool ReadLeft(GPacket2& packet)
    {
        packet.data.Resize(packet.unread);
        packet.data.Truncate(handler.ReadLeft(packet, packet.data.Data()));
        return !packet.data.Empty();
    }

    GSourceWatch watch;                       // outlives the handler's source
    const std::shared_ptr<GMemoryDisk> disk;  // null for a file of the disk
    H handler;
    const GStatus opened;
    std::vector<std::uint32_t> wanted;
    bool runBegun = false;
    bool leaving = false;
    std::vector<std::uint32_t> ended;
    std::map<std::uint32_t, GPacketPtr> pool;  // one for each stream
    std::size_t calls = 0;
};

}  // namespace vex::test
