// The reader, the typed values and the element cursor.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "formats/mkv/mkv_file.h"
#include "mkv/mkv_sources.h"
#include "support/ebml_builder.h"
#include "support/watched_source.h"

namespace vex::test {
namespace {

using namespace mkv_id;

// Bytes with a cursor on their first element. Without one the test ends with an exception.
struct GWalk {
    explicit GWalk(GEbmlBytes bytes) : reader(OpenInMemory(std::move(bytes))) {}

    GMkvElement First() { return top.FirstChild().value(); }

    GMkvTestReader reader;
    GMkvElement root{reader};
    GMkvElement top = root.FirstChild().value();
};

// Reads a value from `bytes`, which are the data of its element as well.
template <class Variable>
HRESULT ReadValue(Variable& variable, const GEbmlBytes& bytes)
{
    GMkvTestReader reader(OpenInMemory(bytes));
    return variable.Read(GMkvElement(reader));
}

template <class Variable>
void ExpectRead(const std::vector<std::pair<GEbmlBytes, decltype(Variable::value)>>& rows)
{
    for (const auto& [bytes, value] : rows) {
        Variable variable;
        EXPECT_EQ(ReadValue(variable, bytes), S_OK);
        EXPECT_EQ(variable.value, value);
        EXPECT_EQ(variable.valid, 1);
    }
}

template <class Variable>
void ExpectRefused(const std::vector<GEbmlBytes>& rows)
{
    for (const GEbmlBytes& bytes : rows) {
        Variable variable;
        EXPECT_EQ(ReadValue(variable, bytes), E_FAIL) << bytes.size();
        EXPECT_EQ(variable.valid, 0);
    }
}

GEbmlBytes Counting(std::size_t size)
{
    GEbmlBytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256);
    return bytes;
}

TEST(MkvReader, EveryWayThroughTheBufferDeliversTheSameBytes)
{
    const GEbmlBytes bytes = Counting(10'000);
    for (const std::uint32_t capacity : {0u, 1u, 7u, 2048u}) {
        GMkvTestReader reader(OpenInMemory(bytes), capacity);
        for (const std::size_t start : {0u, 5u, 2047u, 2048u, 5000u, 9990u}) {
            for (const std::size_t count : {1u, 3u, 2047u, 2048u, 2049u, 4096u, 4999u}) {
                reader.Seek(static_cast<std::int64_t>(start));
                GEbmlBytes got(count, 0xEE);
                const std::size_t there = std::min(count, bytes.size() - start);
                EXPECT_EQ(reader.Read(got.data(), count), there == count ? S_OK : S_FALSE);
                EXPECT_TRUE(std::equal(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(there),
                                       bytes.begin() + static_cast<std::ptrdiff_t>(start)))
                    << capacity << ' ' << start << ' ' << count;
                EXPECT_EQ(reader.Tell(), static_cast<std::int64_t>(start + there));
            }
        }
    }
}

TEST(MkvReader, AFailedReadIsNeitherTheEndNorServedFromTheBufferLater)
{
    GSourceWatch watch;
    const GEbmlBytes bytes = Counting(8192);
    GMkvTestReader reader(std::make_unique<GWatchedSource>(OpenInMemory(bytes), watch));
    std::uint8_t byte = 0;
    ASSERT_EQ(reader.ReadByte(byte), S_OK);
    watch.failFrom = 0;
    GEbmlBytes got(8192);
    reader.Seek(4000);
    EXPECT_EQ(reader.Read(got.data(), 100), E_FAIL);
    EXPECT_EQ(reader.Read(got.data(), 4192), E_FAIL);
    watch.failFrom = 8192;
    reader.Seek(0);
    EXPECT_EQ(reader.Read(got.data(), 8192), S_OK);
    EXPECT_EQ(got, bytes);
    for (const std::int64_t outside : {std::int64_t{8192}, std::int64_t{-1}, std::int64_t{1} << 60}) {
        reader.Seek(outside);
        EXPECT_EQ(reader.Read(got.data(), 1), S_FALSE);
    }
    reader.Seek(8190);
    got.assign(4, 0);
    EXPECT_EQ(reader.ReadBigEndian(got.data(), 4), S_FALSE);
    EXPECT_EQ(got[0], bytes[8190]) << "only what is complete is reversed";
}

TEST(MkvValues, IdsKeepTheirMarkerBits)
{
    ExpectRead<CID>({{{0xA3}, 0xA3}, {{0x2A, 0xD7, 0xB1}, 0x2AD7B1}, {EbmlId(kSegment), kSegment}});
    ExpectRefused<CID>({{}, {0x42}, {0x18, 0x53, 0x80}, GEbmlBytes(6, 0x0F), GEbmlBytes(6)});
}

TEST(MkvValues, SizesOfEveryWidthAndTheUnknownOnes)
{
    for (unsigned width = 1; width <= 8; ++width) {
        const std::uint64_t unknown = (std::uint64_t{1} << 7 * width) - 1;
        for (const std::uint64_t value : {std::uint64_t{0}, unknown / 3, unknown - 1, unknown}) {
            CLength length;
            EXPECT_EQ(ReadValue(length, Join({EbmlSize(value, width), GEbmlBytes(9)})), S_OK);
            EXPECT_EQ(length.value, value == unknown ? 9 : value) << width;
            EXPECT_EQ(length.unknown, value == unknown) << width;
        }
    }
    ExpectRefused<CLength>({{0x00, 0x81}, {0x40}});
}

TEST(MkvValues, DifferencesAreCentredOnZeroAndNumbersTakeTheirWidthFromTheElement)
{
    ExpectRead<CSignedLength>(
        {{{0xBF}, 0}, {{0x80}, -63}, {{0x7F, 0xFF}, 8192}, {{1, 0, 0, 0, 0, 0, 0, 0}, -((std::int64_t{1} << 55) - 1)}});
    ExpectRead<CUInt>({{{0x12, 0x34, 0x56}, 0x123456u},
                       {{9, 9, 1, 2, 3, 4, 5, 6, 7, 8}, 0x0102030405060708u},  // the last eight count
                       {{}, 0u}});
    ExpectRead<CInt>({{{0xFF}, -1}, {{0xFF, 0x7F}, -129}, {{0x80, 0, 0, 0, 0, 0, 0, 0}, INT64_MIN}, {{}, 0}});
    ExpectRefused<CInt>({GEbmlBytes(9, 1)});
    ExpectRead<CShort>({{{0xFF, 0xFE}, std::int16_t{-2}}});
    ExpectRead<CFloat>({{BigEndian(0x3FC00000, 4), 1.5}, {BigEndian(std::bit_cast<std::uint64_t>(-2.25), 8), -2.25}});
    ExpectRefused<CFloat>({GEbmlBytes(2, 0x40), GEbmlBytes(5, 0x40), GEbmlBytes(10, 0x40)});
}

TEST(MkvValues, AValueThatClaimsMoreThanTheFileIsNotRead)
{
    GWalk walk(LyingElement(kVoid, (std::uint64_t{1} << 56) - 2, {1, 2, 3, 4}));
    CUInt number(7);
    EXPECT_EQ(number.Read(walk.top), E_FAIL);
    EXPECT_EQ(number.value, 7u);
    GMkvBytes bytes;
    EXPECT_EQ(ReadBinary(walk.top, bytes), S_FALSE);
    EXPECT_EQ(bytes, (GMkvBytes{1, 2, 3, 4})) << "bytes are kept as far as they go";
    EXPECT_FALSE(walk.top.NextSibling());
}

TEST(MkvValues, TextEndsWhereItsWriterMeantItTo)
{
    const auto text = [](std::string_view stored) {
        GWalk walk(TextElement(kTitle, stored));
        std::pair<WString, std::string> read;
        ReadUtf8Text(walk.top, read.first);
        ReadAsciiText(walk.top, read.second);
        return read;
    };
    EXPECT_EQ(text({"caf\xC3\xA9\0\0junk", 11}).first, VEX_W("caf\u00E9"));
    EXPECT_EQ(text({"eng\0\0", 5}).second, "eng");
    EXPECT_EQ(text({"a\xFF", 2}).first, VEX_W("a\uFFFD"));
    EXPECT_EQ(text({"\0\0", 2}).second, "");
}

// ---- navigation

TEST(MkvElement, AChildThatRunsBeyondItsParentCannotReadWhatFollowsIt)
{
    // The string claims 100 bytes, its parent has 5, the next parent follows.
    GWalk walk(Join({Element(kSeek, Join({EbmlId(kChapString), EbmlSize(100), {'a', 'b', 'c'}})),
                     Element(kSeek, GEbmlBytes(200, 'x'))}));
    GMkvElement child = walk.First();
    std::string text;
    EXPECT_EQ(ReadAsciiText(child, text), S_FALSE);
    EXPECT_EQ(text, "abc");
    EXPECT_FALSE(child.NextSibling());
    EXPECT_EQ(walk.reader.Damage().Report().count, 1u);
    EXPECT_TRUE(walk.top.NextSibling()) << "the parent's own size still holds";

    GWalk tooShort(Join({Element(kSeek, GEbmlBytes{kVoid}), Element(kTimecode, GEbmlBytes{5})}));
    EXPECT_FALSE(tooShort.top.FirstChild()) << "one byte holds no header";
}

TEST(MkvElement, TheRestOfASegmentIsFoundBehindAnUnreadableHeader)
{
    // An ID of 0x0F, then something that begins as a level-1 ID does, then a Cluster and a Tracks element.
    const GEbmlBytes garbage = {0x0F, 0x11, 0x1F, 0x43, 0xB6, 0x00};
    const GEbmlBytes sound = Join({Cluster(5, {}), Element(kTracks, GEbmlBytes{})});
    GWalk walk(Element(kSegment, Join({VoidElement(3), garbage, sound})));
    GMkvElement child = walk.First();
    ASSERT_TRUE(child.NextSibling());
    EXPECT_EQ(child.id.value, kCluster);
    EXPECT_TRUE(child.NextSibling());
    EXPECT_EQ(child.id.value, kTracks);
    EXPECT_FALSE(child.NextSibling());
    EXPECT_EQ(walk.reader.Damage().Report().bytes, garbage.size());
    EXPECT_EQ(GWalk(Element(kSegment, Join({garbage, sound}))).First().id.value, kCluster);

    GWalk elsewhere(Join({VoidElement(1), {0x00, 0x00}, sound}));
    EXPECT_FALSE(elsewhere.top.NextSibling()) << "outside a Segment it ends the walk";
    EXPECT_FALSE(elsewhere.top.NextSibling()) << "and it stays ended";
}

TEST(MkvElement, ClustersAreSearchedForByTheirIdAlone)
{
    const GEbmlBytes tracks = Element(kTracks, GEbmlBytes{});
    const GEbmlBytes unreadable = Join({{0x00}, tracks, EbmlId(kCluster), {0x00}, GEbmlBytes(6000)});
    GWalk walk(Element(kSegment, {Cluster(1, {}), VoidElement(4), unreadable, Cluster(2, {}), tracks, Cluster(3, {})}));
    GMkvElement cluster = walk.First();
    int steps = 1;
    for (; cluster.StepToCluster(1) == GMkvStep::Searching; ++steps)
        walk.reader.Seek(7);  // others use the reader in between
    EXPECT_GE(steps, 3) << "past the Tracks and the Cluster whose size cannot be read";
    EXPECT_EQ(GMkvFile::ClusterTicks(cluster), 2);
    EXPECT_TRUE(cluster.NextCluster());
    EXPECT_FALSE(cluster.NextCluster());
    EXPECT_EQ(walk.reader.Damage().Report().count, 1u);
}

TEST(MkvElement, SameKindStopsAtAnotherLevelOneElement)
{
    const GEbmlBytes cues = Element(kCues, GEbmlBytes{});
    GWalk walk(Element(kSegment, {cues, VoidElement(2), cues, Cluster(0, {}), cues}));
    GMkvElement element = walk.First();
    EXPECT_TRUE(element.NextSibling(GMkvKind::Same));
    EXPECT_FALSE(element.NextSibling(GMkvKind::Same));
    EXPECT_EQ(element.id.value, kCluster);

    GWalk blocks(Cluster(0, {VoidElement(3), BlockGroup(1, 1, {2}), VoidElement(1)}));
    GMkvElement block = blocks.First();
    block.id.value = kSimpleBlock;
    EXPECT_TRUE(block.NextSibling(GMkvKind::Same)) << "both kinds of Blocks are one";
    EXPECT_FALSE(block.NextSibling(GMkvKind::Same));
}

// ---- unknown sizes

int CountBlocks(GMkvElement& cluster)
{
    int blocks = 0;
    auto child = cluster.FirstChild();
    for (bool more = child.has_value(); more; more = child->NextSibling())
        blocks += IsBlock(child->id.value) ? 1 : 0;
    return blocks;
}

// A live recording: Clusters without sizes, one after the other. In the variants the walk over the blocks comes first,
// is left out, or ends at damage.
TEST(MkvElement, EveryClusterOfALiveRecordingIsFound)
{
    const auto recorded = [](std::uint8_t time, const GEbmlBytes& behind) {
        return UnknownSizeElement(kCluster, Join({UIntElement(kTimecode, time), SimpleBlock(1, 0, 0, {time}), behind}));
    };
    for (const bool walkBlocks : {true, false}) {
        for (const GEbmlBytes& behind : {GEbmlBytes{}, GEbmlBytes{0x00, 0x12, 0x34}, VoidElement(300)}) {
            const GEbmlBytes empty = UnknownSizeElement(kCluster, GEbmlBytes{});
            GWalk walk(UnknownSizeElement(
                kSegment, Join({recorded(1, {}), recorded(2, behind), empty, Cluster(3, {SimpleBlock(1, 0, 0, {3})}),
                                recorded(4, behind), EbmlHeader(), UnknownSizeElement(kSegment, recorded(9, {}))})));
            GMkvElement cluster = walk.First();
            int clusters = 0;
            int blocks = 0;
            do {
                ++clusters;
                EXPECT_EQ(cluster.FirstChild(kTimecode, GMkvScan::Yes).has_value(), clusters != 3)
                    << "the Timecode of the next Cluster is not this one's";
                blocks += walkBlocks ? CountBlocks(cluster) : 0;
            } while (clusters < 20 && cluster.NextCluster());
            const bool damaged = !behind.empty() && behind[0] == 0;
            // Damage in the last Cluster is searched past, into the recording appended to this one.
            EXPECT_EQ(clusters, damaged ? 6 : 5);
            EXPECT_EQ(blocks, !walkBlocks ? 0 : damaged ? 5 : 4);
            EXPECT_EQ(walk.reader.Damage().Report().count, damaged ? 2u : 0u);
        }
    }
}

}  // namespace
}  // namespace vex::test
