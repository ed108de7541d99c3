// Opens Matroska bytes with the handler and reads packets the way the frame does.
#pragma once

#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

#include "formats/mkv/mkv_read_handler.h"
#include "media/codec_guids.h"
#include "support/ebml_builder.h"
#include "support/handler_reading.h"

namespace vex::test {

struct GReadBlock : GReadPacket {
    GMkvBlock block;
    std::vector<GEbmlBytes> frames;

    void Take(const GPacket2& packet)
    {
        GReadPacket::Take(packet);
        block = static_cast<const GMkvBlockPacket&>(packet).block;
        std::size_t offset = 0;
        for (const std::uint32_t size : block.frameSizes) {
            if (size > packet.data.Size() - offset)
                return;  // Fault says so
            const auto frame = packet.data.Span().subspan(offset, size);
            frames.emplace_back(frame.begin(), frame.end());
            offset += size;
        }
    }
    // Undone encodings may make a payload larger than the file, and Blocks may lie before the first Cluster's time.
    const char* Fault(std::uint64_t) const
    {
        if (next.size == 0)
            return "a packet without bytes was announced";
        const auto& sizes = block.frameSizes;
        if (delivered && std::accumulate(sizes.begin(), sizes.end(), std::uint64_t{0}) != payload.size())
            return "the frames are not all there is";
        return sizes.size() > 256 ? "more frames than a lace can have" : TimeFault();
    }
};

class GMkvReading : public GHandlerReading<GMkvReadHandler, GReadBlock> {
public:
    explicit GMkvReading(GMkvBuilder file) : GHandlerReading(file.Build()) {}
    explicit GMkvReading(GEbmlBytes bytes) : GHandlerReading(std::move(bytes)) {}

    void AskMore()
    {
        for (const GStreamInfo& stream : Streams())
            Handler().HeaderPackets(stream.number, CMediaType(MEDIATYPE_Audio, MEDIASUBTYPE_Vorbis));
    }
    const char* SeekFault(REFERENCE_TIME time, GSeekMode mode, REFERENCE_TIME reached) const
    {
        const bool behind = mode == GSeekMode::KeyFrame && reached < time;
        return behind ? "a key-frame seek lands before its target" : nullptr;
    }
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

// Clusters of two pictures each, none with a size.
inline GEbmlBytes LiveFile()
{
    using namespace mkv_id;
    const auto cluster = [](std::uint64_t time, std::uint8_t mark) {
        return UnknownSizeElement(kCluster, Join({UIntElement(kTimecode, time), Picture(0, mark, kKeyFlag),
                                                  SimpleBlock(kVideoTrack, 1, 0, GEbmlBytes(100, ++mark))}));
    };
    const GEbmlBytes tags = Element(kTags, GEbmlBytes(5));
    return ThreeTracks()
        .Add(cluster(0, 1))
        .Add(UnknownSizeElement(kCluster, {}))
        .Add(cluster(40, 3))
        .Add(tags)
        .Add(cluster(80, 5))
        .Build(GMkvBuilder::GSegmentSize::Unknown);
}

// One of everything that is read, in a file short enough to damage every byte of.
inline GEbmlBytes SmallFile()
{
    using namespace mkv_id;
    const GEbmlBytes atom = Element(
        kChapterAtom, {UIntElement(kChapterTimeStart, 1), Element(kChapterDisplay, {TextElement(kChapString, "a")})});
    const GEbmlBytes attached =
        Element(kAttachedFile, {TextElement(kFileName, "f"), Element(kFileData, GEbmlBytes(4))});
    const GEbmlBytes info = Join({FloatElement(kDuration, 100), Element(kDateUtc, BigEndian(9, 8))});
    const GEbmlBytes video =
        Join({Element(kVideo, {UIntElement(kPixelWidth, 16)}), ContentEncodings(GMkvContentEncoding::kZlib)});
    const GEbmlBytes audio = Join({Element(kAudio, {FloatElement(kSamplingFrequency, 48'000)}),
                                   ContentEncodings(GMkvContentEncoding::kHeaderStripping, {7})});
    return ThreeTracks(info, video, audio)
        .AddSeekHead({kTracks, kCues, kChapters})
        .Add(Cluster(0, {SimpleBlock(kVideoTrack, 0, kKeyFlag, ZlibCompressed({1, 2, 3})),
                         Sound(0, {2, 1, 2, 1, 2, 2, 3, 3}, kXiphLace),
                         BlockGroup(kTextTrack, 1, {'h', 'i'}, UIntElement(kBlockDuration, 9))}))
        .Add(UnknownSizeElement(kCluster, Join({UIntElement(kTimecode, 40), DependentGroup(0, ZlibCompressed({4})),
                                                Sound(1, {2, 0x81, 0xC0, 1, 2, 2, 3}, kEbmlLace)})))
        .Add(Cluster(80, {Sound(1, {1, 1, 2}, kFixedLace), FlaggedGroup(0, ZlibCompressed({5}), kKeyFlag)}))
        .AddCues({{0, kVideoTrack, 0}, {80, kVideoTrack, 2}})
        .Add(Element(kChapters, {Element(kEditionEntry, {atom})}))
        .Add(Element(kAttachments, {attached}))
        .Build();
}

}  // namespace vex::test
