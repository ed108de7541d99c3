// Opens Matroska bytes with the handler and reads packets the way the frame does.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "formats/mkv/mkv_read_handler.h"
#include "support/ebml_builder.h"
#include "support/watched_source.h"

namespace vex::test {

inline constexpr REFERENCE_TIME kMillisecond = 10'000;  // 100 ns

struct GReadBlock {
    GNextPacket next;
    GMkvBlock block;
    bool delivered = false;  // ReadPayload said so
    std::vector<GEbmlBytes> frames;
};

class GMkvReading {
public:
    explicit GMkvReading(GMkvBuilder file) : GMkvReading(file.Build()) {}
    explicit GMkvReading(GEbmlBytes bytes) : opened(handler.Open(Watched(std::move(bytes))).Ok()) {}

    bool Opened() const { return opened; }

    // The next packet, its payload left alone; nothing at the end.
    std::optional<GNextPacket> Announced()
    {
        GNextPacket next;
        GReadStatus status = GReadStatus::NotYet;
        while (status == GReadStatus::NotYet) {
            ++calls;
            status = handler.ReadPacket(next);
        }
        if (status == GReadStatus::End)
            return std::nullopt;
        return next;
    }
    std::optional<GReadBlock> Read()
    {
        const auto next = Announced();
        if (!next)
            return std::nullopt;
        packet.Recycle();
        GReadBlock read{*next, {}, handler.ReadPayload(packet), {}};
        read.block = packet.block;
        std::size_t offset = 0;
        for (const std::uint32_t size : packet.block.frameSizes) {
            const auto frame = packet.data.Span().subspan(offset, size);
            read.frames.emplace_back(frame.begin(), frame.end());
            offset += size;
        }
        EXPECT_EQ(offset, packet.data.Size()) << "the frames are all there is";
        return read;
    }
    std::vector<GReadBlock> ReadAll()
    {
        std::vector<GReadBlock> all;
        while (auto read = Read())
            all.push_back(std::move(*read));
        return all;
    }

    GMkvReadHandler& Handler() { return handler; }
    GSourceWatch& Watch() { return watch; }
    std::size_t Calls() const { return calls; }  // of ReadPacket

private:
    std::unique_ptr<GFileBase> Watched(GEbmlBytes bytes)
    {
        return std::make_unique<GWatchedSource>(OpenInMemory(std::move(bytes)), watch);
    }

    GSourceWatch watch;
    GMkvReadHandler handler;
    const bool opened;
    GMkvBlockPacket packet;
    std::size_t calls = 0;
};

inline std::vector<GReadBlock> ReadFile(const GMkvBuilder& file) { return GMkvReading(file).ReadAll(); }

// The first byte of every frame in order: who came when.
inline std::vector<int> Marks(const std::vector<GReadBlock>& blocks)
{
    std::vector<int> marks;
    for (const GReadBlock& block : blocks)
        for (const GEbmlBytes& frame : block.frames)
            marks.push_back(frame.empty() ? -1 : frame.front());
    return marks;
}

inline constexpr std::uint64_t kVideoTrack = 1;
inline constexpr std::uint64_t kAudioTrack = 2;
inline constexpr std::uint64_t kTextTrack = 3;
inline constexpr std::uint64_t kUnknownTrack = 4;  // described by nobody

// Blocks with a mark by which they are known again.
inline GEbmlBytes Picture(int timecode, std::uint8_t mark, std::uint8_t flags = 0)
{
    return SimpleBlock(kVideoTrack, timecode, flags, {mark});
}
inline GEbmlBytes Sound(int timecode, const GEbmlBytes& data, std::uint8_t flags = kKeyFlag)
{
    return SimpleBlock(kAudioTrack, timecode, flags, data);
}

// A file's head with one track of each kind.
inline GMkvBuilder ThreeTracks(const GEbmlBytes& infoElements = {}, const GEbmlBytes& videoElements = {},
                               const GEbmlBytes& audioElements = {})
{
    return GMkvBuilder()
        .AddInfo(infoElements)
        .AddTracks({TrackEntry(kVideoTrack, GMkvTrack::kVideo, "V_VP8", videoElements),
                    TrackEntry(kAudioTrack, GMkvTrack::kAudio, "A_AC3", audioElements),
                    TrackEntry(kTextTrack, GMkvTrack::kSubtitle, "S_TEXT/UTF8"),
                    TrackEntry(kUnknownTrack, GMkvTrack::kVideo, "V_NOBODY/KNOWS")});
}

// A BlockGroup of a picture that refers to an earlier one, and one without a reference, whatever its flags say.
inline GEbmlBytes DependentGroup(int timecode, const GEbmlBytes& data, std::uint8_t flags = 0)
{
    return BlockGroup(kVideoTrack, timecode, data, UIntElement(mkv_id::kReferenceBlock, 0xFF), flags);
}
inline GEbmlBytes FlaggedGroup(int timecode, const GEbmlBytes& data, std::uint8_t flags)
{
    return BlockGroup(kVideoTrack, timecode, data, {}, flags);
}

}  // namespace vex::test
