// Reads raw AAC files made of ADTS frames (ISO/IEC 13818-7, 14496-3).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "framework/contract/frame_read_handler.h"
#include "io/cache_file.h"
#include "media/adts_header.h"

namespace vex {

struct GAdtsSyntax {
    using Header = GAdtsHeader;
    static constexpr std::size_t kHeaderSize = kAdtsHeaderSize;
    static constexpr std::size_t kMaxFrameSize = 8191;
    static constexpr std::size_t kPayloadOffset = kAdtsHeaderSize;  // a CRC stays with the payload
    static constexpr bool kNeedsSuccessor = true;
    static constexpr bool kLastStandsAlone = true;
    static constexpr const char* kNothingFound = "AAC Handler Error, Can't Read AAC File Header[2]!\n";
    static constexpr const char* kNoHeader = kNothingFound;
    static constexpr const char* kNoNextHeader = "AAC Header Error, Can't Read AAC File Header[3]!\n";

    static constexpr unsigned kRates = 12;  // sampling frequency indices taken
    static constexpr double kSamplesPerFrame = 1024;

    static std::optional<GAdtsHeader> Decode(GBytes bytes)
    {
        const auto header = ReadAdtsHeader(bytes);
        return header && header->rateIndex < kRates && header->frameLength >= kHeaderSize ? header : std::nullopt;
    }
    static std::size_t FrameSize(const GAdtsHeader& header) { return header.frameLength; }
    static bool MayBegin(GBytes bytes)
    {
        return !bytes.empty() && bytes[0] == 0xFF && (bytes.size() < 2 || (bytes[1] & 0xF0) == 0xF0);
    }
    // Truncated to 100 ns at every frame.
    static REFERENCE_TIME StopTime(const GAdtsHeader& header, REFERENCE_TIME start)
    {
        const double length = static_cast<double>(kUnitsPerSecond) / (header.sampleRate / kSamplesPerFrame);
        return static_cast<REFERENCE_TIME>(static_cast<double>(start) + length);
    }
};

class GAacReadHandler final : public GFrameReadHandler<GAdtsSyntax> {
public:
    explicit GAacReadHandler(std::unique_ptr<GFileBase> file = std::make_unique<GCacheFile>());
    ~GAacReadHandler() override { Close(); }

    std::optional<REFERENCE_TIME> Seek(REFERENCE_TIME time, GSeekMode mode) override;

protected:
    GStatus OpenContainer() override;

private:
    GStatus FindFirstFrame();
    // The first block of 10 bytes that a frame begins in; NotFound with the position reached.
    GScanResult FindFirstBlock(std::int64_t& behindTags, bool& adif);
    GStatus CountFrames(std::int64_t& frameCount);

    std::int64_t dataLength = 0;  // bytes from the first frame on
};

}  // namespace vex
