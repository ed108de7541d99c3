// Puts the packets of one elementary stream together: from a PES packet with a time up to the next one that has one.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "formats/mpeg/mpeg_pes.h"
#include "framework/contract/damage_log.h"
#include "framework/contract/packet.h"
#include "io/limits.h"

namespace vex {

// What is delivered as one packet: payloads without their headers.
struct GPesUnit {
    GBuffer data;
    std::optional<std::uint64_t> pts;  // none: at the start of a file, before the first time
    std::int64_t position = 0;         // of the first packet, in the file

    void Swap(GPesUnit& other);
};

// Reader thread.
class GPesAssembler {
public:
    // `headerBytes` of the stream's own at the start of every payload are left out. Units above `mostBytes` are cut
    // in two with the same time. The log outlives the assembler.
    GPesAssembler(GPesSyntax pesSyntax, std::size_t headerBytes, GDamageLog& damageLog,
                  std::uint32_t mostBytes = kMaxPacketSize)
        : syntax(pesSyntax), strip(headerBytes), limit(mostBytes), damage(damageLog)
    {
    }

    // Forgets what is buffered. Data without a time is passed over until the first time, unless `untimed`.
    void Reset(bool untimed);

    // The next piece of the stream. `begins`: a PES packet begins with it. A unit may become ready; it has to be taken
    // before the next call.
    void Push(bool begins, GBytes data, std::int64_t position);
    // The stream has no more data: what is whole, and a packet without a length, become ready.
    void End(std::int64_t position);

    bool Ready() const { return ready; }
    // Requires Ready(). Valid until the next call of Push.
    GPesUnit& Take()
    {
        ready = false;
        return done;
    }

private:
    enum class GState : std::uint8_t { Idle, Header, Payload };

    void EndPacket(std::int64_t position);
    void ReadHeader(GBytes& data);
    void BeginPayload(const GPesHeader& header);
    void Append(GBytes data);
    void Finish();

    const GPesSyntax syntax;
    const std::size_t strip;
    const std::uint32_t limit;
    GDamageLog& damage;

    GPesUnit building;
    bool open = false;          // `building` has begun
    std::size_t committed = 0;  // bytes of it that belong to whole packets
    bool untimedAllowed = false;
    GPesUnit done;
    bool ready = false;

    // The packet being read.
    GState state = GState::Idle;
    std::vector<std::uint8_t> head;  // of a header that spans transport packets
    std::int64_t packetPosition = 0;
    bool unbounded = false;
    std::uint64_t left = 0;     // payload bytes still to come, of a bounded packet
    std::size_t stripLeft = 0;  // bytes still to be left out
};

}  // namespace vex
