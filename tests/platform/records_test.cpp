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

// A caller in another module finds a method by its place alone.
TEST(RecordLayout, AnInterfaceIsATableOfItsMethodsFromTheFirstOn)
{
    GComPtr<ICreateErrorInfo> object;
    ASSERT_EQ(CreateErrorInfo(object.Put()), S_OK);
    using GAddRef = ULONG(STDMETHODCALLTYPE*)(void* self);
    using GSetHelpContext = HRESULT(STDMETHODCALLTYPE*)(void* self, DWORD context);
    void** table = *reinterpret_cast<void***>(object.Get());
    EXPECT_EQ(reinterpret_cast<GAddRef>(table[1])(object.Get()), 2u);
    EXPECT_EQ(reinterpret_cast<GAddRef>(table[2])(object.Get()), 1u);
    EXPECT_EQ(reinterpret_cast<GSetHelpContext>(table[7])(object.Get(), 4711), S_OK);
    DWORD context = 0;
    QueryFor<IErrorInfo>(object.Get(), IID_IErrorInfo)->GetHelpContext(&context);
    EXPECT_EQ(context, 4711u);
}

}  // namespace
}  // namespace vex::test
