// The control interfaces of the filters that are built on the frame.
#include <gtest/gtest.h>

#include "framework/vex_interfaces.h"
#include "module/class_ids.h"
#include "platform/exports.h"

namespace vex::test {

namespace {

template <class T>
GComPtr<T> Create(REFCLSID clsid, REFIID iid)
{
    GComPtr<IClassFactory> factory;
    GComPtr<T> object;
    if (SUCCEEDED(DllGetClassObject(clsid, IID_IClassFactory, factory.PutVoid())))
        factory->CreateInstance(nullptr, iid, object.PutVoid());
    return object;
}

}  // namespace

TEST(Options, Avi)
{
    const auto control = Create<IVexAVI>(CLSID_VexAvi, IID_IVexAVI);
    ASSERT_TRUE(control);
    LONG value = 5;
    EXPECT_EQ(control->GetKeyFrameSeek(&value), S_OK);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(control->GetPrerollMark(&value), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(control->SetKeyFrameSeek(1), S_OK);
    EXPECT_EQ(control->SetPrerollMark(0), S_OK);
    EXPECT_EQ(control->GetKeyFrameSeek(&value), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(control->GetPrerollMark(&value), S_OK);
    EXPECT_EQ(value, 0);
    LONGLONG duration = 7;
    EXPECT_EQ(control->GetDuration(&duration), S_OK);
    EXPECT_EQ(duration, 0) << "nothing is loaded";
    EXPECT_EQ(control->GetDuration(nullptr), E_POINTER);
    EXPECT_EQ(control->GetKeyFrameSeek(nullptr), E_POINTER);
    EXPECT_EQ(control->GetPrerollMark(nullptr), E_POINTER);
}

TEST(Options, Matroska)
{
    const auto control = Create<IVexMKV>(CLSID_VexMkv, IID_IVexMKV);
    ASSERT_TRUE(control);
    BOOL value = TRUE;
    EXPECT_EQ(control->GetKeyFrameSeek(&value), S_OK);
    EXPECT_EQ(value, FALSE);
    value = TRUE;
    EXPECT_EQ(control->GetPreroll(&value), S_OK);
    EXPECT_EQ(value, FALSE);
    EXPECT_EQ(control->SetKeyFrameSeek(2), S_OK);
    EXPECT_EQ(control->SetPreroll(2), S_OK);
    EXPECT_EQ(control->GetKeyFrameSeek(&value), S_OK);
    EXPECT_NE(value, FALSE);
    EXPECT_EQ(control->GetPreroll(&value), S_OK);
    EXPECT_NE(value, FALSE);
    EXPECT_EQ(control->GetPreroll(nullptr), E_POINTER);
}

}  // namespace vex::test
