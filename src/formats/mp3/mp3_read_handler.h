// Reads raw MPEG audio files of layer III.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "formats/mp3/mp3_syntax.h"
#include "framework/contract/frame_read_handler.h"
#include "io/cache_file.h"

namespace vex {

// The header that a variable bit rate encoder leaves in its first frame.
struct GXingHeader {
    std::uint32_t frames = 0;
    std::uint32_t bytes = 0;
    std::array<std::uint8_t, 100> contents{};  // by per cent of the duration: position in 256ths of `bytes`

    // Where `time` lies, as an offset from the first frame, bytes. `duration` is not 0.
    std::int64_t OffsetOf(REFERENCE_TIME time, REFERENCE_TIME duration) const;
};

class GMp3ReadHandler final : public GFrameReadHandler<GMp3Syntax> {
public:
    explicit GMp3ReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>());
    ~GMp3ReadHandler() override { Close(); }

    // With a Xing header that counts no frames no position can be found.
    bool AcceptsSeek(REFERENCE_TIME) const override { return !xing || duration != 0; }
    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;
    std::vector<GProperty> Properties() const override;

protected:
    GStatus OpenContainer() override;
    void CloseContainer() override;

private:
    GStatus FindFirstFrame();
    bool IsFreeFormat(std::int64_t position);
    void ReadXing();
    GStatus CountFrames(std::int64_t& frameCount);
    std::int64_t OffsetOf(REFERENCE_TIME time) const;

    // Fixed from Open to Close.
    GMp3Header first;
    std::optional<GXingHeader> xing;
};

}  // namespace vex
