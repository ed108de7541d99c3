// Walks the tags of an FLV file: finds the formats and the duration, validates each tag against the next one, picks up
// again behind damage, and seeks by estimate.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <span>

#include "formats/flv/flv_codecs.h"
#include "formats/flv/flv_tag.h"
#include "framework/contract/damage_log.h"
#include "framework/contract/packet.h"
#include "io/file_base.h"
#include "io/result.h"
#include "io/scan_window.h"

namespace vex {

// Where a seek ended.
enum class GFlvLanding : std::uint8_t {
    Error,           // nothing was moved
    FirstTag,        // time 0
    KeyFrameBefore,  // the last video key frame before the target
    EndOfFile,       // nothing at or after the target; the reader stays there
    AudioAfter,      // without video: the first audio tag at or after the target
    KeyFrameAfter,   // no key frame before the target: the first one at or after it
};

enum class GFlvStep : std::uint8_t {
    Filled,  // `tag` is the tag at the position
    Again,   // the search behind a damaged tag goes on with the next call
    Failed,  // no tag: the end of the file, or of what can be resynchronised
};

// One thread at a time. The source, the log and the flag outlive the reader.
class GFlvReader {
public:
    // `interrupted` ends long searches.
    GFlvReader(GFileBase& byteSource, GDamageLog& damageLog, const std::atomic<bool>& interrupted);

    // The source is open. Reads the header, the formats of the first tags, the duration and the first tag.
    GStatus Open();

    // Reads and validates the tag at the current position into `tag`. 1, or 0 at the end of the file and where no tag
    // is found; then neither the position nor `tag` has changed.
    int FillFlvTag();
    // The same in steps of some milliseconds, reading ahead for the payloads.
    GFlvStep FillStep() { return Fill(GAccess::ReadAhead); }
    // Moves to the tag behind the current one.
    void GotoNextTag() { position = tag.nextPos; }
    // Positions the reader for a time in 100 ns; the next fill gives the tag landed on.
    GFlvLanding SeekFlvTag(REFERENCE_TIME target);
    // Reads the payload of `wanted` into `data`, whose size becomes what could be read.
    void ReadPayload(const FlvTag& wanted, GBuffer& data);

    // Fixed from Open on.
    std::array<std::uint8_t, kFlvHeaderSize> fileHeader{};
    std::optional<GFlvAudioFormat> audioFormat;
    std::optional<GFlvVideoFormat> videoFormat;
    GFlvUnsupported unsupported;  // met by the probe
    std::uint32_t hasAudio = 0;
    std::uint32_t hasVideo = 0;
    std::uint32_t probedTags = 0;
    REFERENCE_TIME duration = 0;  // 100 ns; 0 when the last tag was not found
    std::int64_t fileSize = 0;    // bytes
    std::int64_t firstTagPos = 0;

    FlvTag tag;

private:
    enum class GAccess : std::uint8_t {
        Headers,    // little beyond the tag headers is going to be read
        ReadAhead,  // the payloads too
    };

    // A search for the unit behind a tag whose size cannot be trusted.
    struct GResync {
        bool active = false;
        bool cutOff = false;     // the declared payload reaches beyond the file
        bool confirmed = false;  // the payload has its size behind it: what follows it is damaged
        std::int64_t from = 0;   // next window to look at
        std::int64_t until = 0;  // no window from here on
        std::int64_t end = 0;    // of the file when the search began: it may grow meanwhile
    };

    // Opening (flv_reader.cpp).
    GStatus ReadHeader();
    void Probe();
    bool ProbeTag(std::int64_t& unitPos);
    void ProbeFormat(const GFlvUnit& probed, std::int64_t payloadPos);
    void FindDuration();
    bool IsPrecededByTag(std::int64_t unitPos, const GFlvUnit& found);

    // Tags (flv_reader.cpp).
    // At the first tag, knowing no more of the sizes than at the start: every reading of the file gives the same
    // packets.
    void Restart()
    {
        position = firstTagPos;
        resync.active = false;
        sizesLie = false;
    }
    GFlvStep Fill(GAccess access);
    GFlvStep BeginResync(GBytes next);
    GFlvStep Resync();
    GFlvStep EndResync(std::int64_t found);
    GFlvStep FinishTag(std::int64_t dataSize, std::int64_t nextPos);
    bool LeadsOn(std::int64_t unitPos, const GFlvUnit& found);
    bool EndsFile(GBytes rest, std::int64_t end, std::uint32_t dataSize);
    GBytes Peek(std::int64_t from, std::size_t count);

    // Seeking (flv_seek.cpp).
    struct GHit {
        std::int64_t unitPos = 0;
        REFERENCE_TIME time = 0;
    };
    GFlvLanding Search(REFERENCE_TIME target);
    std::optional<GHit> FindTag(std::int64_t from, std::int64_t until);
    std::int64_t FindStart(std::int64_t estimate, REFERENCE_TIME target);
    std::optional<std::int64_t> Walk(std::int64_t from, std::int64_t until, REFERENCE_TIME target);
    std::optional<std::int64_t> KeyFrameBefore(std::int64_t until, REFERENCE_TIME target);
    GFlvLanding WalkOn(REFERENCE_TIME target);
    bool IsInterrupted() const { return interrupt.load(std::memory_order_acquire); }

    GFileBase& source;
    GDamageLog& damage;
    const std::atomic<bool>& interrupt;
    GScanWindow window;
    std::int64_t position = 0;  // of the next unit

    // The tag being filled: its unit, and the bytes its payload begins with.
    GFlvUnit unit;
    std::array<std::uint8_t, kFlvCodecHeaderMax> start{};
    std::size_t startSize = 0;
    GResync resync;
    bool sizesLie = false;  // a valid tag was met whose PreviousTagSize is neither right nor 0
    std::array<std::uint8_t, kFlvUnitSize + kFlvCodecHeaderMax> scratch{};  // what Peek returns

    int checksLeft = 0;  // candidates that the seek in progress may still follow
};

}  // namespace vex
