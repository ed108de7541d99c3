// Lacing, Block headers and BlockGroups, sound and damaged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/mkv/mkv_block.h"
#include "mkv/mkv_reading.h"
#include "mkv/mkv_sources.h"

namespace vex::test {
namespace {

using namespace mkv_id;
using testing::ElementsAre;
using testing::IsEmpty;

struct GSplit {
    std::optional<std::size_t> before;
    std::vector<std::uint32_t> sizes;
};

// A lace of `head` in front of `frameBytes` bytes, of which all but the last `missing` are there.
GSplit Split(std::uint8_t flags, const GEbmlBytes& head, std::size_t frameBytes, std::size_t missing = 0)
{
    GEbmlBytes payload = Join({head, GEbmlBytes(frameBytes)});
    const std::size_t claimed = payload.size();
    payload.resize(claimed - missing);
    GSplit split;
    split.before = SplitMkvLace(payload, claimed, flags, split.sizes);
    return split;
}

TEST(MkvLace, EachSchemeSplitsTheFramesAsItsSizesSay)
{
    EXPECT_THAT(Split(0, {}, 7).sizes, ElementsAre(7));
    EXPECT_THAT(Split(kXiphLace, {2, 255, 0, 10}, 300).sizes, ElementsAre(255, 10, 35));
    EXPECT_THAT(Split(kXiphLace, {1, 255, 255, 1}, 600).sizes, ElementsAre(511, 89));
    EXPECT_THAT(Split(kFixedLace, {3}, 400).sizes, ElementsAre(100, 100, 100, 100));
    EXPECT_THAT(Split(kFixedLace, {255}, 512).sizes, testing::AllOf(testing::SizeIs(256), testing::Each(2)));
    EXPECT_THAT(Split(kFixedLace, {2}, 11).sizes, ElementsAre(3, 3, 3)) << "what does not divide is left over";
    EXPECT_THAT(Split(kFixedLace, {9}, 3).sizes, testing::Each(0));
    EXPECT_THAT(Split(kEbmlLace, {2, 0x81, 0xC0}, 10).sizes, ElementsAre(1, 2, 7));
    EXPECT_THAT(Split(kEbmlLace, {3, 0x41, 0x2C, 0x5F, 0x37, 0x80}, 500).sizes, ElementsAre(300, 100, 37, 63));
    EXPECT_EQ(Split(kEbmlLace, {2, 0x81, 0xC0}, 10).before, 3u);
    EXPECT_THAT(Split(kEbmlLace, {1, 0xFF}, 130).sizes, ElementsAre(127, 3)) << "no size is unknown here";
    for (const std::uint8_t scheme : {kXiphLace, kFixedLace, kEbmlLace}) {
        EXPECT_THAT(Split(scheme, {0}, 9).sizes, ElementsAre(9)) << "a count of none is one frame without a size";
        EXPECT_THAT(Split(scheme, {0}, 0).sizes, ElementsAre(0));
    }
}

TEST(MkvLace, TheLastFrameMayBeEmptyButNeverLess)
{
    EXPECT_THAT(Split(kXiphLace, {1, 10}, 10).sizes, ElementsAre(10, 0));
    EXPECT_THAT(Split(kEbmlLace, {2, 0x85, 0xBF}, 10).sizes, ElementsAre(5, 5, 0));
    EXPECT_FALSE(Split(kXiphLace, {1, 10}, 9).before);
    EXPECT_FALSE(Split(kEbmlLace, {2, 0x85, 0xC0}, 10).before);
    EXPECT_FALSE(Split(kEbmlLace, {2, 0x85, 0x80}, 500).before) << "a size of 5 - 63";
}

TEST(MkvLace, ALaceThatEndsBeforeItsSizesOrClaimsMoreThanThereCanBeIsRefused)
{
    const GEbmlBytes largest = Join({{0x01}, GEbmlBytes(7, 0xFF)});
    const GEbmlBytes smallest = Join({{0x01}, GEbmlBytes(7)});
    const std::pair<std::uint8_t, std::vector<GEbmlBytes>> schemes[] = {
        {kXiphLace, {{}, {1}, {1, 255, 255, 255}, {255, 1, 1}}},
        {kFixedLace, {{}}},
        {kEbmlLace,
         {{},
          {1},
          {1, 0x00},
          {1, 0x40},
          Join({{1}, largest}),
          Join({{2, 0x81}, largest}),
          Join({{2, 0x81}, smallest}),
          Join({{3, 0x81}, largest, smallest})}},
    };
    for (const auto& [flags, laces] : schemes)
        for (const GEbmlBytes& lace : laces) {
            const GSplit split = Split(flags, lace, 0);
            EXPECT_FALSE(split.before) << testing::PrintToString(lace);
            EXPECT_THAT(split.sizes, IsEmpty());
        }
}

TEST(MkvLace, OfACutLaceTheWholeFramesRemain)
{
    EXPECT_THAT(Split(0, {}, 100, 60).sizes, ElementsAre(40)) << "the only one is cut instead";
    EXPECT_THAT(Split(kXiphLace, {2, 10, 10}, 100, 70).sizes, ElementsAre(10, 10));
    EXPECT_THAT(Split(kFixedLace, {3}, 400, 201).sizes, ElementsAre(100));
    EXPECT_THAT(Split(kEbmlLace, {2, 0x8A, 0xBF}, 100, 95).sizes, IsEmpty());
    EXPECT_FALSE(Split(kXiphLace, {2, 10, 10}, 0, 1).before) << "the lace itself is cut";

    // A huge claim makes no whole frame: 2^32 + 2 would be 2 in 32 bits.
    const GEbmlBytes ebmlLace = {1, 0x01, 0, 0, 1, 0, 0, 0, 2, 7, 7, 7};
    std::vector<std::uint32_t> sizes;
    for (const auto& [flags, lace] : {std::pair(kFixedLace, GEbmlBytes{1, 7, 7, 7}), std::pair(kEbmlLace, ebmlLace)}) {
        EXPECT_TRUE(SplitMkvLace(lace, std::uint64_t{1} << 55, flags, sizes));
        EXPECT_THAT(sizes, IsEmpty());
    }
}

// The only element of a Cluster, read as a Block.
class MkvBlock : public testing::Test {
protected:
    GMkvBlockRead Read(const GEbmlBytes& element, const GEbmlBytes& behindCluster = {})
    {
        GMkvTestReader reader(OpenInMemory(Join({Element(kCluster, element), behindCluster})));
        GMkvElement root(reader);
        GMkvElement cluster = root.FirstChild().value();
        GMkvElement child = cluster.FirstChild().value();
        const GMkvBlockRead read = ReadMkvBlock(child, block, payload);
        damage = reader.Damage().Report().count;
        return read;
    }

    GMkvBlock block;
    GMkvPayload payload;
    std::uint64_t damage = 0;
};

TEST_F(MkvBlock, AGroupIsReadWholeWhateverItsOrder)
{
    const GEbmlBytes inner = Element(kBlock, BlockData(7, 5, kKeyFlag, {9}));
    const GEbmlBytes facts = Join({UIntElement(kBlockDuration, 40), UIntElement(kReferencePriority, 3),
                                   UIntElement(kReferenceBlock, 0xFE), Element(kCodecState, GEbmlBytes(3))});
    for (const GEbmlBytes& children :
         {Join({inner, facts}), Join({facts, inner}), Join({inner, facts, VoidElement(2)})}) {
        ASSERT_EQ(Read(Element(kBlockGroup, children)), GMkvBlockRead::Done);
        EXPECT_EQ(block.track, 7u);
        EXPECT_EQ(block.duration.value, 40u);
        EXPECT_EQ(block.referencePriority.value, 3u);
        EXPECT_EQ(block.reference.value, -2);
        EXPECT_EQ(payload.available, 1u);
    }
    const GEbmlBytes second = Element(kBlock, BlockData(8, 6, 0, {1, 2}));
    ASSERT_EQ(Read(Element(kBlockGroup, {inner, second})), GMkvBlockRead::Done);
    EXPECT_EQ(block.track, 7u) << "the first Block of a group is the one";
    EXPECT_FALSE(block.reference.valid) << "nothing is left from the Block before";
    EXPECT_EQ(Read(Element(kBlockGroup, facts)), GMkvBlockRead::NoBlock);
    EXPECT_EQ(Read(Element(kBlockGroup, GEbmlBytes{})), GMkvBlockRead::NoBlock);
}

TEST_F(MkvBlock, ABlockThatWouldTakeWhatFollowsItsClusterIsLost)
{
    const GEbmlBytes taking = LyingElement(kSimpleBlock, 500, {0x81, 0, 0, 0, 1});
    EXPECT_EQ(Read(taking, VoidElement(600)), GMkvBlockRead::NoBlock);
    EXPECT_EQ(damage, 1u);
}

}  // namespace
}  // namespace vex::test
