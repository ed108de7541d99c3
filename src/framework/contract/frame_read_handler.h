// A read handler for a raw audio file: one stream of frames without a container, timed by counting them.
#pragma once

#include <limits>
#include <span>
#include <vector>

#include "framework/contract/read_handler.h"
#include "media/frame_reader.h"

namespace vex {

// `Syntax` as for GFrameReader, and:
//   kPayloadOffset                             bytes at the start of a frame that are not delivered
//   static REFERENCE_TIME StopTime(const Header&, REFERENCE_TIME start)
template <class Syntax>
class GFrameReadHandler : public GReadHandler {
public:
    REFERENCE_TIME Duration() const override { return duration; }
    std::span<const GStreamInfo> Streams() const override { return infos; }

    GReadStatus ReadPacket(GNextPacket& next) override
    {
        switch (frames.Next()) {
        case GFrameStep::Frame:
            break;
        case GFrameStep::Passed:
            AddDamage(frames.Loss());
            return GReadStatus::Again;
        case GFrameStep::Again:
            return GReadStatus::Again;
        case GFrameStep::End:
            return GReadStatus::End;
        }
        next = {};
        next.size = static_cast<std::uint32_t>(Syntax::FrameSize(frames.FrameHeader()) - Syntax::kPayloadOffset);
        next.keyFrame = true;
        next.start = runningTime;
        next.stop = Syntax::StopTime(frames.FrameHeader(), runningTime);
        runningTime = next.stop;
        return GReadStatus::Packet;
    }

    bool ReadPayload(GPacket2& packet) override
    {
        const std::size_t size = Syntax::FrameSize(frames.FrameHeader());
        const GBytes bytes = frames.FrameBytes();
        if (bytes.size() < size) {
            damage.Add("the frame cannot be read", frames.FramePosition(), size);
            return false;
        }
        packet.data.Assign(bytes.subspan(Syntax::kPayloadOffset));
        return true;
    }

protected:
    GFrameReadHandler(std::unique_ptr<GFileBase> file, const char* cannotOpen)
        : GReadHandler(std::move(file), cannotOpen), frames(*source, Interrupted())
    {
    }

    void CloseContainer() override
    {
        infos.clear();
        duration = 0;
        runningTime = 0;
        dataStart = 0;
        frames.Reset();
    }

    // The one stream.
    void Describe(CMediaType type, std::vector<GProperty> properties = {})
    {
        GStreamInfo info;
        info.properties = std::move(properties);
        info.mediaTypes.push_back(std::move(type));
        info.pinName = VEX_W("Audio Pin");
        infos.push_back(std::move(info));
    }
    GError Aborted() const { return {GErrorKind::Aborted, "the search for frames was interrupted", 0}; }

    // Sums of two still fit 64 bits.
    static constexpr REFERENCE_TIME kMaxTime = std::numeric_limits<std::int64_t>::max() / 4;

    // Reader thread.
    GFrameReader<Syntax> frames;
    REFERENCE_TIME runningTime = 0;  // 100 ns: where the next frame starts

    // Fixed from Open to Close.
    std::vector<GStreamInfo> infos;
    REFERENCE_TIME duration = 0;  // 100 ns
    std::int64_t dataStart = 0;   // file position of the first frame

private:
    void AddDamage(const GFrameLoss& loss)
    {
        damage.Add(loss.cutOff ? "the last frame is cut off" : "no frame here", loss.position, loss.bytes);
    }
};

}  // namespace vex
