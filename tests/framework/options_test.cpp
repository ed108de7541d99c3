// The control interfaces of the filters that are built on the frame.
#include <gtest/gtest.h>

#include "formats/avi/avi_interface.h"
#include "formats/mkv/mkv_interface.h"
#include "formats/ogg/ogg_interface.h"
#include "framework/vex_interfaces.h"
#include "platform/exports.h"
#include "platform/text.h"
#include "support/ogg_builder.h"
#include "support/temp_file.h"

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

// The two options of a new filter, which must not be mixed up, and each of them the other way round.
template <class T, class Value>
void CheckOptions(T& control, HRESULT (STDMETHODCALLTYPE T::*setPreroll)(Value),
                  HRESULT (STDMETHODCALLTYPE T::*getPreroll)(Value*), bool prerollAtFirst)
{
    Value keyFrames = 5;
    Value preroll = 5;
    EXPECT_EQ(control.GetKeyFrameSeek(&keyFrames), S_OK);
    EXPECT_EQ((control.*getPreroll)(&preroll), S_OK);
    EXPECT_EQ(keyFrames, 0);
    EXPECT_EQ(preroll, prerollAtFirst);
    for (const Value wanted : {1, 0}) {
        EXPECT_EQ(control.SetKeyFrameSeek(2 * wanted), S_OK) << "anything but zero is on";
        EXPECT_EQ((control.*setPreroll)(1 - wanted), S_OK);
        EXPECT_EQ(control.GetKeyFrameSeek(&keyFrames), S_OK);
        EXPECT_EQ((control.*getPreroll)(&preroll), S_OK);
        EXPECT_EQ(keyFrames, wanted);
        EXPECT_EQ(preroll, 1 - wanted);
    }
    EXPECT_EQ(control.GetKeyFrameSeek(nullptr), E_POINTER);
    EXPECT_EQ((control.*getPreroll)(nullptr), E_POINTER);
}

template <class T>
void CheckDuration(T& control)
{
    LONGLONG duration = 7;
    EXPECT_EQ(control.GetDuration(&duration), S_OK);
    EXPECT_EQ(duration, 0) << "nothing is loaded";
    EXPECT_EQ(control.GetDuration(nullptr), E_POINTER);
}

}  // namespace

TEST(Options, OfAviMatroskaAndOgg)
{
    const auto avi = Create<IVexAVI>(CLSID_VexAvi, IID_IVexAVI);
    const auto mkv = Create<IVexMKV>(CLSID_VexMkv, IID_IVexMKV);
    const auto ogg = Create<IVexOGG2>(CLSID_VexOgg2, IID_IVexOGG2);
    ASSERT_TRUE(avi && mkv && ogg);
    CheckOptions(*avi, &IVexAVI::SetPrerollMark, &IVexAVI::GetPrerollMark, true);
    CheckOptions(*mkv, &IVexMKV::SetPreroll, &IVexMKV::GetPreroll, false);
    CheckOptions(*ogg, &IVexOGG2::SetPrerollMark, &IVexOGG2::GetPrerollMark, true);
    CheckDuration(*avi);
    CheckDuration(*ogg);
    EXPECT_FALSE(Create<IVexOGG2>(CLSID_VexOgg, IID_IVexOGG2)) << "only the second Ogg filter has it";

    const GTempFile file(TheoraFile(50));
    GComPtr<IFileSourceFilter> source;
    ASSERT_EQ(ogg->QueryInterface(IID_IFileSourceFilter, source.PutVoid()), S_OK);
    ASSERT_EQ(source->Load(WideFromNarrowPath(file.Path()).c_str(), nullptr), S_OK);
    LONGLONG duration = 0;
    EXPECT_EQ(ogg->GetDuration(&duration), S_OK);
    EXPECT_EQ(duration, 49 * 400'000);
}

}  // namespace vex::test
