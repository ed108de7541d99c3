// The reader, the typed values and the element cursor.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "formats/mkv/mkv_element.h"
#include "support/ebml_builder.h"
#include "support/watched_source.h"

namespace vex::test {
namespace {

using namespace mkv_id;

std::unique_ptr<GMkvReader> ReaderOver(GEbmlBytes bytes, std::uint32_t capacity = GMkvReader::kDefaultBufferCapacity)
{
    return std::make_unique<GMkvReader>(OpenInMemory(std::move(bytes)), capacity);
}

// Reads a value that is alone in its element.
template <class Variable>
HRESULT ReadAlone(Variable& variable, const GEbmlBytes& data)
{
    const auto reader = ReaderOver(Element(kVoid, data));
    GMkvElement root(*reader);
    const auto element = root.FirstChild();
    return element ? variable.Read(*element) : E_UNEXPECTED;
}

// Reads a value from the bytes alone.
template <class Variable>
HRESULT ReadBytes(Variable& variable, const GEbmlBytes& bytes)
{
    const auto reader = ReaderOver(bytes);
    const GMkvElement root(*reader);
    return variable.Read(root);
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
        const auto reader = ReaderOver(bytes, capacity);
        for (const std::size_t start : {0u, 5u, 2047u, 2048u, 5000u, 9990u}) {
            for (const std::size_t count : {1u, 3u, 2047u, 2048u, 2049u, 4096u, 4999u}) {
                reader->Seek(static_cast<std::int64_t>(start));
                GEbmlBytes got(count, 0xEE);
                const std::size_t there = std::min(count, bytes.size() - start);
                EXPECT_EQ(reader->Read(got.data(), count), there == count ? S_OK : S_FALSE);
                EXPECT_TRUE(std::equal(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(there),
                                       bytes.begin() + static_cast<std::ptrdiff_t>(start)))
                    << capacity << ' ' << start << ' ' << count;
                EXPECT_EQ(reader->Tell(), static_cast<std::int64_t>(start + there));
            }
        }
    }
}

TEST(MkvReader, AFailedReadIsNeitherTheEndNorServedFromTheBufferLater)
{
    GSourceWatch watch;
    const GEbmlBytes bytes = Counting(8192);
    GMkvReader reader(std::make_unique<GWatchedSource>(OpenInMemory(bytes), watch));
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
}

TEST(MkvReader, BigEndianReversesOnlyWhatIsComplete)
{
    const auto reader = ReaderOver({1, 2, 3, 4, 5, 6});
    std::uint32_t value = 0;
    EXPECT_EQ(reader->ReadBigEndian(&value, 4), S_OK);
    EXPECT_EQ(value, 0x01020304u);
    std::uint8_t rest[4] = {};
    EXPECT_EQ(reader->ReadBigEndian(rest, 4), S_FALSE);
    EXPECT_EQ(rest[0], 5);
    EXPECT_EQ(rest[1], 6);
}

TEST(MkvValues, IdsKeepTheirMarkerBits)
{
    const struct {
        GEbmlBytes bytes;
        std::uint32_t id;
    } rows[] = {{{0xA3}, 0xA3}, {{0x42, 0x86}, 0x4286}, {{0x2A, 0xD7, 0xB1}, 0x2AD7B1}, {EbmlId(kSegment), kSegment}};
    for (const auto& row : rows) {
        CID id;
        EXPECT_EQ(ReadBytes(id, row.bytes), S_OK);
        EXPECT_EQ(id.value, row.id);
        EXPECT_EQ(id.valid, 1);
        GEbmlBytes cut = row.bytes;
        cut.pop_back();
        EXPECT_EQ(ReadBytes(id, cut), E_FAIL);
    }
    for (const std::uint8_t first : GEbmlBytes{0x0F, 0x08, 0x01, 0x00}) {
        CID id;
        EXPECT_EQ(ReadBytes(id, {first, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), E_FAIL);
        EXPECT_EQ(id.valid, 0);
    }
}

TEST(MkvValues, SizesOfEveryWidthAndTheUnknownOnes)
{
    for (unsigned width = 1; width <= 8; ++width) {
        const std::uint64_t unknown = (std::uint64_t{1} << 7 * width) - 1;
        for (const std::uint64_t value : {std::uint64_t{0}, unknown / 3, unknown - 1}) {
            CLength length;
            EXPECT_EQ(ReadBytes(length, EbmlSize(value, width)), S_OK);
            EXPECT_EQ(length.value, value) << width;
            EXPECT_FALSE(length.unknown);
        }
        CLength length;
        EXPECT_EQ(ReadBytes(length, Join({EbmlSize(unknown, width), GEbmlBytes(9)})), S_OK);
        EXPECT_EQ(length.value, 9u);
        EXPECT_TRUE(length.unknown);
    }
    CLength length;
    EXPECT_EQ(ReadBytes(length, {0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}), S_OK);
    EXPECT_EQ(length.value, (std::uint64_t{1} << 56) - 2);
    EXPECT_EQ(ReadBytes(length, {0x00, 0x81}), E_FAIL);
    EXPECT_EQ(ReadBytes(length, {0x40}), E_FAIL);
}

TEST(MkvValues, DifferencesAreCentredOnZero)
{
    const struct {
        GEbmlBytes bytes;
        std::int64_t value;
    } rows[] = {{{0xBF}, 0},          {{0x80}, -63},
                {{0xFF}, 64},         {{0xC0}, 1},
                {{0x5F, 0xFF}, 0},    {{0x40, 0x00}, -8191},
                {{0x7F, 0xFF}, 8192}, {{1, 0, 0, 0, 0, 0, 0, 0}, -((std::int64_t{1} << 55) - 1)}};
    for (const auto& row : rows) {
        CSignedLength length;
        EXPECT_EQ(ReadBytes(length, row.bytes), S_OK);
        EXPECT_EQ(length.value, row.value);
    }
}

TEST(MkvValues, NumbersTakeTheirWidthFromTheElement)
{
    CUInt number;
    EXPECT_EQ(ReadAlone(number, {0x12, 0x34, 0x56}), S_OK);
    EXPECT_EQ(number.value, 0x123456u);
    EXPECT_EQ(ReadAlone(number, {9, 9, 1, 2, 3, 4, 5, 6, 7, 8}), S_OK);
    EXPECT_EQ(number.value, 0x0102030405060708u) << "of a longer element the last eight bytes count";
    EXPECT_EQ(ReadBytes(number, {}), S_OK);
    EXPECT_EQ(number.value, 0u);

    const struct {
        GEbmlBytes bytes;
        std::int64_t value;
    } rows[] = {{{0xFF}, -1}, {{0x7F}, 127}, {{0xFF, 0x7F}, -129}, {{0x80, 0, 0, 0, 0, 0, 0, 0}, INT64_MIN}};
    for (const auto& row : rows) {
        CInt signedNumber;
        EXPECT_EQ(ReadAlone(signedNumber, row.bytes), S_OK);
        EXPECT_EQ(signedNumber.value, row.value);
    }
    CInt tooLong(5);
    EXPECT_EQ(ReadAlone(tooLong, GEbmlBytes(9, 1)), E_FAIL);
    EXPECT_EQ(tooLong.value, 5);
    CInt none(5);
    EXPECT_EQ(ReadBytes(none, {}), S_OK);
    EXPECT_EQ(none.value, 0);
    CShort pair;
    EXPECT_EQ(ReadBytes(pair, {0xFF, 0xFE}), S_OK);
    EXPECT_EQ(pair.value, -2);
}

TEST(MkvValues, FloatsOfAnyOtherSizeKeepTheirDefault)
{
    CFloat number;
    EXPECT_EQ(ReadAlone(number, BigEndian(0x3FC00000, 4)), S_OK);
    EXPECT_EQ(number.value, 1.5);
    EXPECT_EQ(ReadAlone(number, BigEndian(std::bit_cast<std::uint64_t>(-2.25), 8)), S_OK);
    EXPECT_EQ(number.value, -2.25);
    for (const std::size_t size : {1u, 2u, 5u, 10u}) {
        CFloat other;
        EXPECT_EQ(ReadAlone(other, GEbmlBytes(size, 0x40)), E_FAIL);
        EXPECT_EQ(other.value, 0.0);
        EXPECT_EQ(other.valid, 0);
    }
}

TEST(MkvValues, AValueThatClaimsMoreThanTheFileIsNotRead)
{
    const auto reader = ReaderOver(LyingElement(kVoid, (std::uint64_t{1} << 56) - 2, {1, 2, 3, 4}));
    GMkvElement root(*reader);
    auto element = root.FirstChild();
    ASSERT_TRUE(element);
    CUInt number(7);
    EXPECT_EQ(number.Read(*element), E_FAIL);
    EXPECT_EQ(number.value, 7u);
    GMkvBytes bytes;
    EXPECT_EQ(ReadBinary(*element, bytes), S_FALSE);
    EXPECT_EQ(bytes, (GMkvBytes{1, 2, 3, 4})) << "bytes are kept as far as they go";
    EXPECT_FALSE(element->NextSibling());
}

TEST(MkvValues, TextEndsWhereItsWriterMeantItTo)
{
    const auto text = [](std::string_view stored) {
        const auto reader = ReaderOver(TextElement(kTitle, stored));
        GMkvElement root(*reader);
        const auto element = root.FirstChild();
        std::pair<WString, std::string> read;
        ReadUtf8Text(*element, read.first);
        ReadAsciiText(*element, read.second);
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
    const auto reader = ReaderOver(Join({Element(kSeek, Join({EbmlId(kChapString), EbmlSize(100), {'a', 'b', 'c'}})),
                                         Element(kSeek, GEbmlBytes(200, 'x'))}));
    GMkvElement root(*reader);
    auto parent = root.FirstChild();
    ASSERT_TRUE(parent);
    auto child = parent->FirstChild();
    ASSERT_TRUE(child);
    std::string text;
    EXPECT_EQ(ReadAsciiText(*child, text), S_FALSE);
    EXPECT_EQ(text, "abc");
    EXPECT_FALSE(child->NextSibling());
    EXPECT_EQ(reader->Damage().Report().count, 1u);
    EXPECT_TRUE(parent->NextSibling()) << "the parent's own size still holds";
}

TEST(MkvElement, NoHeaderIsTakenFromBehindItsParent)
{
    const auto reader = ReaderOver(Join({Element(kSeek, GEbmlBytes{kVoid}), Element(kTimecode, GEbmlBytes{5})}));
    GMkvElement root(*reader);
    auto parent = root.FirstChild();
    ASSERT_TRUE(parent);
    EXPECT_FALSE(parent->FirstChild()) << "one byte holds no header";
    GMkvElement empty(*reader);
    empty.size.value = 0;
    EXPECT_FALSE(empty.FirstChild());
}

TEST(MkvElement, TheRestOfASegmentIsFoundBehindAnUnreadableHeader)
{
    // An ID of 0x0F, then something that begins as a level-1 ID does, then a Cluster and a Tracks element.
    const GEbmlBytes garbage = {0x0F, 0x11, 0x1F, 0x43, 0xB6, 0x00};
    const GEbmlBytes body = Join({VoidElement(3), garbage, Cluster(5, {}), Element(kTracks, GEbmlBytes{})});
    const auto reader = ReaderOver(Element(kSegment, body));
    GMkvElement root(*reader);
    auto segment = root.FirstChild();
    ASSERT_TRUE(segment);
    auto child = segment->FirstChild();
    ASSERT_TRUE(child);
    ASSERT_TRUE(child->NextSibling());
    EXPECT_EQ(child->id.value, kCluster);
    EXPECT_TRUE(child->NextSibling());
    EXPECT_EQ(child->id.value, kTracks);
    EXPECT_FALSE(child->NextSibling());
    EXPECT_EQ(reader->Damage().Report().bytes, garbage.size());

    auto atTheStart = ReaderOver(Element(kSegment, Join({garbage, Cluster(5, {})})));
    GMkvElement otherRoot(*atTheStart);
    auto otherSegment = otherRoot.FirstChild();
    ASSERT_TRUE(otherSegment);
    const auto first = otherSegment->FirstChild();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->id.value, kCluster);
}

TEST(MkvElement, OutsideASegmentAnUnreadableHeaderEndsTheWalk)
{
    const auto reader = ReaderOver(Join({VoidElement(1), {0x00, 0x00}, Cluster(1, {})}));
    GMkvElement root(*reader);
    auto child = root.FirstChild();
    ASSERT_TRUE(child);
    EXPECT_FALSE(child->NextSibling());
    EXPECT_FALSE(child->NextSibling()) << "and it stays ended";
}

TEST(MkvElement, ClustersAreSearchedForByTheirIdAlone)
{
    const GEbmlBytes tracks = Element(kTracks, GEbmlBytes{});
    const GEbmlBytes body = Join({Cluster(1, {}),
                                  VoidElement(4),
                                  {0x00},
                                  tracks,
                                  {0x1F, 0x43, 0xB6, 0x75, 0x00},
                                  GEbmlBytes(6000),
                                  Cluster(2, {}),
                                  tracks,
                                  Cluster(3, {})});
    const auto reader = ReaderOver(Element(kSegment, body));
    GMkvElement root(*reader);
    auto segment = root.FirstChild();
    ASSERT_TRUE(segment);
    auto cluster = segment->FirstChild();
    ASSERT_TRUE(cluster);
    GMkvElement inPieces = GMkvElement::CopyOf(*cluster);

    ASSERT_TRUE(cluster->NextCluster()) << "past the Tracks and the Cluster whose size cannot be read";
    const std::int64_t second = cluster->headerPos;
    ASSERT_TRUE(cluster->NextCluster());
    EXPECT_FALSE(cluster->NextCluster());
    EXPECT_EQ(reader->Damage().Report().count, 1u);

    int steps = 1;
    GMkvStep step = inPieces.StepToCluster(1);
    for (; step == GMkvStep::Searching; ++steps) {
        reader->Seek(7);  // others use the reader in between
        step = inPieces.StepToCluster(1);
    }
    EXPECT_EQ(step, GMkvStep::Moved);
    EXPECT_EQ(inPieces.headerPos, second);
    EXPECT_GE(steps, 3);
    EXPECT_EQ(inPieces.StepToCluster(1 << 20), GMkvStep::Moved);
    EXPECT_EQ(inPieces.StepToCluster(1 << 20), GMkvStep::End);
}

TEST(MkvElement, SameKindStopsAtAnotherLevelOneElement)
{
    const GEbmlBytes cues = Element(kCues, GEbmlBytes{});
    const auto reader = ReaderOver(Element(kSegment, Join({cues, VoidElement(2), cues, Cluster(0, {}), cues})));
    GMkvElement root(*reader);
    auto segment = root.FirstChild();
    ASSERT_TRUE(segment);
    auto element = segment->FirstChild(kCues);
    ASSERT_TRUE(element);
    EXPECT_TRUE(element->NextSibling(GMkvKind::Same));
    EXPECT_FALSE(element->NextSibling(GMkvKind::Same));
    EXPECT_EQ(element->id.value, kCluster);
}

TEST(MkvElement, BlocksOfBothKindsAreWalkedTogether)
{
    const auto reader = ReaderOver(Element(kSegment, Cluster(0, {SimpleBlock(1, 0, 0, {1}), VoidElement(3),
                                                                 BlockGroup(1, 1, {2}), SimpleBlock(1, 2, 0, {3})})));
    GMkvElement root(*reader);
    auto segment = root.FirstChild();
    ASSERT_TRUE(segment);
    auto cluster = segment->FirstChild();
    ASSERT_TRUE(cluster);
    std::vector<std::uint32_t> kinds;
    auto block = GMkvElement::FirstBlock(*cluster);
    ASSERT_TRUE(block);
    do
        kinds.push_back(block->id.value);
    while (block->NextBlock());
    EXPECT_EQ(kinds, (std::vector<std::uint32_t>{kSimpleBlock, kBlockGroup, kSimpleBlock}));
}

TEST(MkvElement, AnIndexEntryIsBelievedOnlyWhereItsIdStands)
{
    const GEbmlBytes body = Join({VoidElement(2), Cluster(0, {}), Element(kCues, GEbmlBytes{})});
    const auto reader = ReaderOver(Element(kSegment, body));
    GMkvElement root(*reader);
    auto segment = root.FirstChild();
    ASSERT_TRUE(segment);
    GMkvSeekIndex index;
    segment->seekIndex = &index;
    const std::int64_t cuesPos = reader->FileSize() - 5;
    index.Add(kCues, cuesPos);
    index.Add(kCues, 0);
    index.Add(kTags, cuesPos);
    const auto cues = segment->FirstChild(kCues);
    ASSERT_TRUE(cues);
    EXPECT_EQ(cues->headerPos, cuesPos) << "the first entry counts";
    EXPECT_FALSE(segment->FirstChild(kTags, GMkvScan::Yes));
    EXPECT_FALSE(segment->FirstChild(kCluster)) << "neither listed nor walked to";
    EXPECT_TRUE(segment->FirstChild(kCluster, GMkvScan::Yes));
}

// ---- unknown sizes

TEST(MkvElement, AClusterOfUnknownSizeReachesToTheEndOfTheFile)
{
    for (const unsigned width : {1u, 8u}) {
        const GEbmlBytes body = UnknownSizeElement(
            kCluster, Join({UIntElement(kTimecode, 0), SimpleBlock(1, 0, 0, {1}), SimpleBlock(1, 1, 0, {2})}), width);
        const auto reader = ReaderOver(UnknownSizeElement(kSegment, body));
        GMkvElement root(*reader);
        auto segment = root.FirstChild();
        ASSERT_TRUE(segment);
        auto cluster = segment->FirstChild();
        ASSERT_TRUE(cluster);
        EXPECT_EQ(cluster->size.value, static_cast<std::uint64_t>(reader->FileSize() - cluster->headerPos - 4 - width));
        auto block = GMkvElement::FirstBlock(*cluster);
        ASSERT_TRUE(block);
        EXPECT_TRUE(block->NextBlock());
        EXPECT_FALSE(block->NextBlock());
        EXPECT_FALSE(cluster->NextCluster());
        EXPECT_EQ(reader->Damage().Report().count, 0u);
    }
}

// A live recording: Clusters without sizes, one after the other. In the variants the walk over the blocks comes first, is
// left out, or ends at damage.
TEST(MkvElement, EveryClusterOfALiveRecordingIsFound)
{
    const auto recorded = [](std::uint8_t time, const GEbmlBytes& behind) {
        return UnknownSizeElement(kCluster, Join({UIntElement(kTimecode, time), SimpleBlock(1, 0, 0, {time}), behind}));
    };
    for (const bool walkBlocks : {true, false}) {
        for (const GEbmlBytes& behind : {GEbmlBytes{}, GEbmlBytes{0x00, 0x12, 0x34}, VoidElement(300)}) {
            const GEbmlBytes empty = UnknownSizeElement(kCluster, GEbmlBytes{});
            const auto reader = ReaderOver(UnknownSizeElement(
                kSegment, Join({recorded(1, {}), recorded(2, behind), empty, Cluster(3, {SimpleBlock(1, 0, 0, {3})}),
                                recorded(4, behind), EbmlHeader(), UnknownSizeElement(kSegment, recorded(9, {}))})));
            GMkvElement root(*reader);
            auto segment = root.FirstChild();
            ASSERT_TRUE(segment);
            auto cluster = segment->FirstChild();
            ASSERT_TRUE(cluster);
            int clusters = 0;
            int blocks = 0;
            do {
                ++clusters;
                EXPECT_EQ(cluster->FirstChild(kTimecode, GMkvScan::Yes).has_value(), clusters != 3)
                    << "the Timecode of the next Cluster is not this one's";
                if (walkBlocks) {
                    auto block = GMkvElement::FirstBlock(*cluster);
                    while (block) {
                        ++blocks;
                        if (!block->NextBlock())
                            block.reset();
                    }
                }
            } while (clusters < 20 && cluster->NextCluster());
            const bool damaged = !behind.empty() && behind[0] == 0;
            // Damage in the last Cluster is searched past, into the recording appended to this one.
            EXPECT_EQ(clusters, damaged ? 6 : 5);
            EXPECT_EQ(blocks, !walkBlocks ? 0 : damaged ? 5 : 4);
            EXPECT_EQ(reader->Damage().Report().count, damaged ? 2u : 0u);
        }
    }
}

}  // namespace
}  // namespace vex::test
