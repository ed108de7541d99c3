// Undoing what was put on a track's data.
#include "formats/mkv/mkv_content.h"

#include <gtest/gtest.h>

#include "support/ebml_builder.h"

namespace vex::test {
namespace {

GMkvContentEncoding Encoding(std::uint64_t type, std::uint64_t algorithm, const GMkvBytes& settings = {})
{
    GMkvContentEncoding encoding;
    encoding.contentEncodingType.value = type;
    encoding.contentCompAlgo.value = algorithm;
    encoding.contentCompSettings = settings;
    return encoding;
}

const GMkvContentEncoding kZlib = Encoding(0, GMkvContentEncoding::kZlib);
const GMkvContentEncoding kStripped = Encoding(0, GMkvContentEncoding::kHeaderStripping, {1, 2, 3});

class MkvContent : public testing::Test {
protected:
    // The bytes afterwards; `done` says whether all went well.
    GMkvBytes Decoded(const std::vector<GMkvContentEncoding>& encodings, const GMkvBytes& stored)
    {
        GMkvTrack track;
        track.contentEncodings = encodings;
        data.Assign(stored);
        done = decoder.Decode(track, GMkvContentEncoding::kFrames, data);
        return {data.Span().begin(), data.Span().end()};
    }

    GMkvContentDecoder decoder;
    GBuffer data;
    bool done = false;
};

TEST_F(MkvContent, FramesOfAnySizeInflateOneAfterTheOtherAndDamagedOnesStayAsTheyAre)
{
    GMkvBytes plain(300'000);
    for (std::size_t i = 0; i < plain.size(); ++i)
        plain[i] = static_cast<std::uint8_t>(i * i >> 7);
    const GMkvBytes good = ZlibCompressed(plain);
    GMkvBytes wrong = good;
    wrong[wrong.size() / 2] ^= 0xFF;
    const GMkvBytes cut(good.begin(), good.end() - 1);
    const GMkvBytes bomb = ZlibCompressed(GMkvBytes(kMaxInflatedSize + 1));
    for (const GMkvBytes& bad : {cut, wrong, bomb, GMkvBytes{}, GMkvBytes{0}}) {
        EXPECT_EQ(Decoded({kZlib}, bad), bad);
        EXPECT_FALSE(done);
        EXPECT_EQ(Decoded({kZlib}, good), plain) << "one bad frame does not spoil the next";
        EXPECT_TRUE(done);
    }
    EXPECT_LE(data.Capacity(), kMaxInflatedSize);
    EXPECT_EQ(Decoded({kZlib}, ZlibCompressed({})), GMkvBytes());
    EXPECT_TRUE(done);
    EXPECT_EQ(Decoded({kZlib}, ZlibCompressed(GMkvBytes(kMaxInflatedSize))).size(), kMaxInflatedSize)
        << "the limit is allowed";
}

TEST_F(MkvContent, AStrippedHeaderEndsTheChainAndWhatCannotBeUndoneFails)
{
    EXPECT_EQ(Decoded({kStripped, kZlib}, {4, 5}), (GMkvBytes{1, 2, 3, 4, 5}));
    EXPECT_TRUE(done) << "what it stood in front of is not inflated";
    EXPECT_EQ(Decoded({kZlib, kStripped}, ZlibCompressed({9, 9})), (GMkvBytes{1, 2, 3, 9, 9}));
    EXPECT_TRUE(done);
    constexpr std::uint64_t kUnknownType = 2;
    GMkvContentEncoding ofPrivateData = kZlib;
    ofPrivateData.contentEncodingScope.value = GMkvContentEncoding::kPrivate;
    EXPECT_EQ(Decoded({Encoding(kUnknownType, 0), ofPrivateData, kStripped}, {2}), (GMkvBytes{1, 2, 3, 2}));
    EXPECT_TRUE(done) << "neither applies";
    constexpr std::uint64_t kBzip = 1;
    for (const GMkvContentEncoding& encoding : {Encoding(GMkvContentEncoding::kEncryption, 0), Encoding(0, kBzip)}) {
        EXPECT_EQ(Decoded({encoding}, {1, 2}), (GMkvBytes{1, 2}));
        EXPECT_FALSE(done);
    }
}

}  // namespace
}  // namespace vex::test
