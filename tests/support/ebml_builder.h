// Writes EBML elements and small Matroska files in a few readable lines.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/mkv/mkv_ids.h"
#include "support/bytes.h"

namespace vex::test {

using GEbmlBytes = GTestBytes;

inline GEbmlBytes EbmlId(std::uint32_t id)
{
    return BigEndian(id, id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1);
}

// A coded number of `width` bytes, or of as few as hold it without looking like "unknown".
inline GEbmlBytes EbmlSize(std::uint64_t value, unsigned width = 0)
{
    if (width == 0)
        for (width = 1; width < 8 && value >= (std::uint64_t{1} << 7 * width) - 1;)
            ++width;
    GEbmlBytes out = BigEndian(value, width);
    out[0] = static_cast<std::uint8_t>(out[0] | 0x80u >> (width - 1));
    return out;
}

inline GEbmlBytes UnknownEbmlSize() { return EbmlSize((std::uint64_t{1} << 56) - 1, 8); }

inline GEbmlBytes Element(std::uint32_t id, const GEbmlBytes& data)
{
    return Join({EbmlId(id), EbmlSize(data.size()), data});
}
inline GEbmlBytes Element(std::uint32_t id, std::initializer_list<GEbmlBytes> children)
{
    return Element(id, Join(children));
}
// One whose header claims another size than it has.
inline GEbmlBytes LyingElement(std::uint32_t id, std::uint64_t claimed, const GEbmlBytes& data)
{
    return Join({EbmlId(id), EbmlSize(claimed, 8), data});
}
inline GEbmlBytes UnknownSizeElement(std::uint32_t id, const GEbmlBytes& data)
{
    return Join({EbmlId(id), UnknownEbmlSize(), data});
}

// As few bytes as hold the value; `width` for more.
inline GEbmlBytes UIntElement(std::uint32_t id, std::uint64_t value, unsigned width = 1)
{
    while (width < 8 && value >> 8 * width != 0)
        ++width;
    return Element(id, BigEndian(value, width));
}
inline GEbmlBytes FloatElement(std::uint32_t id, double value)
{
    return Element(id, BigEndian(std::bit_cast<std::uint64_t>(value), 8));
}
inline GEbmlBytes TextElement(std::uint32_t id, std::string_view text)
{
    return Element(id, GEbmlBytes(text.begin(), text.end()));
}
inline GEbmlBytes VoidElement(std::size_t dataSize) { return Element(mkv_id::kVoid, GEbmlBytes(dataSize)); }

// Bits of a Block's flags.
inline constexpr std::uint8_t kKeyFlag = 0x80;
inline constexpr std::uint8_t kXiphLace = 0x02;
inline constexpr std::uint8_t kFixedLace = 0x04;
inline constexpr std::uint8_t kEbmlLace = 0x06;

// The inside of a Block: track, timecode relative to the Cluster, flags, then the frame or the lace.
inline GEbmlBytes BlockData(std::uint64_t track, int timecode, std::uint8_t flags, const GEbmlBytes& data)
{
    return Join({EbmlSize(track), BigEndian(static_cast<std::uint16_t>(timecode), 2), {flags}, data});
}
inline GEbmlBytes SimpleBlock(std::uint64_t track, int timecode, std::uint8_t flags, const GEbmlBytes& data)
{
    return Element(mkv_id::kSimpleBlock, BlockData(track, timecode, flags, data));
}
inline GEbmlBytes BlockGroup(std::uint64_t track, int timecode, const GEbmlBytes& data, const GEbmlBytes& others = {},
                             std::uint8_t flags = 0)
{
    return Element(mkv_id::kBlockGroup, {Element(mkv_id::kBlock, BlockData(track, timecode, flags, data)), others});
}
inline GEbmlBytes Cluster(std::uint64_t timecode, std::initializer_list<GEbmlBytes> blocks)
{
    return Element(mkv_id::kCluster, {UIntElement(mkv_id::kTimecode, timecode), Join(blocks)});
}

inline GEbmlBytes EbmlHeader() { return Element(mkv_id::kEbml, {TextElement(mkv_id::kDocType, "matroska")}); }

inline GEbmlBytes TrackEntry(std::uint64_t number, std::uint64_t type, std::string_view codec,
                             const GEbmlBytes& others = {})
{
    return Element(mkv_id::kTrackEntry,
                   {UIntElement(mkv_id::kTrackNumber, number), UIntElement(mkv_id::kTrackType, type),
                    TextElement(mkv_id::kCodecId, codec), others});
}

// One content encoding of a track, and data as the zlib one stores them.
inline GEbmlBytes ContentEncodings(std::uint64_t algorithm, const GEbmlBytes& settings = {}, std::uint64_t scope = 1)
{
    using namespace mkv_id;
    return Element(
        kContentEncodings,
        {Element(kContentEncoding, {UIntElement(kContentEncodingScope, scope),
                                    Element(kContentCompression, {UIntElement(kContentCompAlgo, algorithm),
                                                                  Element(kContentCompSettings, settings)})})});
}
inline GEbmlBytes ZlibCompressed(const GEbmlBytes& plain)
{
    uLongf size = compressBound(static_cast<uLong>(plain.size()));
    GEbmlBytes out(size);
    if (compress(out.data(), &size, plain.data(), static_cast<uLong>(plain.size())) != Z_OK)
        throw std::runtime_error("zlib refused to compress");
    out.resize(size);
    return out;
}

// A whole file. The children of the Segment stand in the order they are added in; a SeekHead and Cues may name elements
// that come later.
class GMkvBuilder {
public:
    struct GCue {
        std::uint64_t time;  // ticks
        std::uint64_t track;
        std::size_t cluster;  // 0: the first Cluster
    };
    // The n-th element of an ID, from 0 on.
    struct GListed {
        GListed(std::uint32_t listedId, std::size_t place = 0) : id(listedId), n(place) {}
        std::uint32_t id;
        std::size_t n;
    };
    enum class GSegmentSize { Known, Unknown };

    GMkvBuilder& Add(GEbmlBytes element)
    {
        children.push_back([element = std::move(element)](const GMkvBuilder&) { return element; });
        return *this;
    }
    GMkvBuilder& AddInfo(const GEbmlBytes& others = {})
    {
        return Add(Element(mkv_id::kInfo, {TextElement(mkv_id::kMuxingApp, "builder"), others}));
    }
    GMkvBuilder& AddTracks(std::initializer_list<GEbmlBytes> entries) { return Add(Element(mkv_id::kTracks, entries)); }
    // They must be in the file.
    GMkvBuilder& AddSeekHead(std::vector<GListed> listed)
    {
        children.push_back([listed = std::move(listed)](const GMkvBuilder& builder) {
            GEbmlBytes entries;
            for (const GListed& at : listed)
                entries = Join({entries, SeekEntry(at.id, builder.PositionOf(at.id, at.n))});
            return Element(mkv_id::kSeekHead, entries);
        });
        return *this;
    }
    GMkvBuilder& AddCues(std::vector<GCue> cues)
    {
        children.push_back([cues = std::move(cues)](const GMkvBuilder& builder) {
            GEbmlBytes points;
            for (const GCue& cue : cues)
                points = Join({points, CuePoint(cue, builder.PositionOf(mkv_id::kCluster, cue.cluster))});
            return Element(mkv_id::kCues, points);
        });
        return *this;
    }

    // A position relative to the Segment's data, stored in eight bytes whatever its value.
    static GEbmlBytes SeekEntry(std::uint32_t id, std::uint64_t position)
    {
        return Element(mkv_id::kSeek,
                       {Element(mkv_id::kSeekId, EbmlId(id)), UIntElement(mkv_id::kSeekPosition, position, 8)});
    }
    static GEbmlBytes CuePoint(const GCue& cue, std::uint64_t position)
    {
        return Element(mkv_id::kCuePoint,
                       {UIntElement(mkv_id::kCueTime, cue.time),
                        Element(mkv_id::kCueTrackPositions, {UIntElement(mkv_id::kCueTrack, cue.track),
                                                             UIntElement(mkv_id::kCueClusterPosition, position, 8)})});
    }

    GEbmlBytes Build(GSegmentSize segmentSize = GSegmentSize::Known)
    {
        GEbmlBytes body;
        for (int pass = 0; pass < 2; ++pass) {  // the first one finds the positions, which change no size
            body.clear();
            decltype(positions) found;
            for (const auto& child : children) {
                const GEbmlBytes bytes = child(*this);
                found.emplace_back(
                    GEbmlBytes(bytes.begin(), bytes.begin() + std::min<std::ptrdiff_t>(4, std::ssize(bytes))),
                    body.size());
                body.insert(body.end(), bytes.begin(), bytes.end());
            }
            positions = std::move(found);
        }
        return Join({EbmlHeader(), EbmlId(mkv_id::kSegment),
                     segmentSize == GSegmentSize::Known ? EbmlSize(body.size(), 8) : UnknownEbmlSize(), body});
    }

    // Of the n-th child with a four-byte ID, relative to the Segment's data; known after Build. 0 when there is none.
    std::uint64_t PositionOf(std::uint32_t id, std::size_t n) const
    {
        for (const auto& [foundId, position] : positions)
            if (foundId == EbmlId(id) && n-- == 0)
                return position;
        return 0;
    }

private:
    std::vector<std::function<GEbmlBytes(const GMkvBuilder&)>> children;
    std::vector<std::pair<GEbmlBytes, std::uint64_t>> positions;  // what a child begins with, where it stands
};

// Absolute position of the Segment's data in what Build made.
inline std::size_t SegmentDataPos() { return EbmlHeader().size() + 4 + 8; }

}  // namespace vex::test
