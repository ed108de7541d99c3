// Undoing what was put on a track's data.
#include "formats/mkv/mkv_content.h"

#include <gtest/gtest.h>

#include <iterator>

#include "support/ebml_builder.h"

namespace vex::test {
namespace {

GMkvBytes Pattern(std::size_t size)
{
    GMkvBytes bytes(size);
    std::uint32_t state = 1;
    for (auto& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24 & 0x3F);
    }
    return bytes;
}

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
    GMkvBytes Decoded(const GMkvBytes& stored, std::uint64_t scope = GMkvContentEncoding::kFrames)
    {
        data.Assign(stored);
        done = decoder.Decode(track, scope, data);
        return {data.Span().begin(), data.Span().end()};
    }

    GMkvTrack track;  // its encodings stand in the order they are taken off
    GMkvContentDecoder decoder;
    GBuffer data;
    bool done = false;
};

TEST_F(MkvContent, FramesOfAnySizeInflateOneAfterTheOther)
{
    track.contentEncodings = {kZlib};
    for (const std::size_t size : {1u, 999u, 1000u, 1001u, 300'000u, 0u, 17u}) {
        const GMkvBytes plain = Pattern(size);
        EXPECT_EQ(Decoded(ZlibCompressed(plain)), plain) << size;
        EXPECT_TRUE(done);
    }
    const GMkvBytes flat(5'000'000, 0x55);
    EXPECT_EQ(Decoded(ZlibCompressed(flat)), flat);
    EXPECT_LT(data.Capacity(), 3 * flat.size());
}

TEST_F(MkvContent, DamagedOrEndlessDataStayAsTheyAre)
{
    track.contentEncodings = {kZlib};
    const GMkvBytes good = ZlibCompressed(Pattern(5000));
    const GMkvBytes cut(good.begin(), std::prev(good.end()));
    GMkvBytes wrong = good;
    wrong[wrong.size() / 2] ^= 0xFF;
    const GMkvBytes bomb = ZlibCompressed(GMkvBytes(kMaxInflatedSize + 1));
    for (const GMkvBytes& bad : {cut, wrong, bomb, GMkvBytes{}, GMkvBytes{0}}) {
        EXPECT_EQ(Decoded(bad), bad);
        EXPECT_FALSE(done);
    }
    EXPECT_LE(data.Capacity(), kMaxInflatedSize);
    EXPECT_EQ(Decoded(good), Pattern(5000)) << "one bad frame does not spoil the next";
    EXPECT_EQ(Decoded(ZlibCompressed(GMkvBytes(kMaxInflatedSize))).size(), kMaxInflatedSize) << "the limit is allowed";
    EXPECT_TRUE(done);
}

TEST_F(MkvContent, AStrippedHeaderComesBackAndEndsTheChain)
{
    track.contentEncodings = {kStripped, kZlib};
    EXPECT_EQ(Decoded({4, 5}), (GMkvBytes{1, 2, 3, 4, 5}));
    EXPECT_TRUE(done) << "what it stood in front of is not inflated";
    EXPECT_EQ(Decoded({}), (GMkvBytes{1, 2, 3}));
    track.contentEncodings = {kZlib, kStripped};
    EXPECT_EQ(Decoded(ZlibCompressed({9, 9})), (GMkvBytes{1, 2, 3, 9, 9}));
    EXPECT_TRUE(done);
}

TEST_F(MkvContent, WhatCannotBeUndoneFailsAndWhatDoesNotApplyIsPassedOver)
{
    constexpr std::uint64_t kBzip = 1;
    for (const GMkvContentEncoding& encoding : {Encoding(GMkvContentEncoding::kEncryption, 0), Encoding(0, kBzip)}) {
        track.contentEncodings = {encoding};
        EXPECT_EQ(Decoded({1, 2}), (GMkvBytes{1, 2}));
        EXPECT_FALSE(done);
    }
    constexpr std::uint64_t kUnknownType = 2;
    GMkvContentEncoding ofPrivateData = kZlib;
    ofPrivateData.contentEncodingScope.value = GMkvContentEncoding::kPrivate;
    track.contentEncodings = {Encoding(kUnknownType, 0), ofPrivateData, kStripped};
    EXPECT_EQ(Decoded({2}), (GMkvBytes{1, 2, 3, 2}));
    EXPECT_TRUE(done);
    EXPECT_EQ(Decoded(ZlibCompressed({8}), GMkvContentEncoding::kPrivate), (GMkvBytes{8}));
}

}  // namespace
}  // namespace vex::test
