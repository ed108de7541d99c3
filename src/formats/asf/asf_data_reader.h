// Reads data packets one after another and joins their payloads into media objects.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <span>

#include "formats/asf/asf_header.h"
#include "formats/asf/asf_packet.h"
#include "framework/contract/damage_log.h"
#include "io/scan_window.h"

namespace vex {

enum class GAsfStep : std::uint8_t {
    Object,  // Complete() is valid
    Again,   // the work of one call is done
    End,     // no packet is left
};

// One thread at a time. What the constructor takes outlives the reader.
class GAsfDataReader {
public:
    GAsfDataReader(GFileBase& byteSource, const GAsfHeader& fileHeader, GDamageLog& damageLog,
                   const std::atomic<bool>& interruptFlag);

    // Only objects of these streams are joined from now on, as far as they are selected.
    void Want(std::span<const std::uint32_t> numbers);
    // Reading goes on with the packet there; objects in progress are dropped.
    void MoveTo(std::int64_t packetPosition);
    // Reads on until a stream has a whole object. Bounded; the object before is dropped if it was not taken.
    GAsfStep Next();
    // After Next said Object.
    GAsfEXReadStream& Complete() { return *complete; }

private:
    // Where the parser is in a payload of sub-payloads.
    struct GCompressed {
        GAsfEXReadStream* stream = nullptr;
        std::int64_t position = 0;  // of the next sub-payload's length
        std::int64_t end = 0;
        std::uint64_t presentationMs = 0;
        std::uint8_t deltaMs = 0;
        bool keyFrame = false;
    };
    // The bytes of a payload that an object still has to get.
    struct GAppending {
        GAsfEXReadStream* stream = nullptr;
        std::int64_t position = 0;
        std::uint64_t left = 0;  // bytes
    };
    struct GResync {
        std::int64_t next = 0;  // position to try
        std::uint64_t triesLeft = 0;
        std::optional<std::int64_t> lonely{};  // the first packet that makes sense, with none behind it that does
    };

    GAsfStep Step();
    GAsfStep BeginPacket();
    void FinishPacket();
    void BeginResync();
    GAsfStep Resync();
    GAsfStep EndResync(std::optional<std::int64_t> found);
    bool OnSameGrid(std::optional<std::int64_t> earlier, std::int64_t later) const;
    bool FollowsOn(std::int64_t position);
    bool TakePayload(const GAsfPayload& payload);
    bool JoinPayload(const GAsfPayload& payload, GAsfEXReadStream& stream);
    void ReadSubPayload();
    void BeginAppending(GAsfEXReadStream& stream, std::int64_t from, std::uint64_t size);
    void AppendBytes();
    void SetComplete(GAsfEXReadStream& stream);
    std::int64_t DataEnd(std::int64_t needed);

    GFileBase& source;
    const GAsfHeader& header;
    GDamageLog& damage;
    const std::atomic<bool>& interrupted;
    GScanWindow window;  // of the packet being read
    GScanWindow probe;   // of a search
    GAsfLimits limits;
    std::int64_t fileSize = 0;  // as last asked for
    bool corrections = false;   // packets of this file have error-correction data
    std::array<GAsfEXReadStream*, kAsfStreamNumbers> selected{};
    std::array<GAsfEXReadStream*, kAsfStreamNumbers> wanted{};

    std::int64_t position = 0;  // of the packet
    std::int64_t packetEnd = 0;
    bool suspect = false;  // a payload of the packet is malformed
    std::optional<GAsfPayloadWalk> walk;
    std::optional<GCompressed> compressed;
    std::optional<GAppending> appending;
    std::optional<GResync> resync;
    bool gaveUp = false;
    std::uint64_t workDone = 0;  // in this call, bytes
    GAsfEXReadStream* complete = nullptr;
};

}  // namespace vex
