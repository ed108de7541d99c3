// Undoing what was put on a track's data.
#include <gtest/gtest.h>
#include <zlib.h>

#include <iterator>
#include <stdexcept>
#include <string_view>

#include "formats/mkv/mkv_content.h"

namespace vex::test {
namespace {

GMkvBytes Compressed(const GMkvBytes& plain, int level = 9)
{
    uLongf size = compressBound(static_cast<uLong>(plain.size()));
    GMkvBytes out(size);
    if (compress2(out.data(), &size, plain.data(), static_cast<uLong>(plain.size()), level) != Z_OK)
        throw std::runtime_error("zlib refused to compress");
    out.resize(size);
    return out;
}

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

GMkvContentEncoding Zlib(std::uint64_t scope = GMkvContentEncoding::kFrames)
{
    GMkvContentEncoding encoding;
    encoding.contentEncodingScope.value = scope;
    return encoding;
}

GMkvContentEncoding Stripped(const GMkvBytes& header)
{
    GMkvContentEncoding encoding;
    encoding.contentCompAlgo.value = GMkvContentEncoding::kHeaderStripping;
    encoding.contentCompSettings = header;
    return encoding;
}

class MkvContent : public testing::Test {
protected:
    bool Decode(const GMkvBytes& stored, std::uint64_t scope = GMkvContentEncoding::kFrames)
    {
        data.Assign(stored);
        const bool done = decoder.Decode(track, scope, data);
        result.assign(data.Span().begin(), data.Span().end());
        return done;
    }

    GMkvTrack track;  // its encodings stand in the order they are taken off
    GMkvContentDecoder decoder;
    GBuffer data;
    GMkvBytes result;
};

TEST_F(MkvContent, FramesOfAnySizeInflateOneAfterTheOther)
{
    track.contentEncodings = {Zlib()};
    for (const std::size_t size : {1u, 999u, 1000u, 1001u, 300'000u, 0u, 17u}) {
        const GMkvBytes plain = Pattern(size);
        EXPECT_TRUE(Decode(Compressed(plain)));
        EXPECT_EQ(result, plain) << size;
    }
    const GMkvBytes flat(5'000'000, 0x55);
    EXPECT_TRUE(Decode(Compressed(flat)));
    EXPECT_EQ(result, flat);
    EXPECT_LT(data.Capacity(), 3 * flat.size());
}

TEST_F(MkvContent, DamagedOrEndlessDataStayAsTheyAre)
{
    track.contentEncodings = {Zlib()};
    const GMkvBytes good = Compressed(Pattern(5000));
    const GMkvBytes cut(good.begin(), std::prev(good.end()));
    GMkvBytes wrong = good;
    wrong[wrong.size() / 2] ^= 0xFF;
    const GMkvBytes bomb = Compressed(GMkvBytes(kMaxInflatedSize + 1));
    for (const GMkvBytes& bad : {cut, wrong, bomb, GMkvBytes{}, GMkvBytes{0}}) {
        EXPECT_FALSE(Decode(bad));
        EXPECT_EQ(result, bad);
    }
    EXPECT_LE(data.Capacity(), kMaxInflatedSize);
    EXPECT_TRUE(Decode(good)) << "one bad frame does not spoil the next";
    EXPECT_TRUE(Decode(Compressed(GMkvBytes(kMaxInflatedSize)))) << "the limit itself is allowed";
}

TEST_F(MkvContent, AStrippedHeaderComesBackAndEndsTheChain)
{
    track.contentEncodings = {Stripped({1, 2, 3}), Zlib()};
    EXPECT_TRUE(Decode({4, 5}));
    EXPECT_EQ(result, (GMkvBytes{1, 2, 3, 4, 5}));
    EXPECT_TRUE(Decode({}));
    EXPECT_EQ(result, (GMkvBytes{1, 2, 3}));
    track.contentEncodings = {Zlib(), Stripped({1, 2, 3})};
    EXPECT_TRUE(Decode(Compressed({9, 9})));
    EXPECT_EQ(result, (GMkvBytes{1, 2, 3, 9, 9}));
}

TEST_F(MkvContent, OnlyTheEncodingsOfTheAskedScopeApply)
{
    track.contentEncodings = {Zlib(GMkvContentEncoding::kPrivate)};
    EXPECT_TRUE(Decode({7, 7}));
    EXPECT_EQ(result, (GMkvBytes{7, 7}));
    EXPECT_TRUE(Decode(Compressed({8}), GMkvContentEncoding::kPrivate));
    EXPECT_EQ(result, (GMkvBytes{8}));
}

TEST_F(MkvContent, WhatCannotBeUndoneFailsAndWhatIsUnknownIsPassedOver)
{
    GMkvContentEncoding encrypted;
    encrypted.contentEncodingType.value = GMkvContentEncoding::kEncryption;
    GMkvContentEncoding bzip;
    bzip.contentCompAlgo.value = 1;
    for (const GMkvContentEncoding& encoding : {encrypted, bzip}) {
        track.contentEncodings = {encoding};
        EXPECT_FALSE(Decode({1, 2}));
        EXPECT_EQ(result, (GMkvBytes{1, 2}));
    }
    GMkvContentEncoding future;
    future.contentEncodingType.value = 2;
    track.contentEncodings = {future, Stripped({1})};
    EXPECT_TRUE(Decode({2}));
    EXPECT_EQ(result, (GMkvBytes{1, 2}));
}

}  // namespace
}  // namespace vex::test
