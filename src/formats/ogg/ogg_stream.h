// One logical stream of an Ogg file: its headers, its packets, and the times of both.
#pragma once

#include <ogg/ogg.h>

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "dshow/media_type.h"
#include "formats/ogg/ogg_page_source.h"
#include "io/bytes.h"
#include "platform/pipeline.h"

namespace vex {

enum class GOggKind : std::uint8_t {
    None = 0,
    OgmAudio = 1,
    OgmVideo = 2,
    Vorbis = 3,
    Theora = 4,
    OgmText = 5,
    GStream = 6,
    NotHeader = 7,
};

// By the signature behind the packet's type byte, so that the further headers of Vorbis and Theora, and the comment
// packet of an OGM stream, are recognised too.
GOggKind IdentifyHeader(GBytes packet);

// A packet inside a stream's buffer, valid until the next page is added to the stream.
struct GOggPacket {
    GBytes data;
    std::int64_t granule = -1;    // negative: not the last packet that ends on its page
    std::int64_t pageOffset = 0;  // file position of the page on which it begins
    bool beginsStream = false;

    std::uint8_t First() const { return data.empty() ? std::uint8_t{0} : data[0]; }
};

// A comment of a stream's comment header.
struct GOggComment {
    std::string name;   // lower case
    std::string value;  // UTF-8
};

// The base of all kinds. Times are in 100 ns, from the granule position 0. The constant parts (kind, serial, headers
// and what was read from them) are fixed once all headers are in and may then be read by any thread; the rest belongs
// to one.
class GOGG2ReadStream {
public:
    static constexpr std::size_t kHeaderSlots = 3;

    virtual ~GOGG2ReadStream();
    GOGG2ReadStream(const GOGG2ReadStream&) = delete;
    GOGG2ReadStream& operator=(const GOGG2ReadStream&) = delete;

    // Null for a kind without a stream class. May throw std::bad_alloc.
    static std::unique_ptr<GOGG2ReadStream> Create(GOggKind kind, std::uint32_t serial);
    // A stream of the same kind and headers, with no packets.
    std::unique_ptr<GOGG2ReadStream> Twin() const;

    GOggKind Kind() const { return streamKind; }
    std::uint32_t Serial() const { return serialNumber; }
    bool IsVideo() const { return streamKind == GOggKind::OgmVideo || streamKind == GOggKind::Theora; }
    bool IsAudio() const { return streamKind == GOggKind::OgmAudio || streamKind == GOggKind::Vorbis; }
    // Empty when the slot is.
    GBytes Header(std::size_t slot) const { return headers[slot].data; }
    const std::vector<GOggComment>& Comments() const { return comments; }

    // False: the packet is not a header that the stream takes now.
    virtual bool HeaderIn(const GOggPacket& packet) = 0;
    // 0 when the stream has the headers that it needs.
    virtual unsigned HeadersMissing() const { return headers[0].filled ? 0 : 1; }
    // Fills `type` and returns the size of the largest packet that the stream expects, in bytes; 0: unknown.
    virtual std::uint32_t BuildMediaType(CMediaType& type) const = 0;

    // What precedes the payload in a data packet, in bytes; may be more than the packet holds.
    virtual std::size_t PayloadOffset(const GOggPacket&) const { return 0; }
    virtual bool IsKeyFrame(const GOggPacket&) const { return false; }

    // -1 for a negative granule. Any thread.
    virtual REFERENCE_TIME GranuleToTime(std::int64_t granule) const;
    // The start of `packet`, which becomes the current packet: call it once for each, in order.
    virtual REFERENCE_TIME PacketTime(const GOggPacket& packet);
    // Of the packet passed to PacketTime last.
    virtual REFERENCE_TIME CurrentTime() const { return PositionTime(position); }
    // These belong to the current packet.
    virtual REFERENCE_TIME StopTime(const GOggPacket&) const { return CurrentTime() + 1; }
    virtual LONGLONG MediaTimeStart(const GOggPacket&) const { return 0; }
    virtual LONGLONG MediaTimeStop(const GOggPacket&) const { return 0; }

    // Forgets all packets and the position: pages from another place follow.
    void Reset();
    bool WaitingForKeyFrame() const { return keyFrameWait && IsVideo(); }
    void ClearKeyFrameWait() { keyFrameWait = false; }

    void PageIn(GOggPage& page);
    enum class GPeek : std::uint8_t {
        Packet,
        None,  // no whole packet
        Held,  // the first packet's time is not known until more pages have been added
        Hole,  // pages are missing ahead of the next packet: peek again
    };
    // Looks at the next packet that is not a header. `lastChance`: no pages will follow, do not hold packets back.
    GPeek Peek(GOggPacket& packet, bool lastChance = false);
    // Takes the packet that Peek found.
    void Pop();
    // Like Peek and Pop, headers included; for the header pages of a file. False when there is none.
    bool TakeHeader(GOggPacket& packet);

protected:
    GOGG2ReadStream(GOggKind kind, std::uint32_t serial);

    void StoreHeader(std::size_t slot, const GOggPacket& packet);
    std::vector<GOggComment> comments;
    unsigned headerCount = 0;  // packets accepted

    // In units of the position: where a granule puts it, the length of a data packet, and what a packet without a
    // granule adds to it, which for some kinds is not its length.
    virtual std::int64_t GranulePosition(std::int64_t granule) const { return granule; }
    virtual std::int64_t Length(const GOggPacket&) const { return 0; }
    virtual std::int64_t Step(const GOggPacket& packet) const { return Length(packet); }
    virtual REFERENCE_TIME PositionTime(std::int64_t) const { return 0; }
    // Whether the packets ahead of a granule can be timed by counting back from it.
    virtual bool CountsBack() const { return true; }
    // The lowest position ahead of a stream's first packet, whose length is given.
    virtual std::int64_t FirstPosition(std::int64_t) const { return 0; }
    void Advance(std::int64_t units);

private:
    struct GHeader {
        std::vector<std::uint8_t> data;
        bool beginsStream = false;
        bool filled = false;
    };

    bool PeekRaw(GOggPacket& packet, bool& hole);
    bool CountBack(bool lastChance);
    long WaitingPackets() const;

    const GOggKind streamKind;
    const std::uint32_t serialNumber;
    std::array<GHeader, kHeaderSlots> headers;

    ogg_stream_state state{};
    std::deque<std::int64_t> pageOffsets;  // of the packets in `state`
    std::int64_t openPage = -1;            // the page on which an unfinished packet begins
    std::int64_t position = 0;             // of the current packet; behind a reset: ahead of the first one
    bool positionKnown = false;
    bool anyPosition = false;   // since the reset
    bool countingBack = false;  // the packets up to the next granule add their length
    bool keyFrameWait = true;
};

// value * mul / div, cut to times that sums and differences of fit 64 bits. `div` 0 gives 0.
REFERENCE_TIME OggTime(std::int64_t value, std::int64_t mul, std::int64_t div);

}  // namespace vex
