// Loading, and what a host may ask of the filter and its pins before anything runs.
#include <gtest/gtest.h>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

class GLoader {
public:
    explicit GLoader(GScript script, const GFilterRules& rules = kAviRules)
        : filter(new CScriptedFilter(std::move(script), rules, std::make_shared<GScriptLog>()))
    {
        SetErrorInfo(0, nullptr);
    }

    int PinCount() const { return filter->GetPinCount(); }
    CScriptedFilter* operator->() const { return filter.Get(); }

private:
    GComPtr<CScriptedFilter> filter;
};

std::u16string ErrorText()
{
    GComPtr<IErrorInfo> info;
    BSTR text = nullptr;
    if (GetErrorInfo(0, info.Put()) != S_OK || FAILED(info->GetDescription(&text)))
        return {};
    std::u16string copy(text, SysStringLen(text));
    SysFreeString(text);
    return copy;
}

GStreamInfo WithoutPin(std::uint32_t number)
{
    GStreamInfo stream = VideoStream(number);
    stream.mediaTypes.front().majortype = GUID_NULL;
    return stream;
}

}  // namespace

TEST(Load, OnceOnly)
{
    GLoader filter(Movie(3));
    EXPECT_EQ(filter->Load(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(filter->Load(VEX_W("first"), nullptr), S_OK);
    EXPECT_EQ(filter->Load(VEX_W("second"), nullptr), E_FAIL);
    EXPECT_EQ(filter->Load(nullptr, nullptr), E_FAIL);

    LPOLESTR name = nullptr;
    ASSERT_EQ(filter->GetCurFile(&name, nullptr), S_OK);
    EXPECT_EQ(WString(name), VEX_W("first"));
    CoTaskMemFree(name);
    EXPECT_EQ(filter.PinCount(), 2);
}

TEST(Load, AFailureLeavesNothingAndSaysWhere)
{
    GScript script = Movie(3);
    script.opens = false;
    GLoader filter(std::move(script));
    EXPECT_EQ(filter->Load(VEX_W("broken"), nullptr), E_FAIL);
    EXPECT_EQ(ErrorText(), u"the script does not open (at byte 42)");
    EXPECT_EQ(filter.PinCount(), 0);
    LPOLESTR name = nullptr;
    EXPECT_EQ(filter->GetCurFile(nullptr, nullptr), E_POINTER);
    EXPECT_EQ(filter->GetCurFile(&name, nullptr), S_OK);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(filter->Load(VEX_W("again"), nullptr), E_FAIL);
    EXPECT_EQ(filter->InterfaceSupportsErrorInfo(IID_IFileSourceFilter), S_OK);
    EXPECT_EQ(filter->InterfaceSupportsErrorInfo(IID_IBaseFilter), S_FALSE);
}

TEST(Load, AFileWithoutAnyPinIsRefused)
{
    GScript script;
    script.streams = {WithoutPin(0)};
    GStreamInfo empty;
    script.streams.push_back(std::move(empty));
    GLoader filter(std::move(script));
    EXPECT_EQ(filter->Load(VEX_W("mute"), nullptr), E_FAIL);
    EXPECT_EQ(ErrorText(), u"no stream of the file can be played");
}

TEST(Load, OnlyTheFirstVideoOfAnAviGetsAPin)
{
    GScript script;
    script.streams = {AudioStream(4), VideoStream(5), WithoutPin(6), VideoStream(7), AudioStream(8)};
    GLoader avi(script);
    ASSERT_EQ(avi->Load(VEX_W("x"), nullptr), S_OK);
    EXPECT_EQ(avi.PinCount(), 3);
    GLoader mkv(script, kMkvRules);
    ASSERT_EQ(mkv->Load(VEX_W("x"), nullptr), S_OK);
    EXPECT_EQ(mkv.PinCount(), 4);
}

TEST(Load, MemoryThatRunsShortHalfwayLeavesNoPins)
{
    GLoader filter(Movie(3));
    int pins = 0;
    filter->makePin = [&](CVexFilter* owner, WString name, const GStreamInfo& stream) {
        if (++pins == 2)
            throw std::bad_alloc();
        return std::make_unique<CVexOutputPin>(owner, std::move(name), stream);
    };
    EXPECT_EQ(filter->Load(VEX_W("x"), nullptr), E_OUTOFMEMORY);
    EXPECT_EQ(filter.PinCount(), 0);
    EXPECT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK) << "the host may try again";
    EXPECT_EQ(filter.PinCount(), 2);
}

TEST(Load, AbsurdTimesAreHeld)
{
    GScript script = Movie(1);
    script.duration = INT64_MAX;
    script.packets[0].start = INT64_MIN + 1;
    script.packets[0].stop = INT64_MAX;
    script.packets[1].stop = kNoTime;
    GRig rig(std::move(script));
    rig.ConnectAll();
    EXPECT_EQ(rig.Seek(0, INT64_MIN), S_OK);
    EXPECT_EQ(rig.Seek(0, INT64_MAX), S_OK);
    EXPECT_EQ(rig.Seek(0, 1), S_OK);
    EXPECT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    rig.Sink(1).WaitForEnd();
}

TEST(Load, PinsSayWhatTheirStreamIs)
{
    GRig rig(Movie(3));
    const auto seeking = rig.Seeking(0);
    LONGLONG duration = 0;
    LONGLONG stop = 0;
    EXPECT_EQ(seeking->GetDuration(&duration), S_OK);
    EXPECT_EQ(duration, 3 * kFrame);
    EXPECT_EQ(seeking->GetStopPosition(&stop), S_OK);
    EXPECT_EQ(stop, 3 * kFrame);
    DWORD capabilities = 0;
    EXPECT_EQ(seeking->GetCapabilities(&capabilities), S_OK);
    EXPECT_EQ(capabilities, 0x37u);

    CMediaType type = VideoStream(0).mediaTypes.front();
    EXPECT_EQ(rig.Pin(0)->QueryAccept(&type), S_OK);
    type.pbFormat[0] ^= 1;
    EXPECT_EQ(rig.Pin(0)->QueryAccept(&type), S_FALSE);
}

// A stream that does not belong to the file cannot be asked about.
TEST(Inspect, RefusesWhatIsNotThere)
{
    GLoader filter(Movie(1));
    ULONG count = 0;
    BSTR text = nullptr;
    ULONGLONG number = 0;
    EXPECT_EQ(filter->GetPropertyCount(-1, &count), VFW_E_WRONG_STATE);
    EXPECT_EQ(filter->GetDamage(&number, &number, &text), VFW_E_WRONG_STATE);
    ASSERT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK);
    EXPECT_EQ(filter->GetPropertyCount(-1, &count), S_OK);
    EXPECT_EQ(filter->GetPropertyCount(2, &count), E_INVALIDARG);
    EXPECT_EQ(filter->GetPropertyCount(-2, &count), E_INVALIDARG);
    EXPECT_EQ(filter->GetProperty(0, 0, &text, nullptr, nullptr), E_INVALIDARG);
    EXPECT_EQ(filter->GetPinLanguage(2, &text), E_INVALIDARG);
    EXPECT_EQ(filter->GetAttachment(0, nullptr, nullptr, nullptr, nullptr), E_INVALIDARG);
    BYTE byte = 0;
    EXPECT_EQ(filter->ReadAttachment(0, 0, &byte, 1), E_INVALIDARG);
    EXPECT_EQ(filter->GetPinLanguage(0, &text), S_OK);
    SysFreeString(text);
}

}  // namespace vex::test
