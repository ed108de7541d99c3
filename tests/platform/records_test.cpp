// What other modules read and write by offset; pointers are 4 or 8 bytes, everything else is the same on all targets.
#include <gtest/gtest.h>

#include "platform/pipeline.h"

namespace vex::test {
namespace {

TEST(RecordLayout, FieldsLieWhereOtherModulesLookForThem)
{
    constexpr bool kWide = sizeof(void*) == 8;
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, formattype), 44u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, pUnk), kWide ? 64u : 60u);
    EXPECT_EQ(offsetof(AM_MEDIA_TYPE, pbFormat), kWide ? 80u : 68u);
    EXPECT_EQ(sizeof(AM_MEDIA_TYPE), kWide ? 88u : 72u);
    EXPECT_EQ(offsetof(VIDEOINFOHEADER2, dwPictAspectRatioX), 56u);
    EXPECT_EQ(offsetof(MPEG2VIDEOINFO, dwStartTimeCode), 112u);
    EXPECT_EQ(offsetof(MPEG2VIDEOINFO, dwFlags), 128u);
    EXPECT_EQ(offsetof(PIN_INFO, achName), kWide ? 12u : 8u);
    EXPECT_EQ(offsetof(FILTER_INFO, pGraph), 256u);
    EXPECT_EQ(offsetof(Quality, TimeStamp), 16u);
}

}  // namespace
}  // namespace vex::test
