#include "dshow/media_type.h"

#include <cstring>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

#include "support/test_object.h"

namespace vex {
namespace {

using Bytes = std::vector<BYTE>;

class CountedUnknown final : public test::GTestObject<IUnknown> {};

Bytes Block(const AM_MEDIA_TYPE& type)
{
    return type.pbFormat ? Bytes(type.pbFormat, type.pbFormat + type.cbFormat) : Bytes();
}

CMediaType Sample(const Bytes& format)
{
    CMediaType type(MEDIATYPE_Video, MEDIASUBTYPE_RGB24);
    type.SetFormat(FORMAT_VideoInfo, format);
    return type;
}

TEST(MediaType, CopiesOwnTheirBlockAndHoldTheUnknown)
{
    const auto unknown = GComPtr<CountedUnknown>::Adopt(new CountedUnknown);
    {
        CMediaType original = Sample({1, 2, 3});
        unknown->AddRef();
        original.pUnk = unknown.Get();
        const CMediaType copy = original;
        original.Format()[0] = 9;
        EXPECT_EQ(Block(copy), (Bytes{1, 2, 3}));
        EXPECT_EQ(unknown->References(), 3u);
        const CMediaType moved = std::move(original);
        EXPECT_EQ(Block(moved), (Bytes{9, 2, 3}));
        EXPECT_EQ(unknown->References(), 3u);

        AM_MEDIA_TYPE record;
        std::memset(&record, 0xA5, sizeof(record));  // what was there is not to be freed
        ASSERT_EQ(moved.CopyTo(&record), S_OK);
        EXPECT_EQ(unknown->References(), 4u);
        AM_MEDIA_TYPE* task = CreateMediaType(record);
        ASSERT_NE(task, nullptr);
        EXPECT_TRUE(moved.Matches(*task));
        EXPECT_EQ(unknown->References(), 5u);
        DeleteMediaType(task);
        FreeMediaType(record);
        FreeMediaType(record);  // once more is harmless
        EXPECT_EQ(unknown->References(), 3u);
    }
    EXPECT_EQ(unknown->References(), 1u);
    DeleteMediaType(nullptr);
    EXPECT_EQ(CMediaType().CopyTo(nullptr), E_POINTER);
}

TEST(MediaType, AFormatMayBeMadeFromItselfAndATypeAssignedToItself)
{
    CMediaType type = Sample({1, 2, 3, 4});
    const CMediaType& alias = type;
    type = alias;
    EXPECT_EQ(Block(type), (Bytes{1, 2, 3, 4}));
    type.SetFormat(type.formattype, std::span(type.Format()).subspan(1, 2));
    EXPECT_EQ(Block(type), (Bytes{2, 3}));
    EXPECT_EQ(type.formattype, FORMAT_VideoInfo);
    const auto zeroed = type.AllocFormat(FORMAT_WaveFormatEx, 18);
    EXPECT_EQ(Bytes(zeroed.begin(), zeroed.end()), Bytes(18, 0));
    type.SetFormat(FORMAT_None, {});
    EXPECT_EQ(type.pbFormat, nullptr);
    EXPECT_EQ(type.cbFormat, 0u);
    type.SetSampleSize(512);
    EXPECT_TRUE(type.bFixedSizeSamples);
    type.SetSampleSize(0);
    EXPECT_FALSE(type.bFixedSizeSamples) << "0 is a variable size";
}

TEST(MediaType, ALengthWithoutABlockIsNoBlock)
{
    AM_MEDIA_TYPE lying{};
    lying.majortype = MEDIATYPE_Video;
    lying.formattype = FORMAT_VideoInfo;
    lying.cbFormat = 0xFFFFFFFF;
    const CMediaType copy(lying);
    EXPECT_EQ(copy.cbFormat, 0u);
    EXPECT_TRUE(copy.Matches(lying));
    EXPECT_TRUE(copy.MatchesPartial(lying));
}

TEST(MediaType, EqualityIsTypeAndFormatAndAPatternConstrainsOnlyWhatItNames)
{
    const CMediaType type = Sample({1, 2});
    CMediaType other = type;
    other.SetSampleSize(4711);
    other.bTemporalCompression = TRUE;
    EXPECT_TRUE(type == other) << "the sizes do not count";
    EXPECT_FALSE(type == Sample({1, 3}));
    const struct {
        GUID major, sub, format;
        Bytes block;
        bool fits;
    } rows[] = {
        {GUID_NULL, GUID_NULL, GUID_NULL, {}, true},
        {MEDIATYPE_Video, GUID_NULL, GUID_NULL, {7}, true},
        {MEDIATYPE_Audio, GUID_NULL, GUID_NULL, {}, false},
        {MEDIATYPE_Video, MEDIASUBTYPE_RGB32, GUID_NULL, {}, false},
        {MEDIATYPE_Video, MEDIASUBTYPE_RGB24, FORMAT_VideoInfo, {1, 2}, true},
        {GUID_NULL, GUID_NULL, FORMAT_VideoInfo, {}, false},  // with the format type comes the whole format
    };
    for (const auto& row : rows) {
        CMediaType pattern(row.major, row.sub);
        pattern.SetFormat(row.format, row.block);
        EXPECT_EQ(type.MatchesPartial(pattern), row.fits) << &row - rows;
    }
}

}  // namespace
}  // namespace vex
