// Loading, and what a host may ask of the filter before anything runs.
#include <gtest/gtest.h>

#include "host/host_graph.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

GComPtr<CScriptedFilter> Filter(GScript script, const GFilterRules& rules = kPlainRules,
                                std::shared_ptr<GScriptLog> log = std::make_shared<GScriptLog>())
{
    SetErrorInfo(0, nullptr);
    return GComPtr<CScriptedFilter>(new CScriptedFilter(std::move(script), rules, nullptr, std::move(log)));
}

std::string ErrorText()
{
    GComPtr<IErrorInfo> info;
    BSTR text = nullptr;
    if (GetErrorInfo(0, info.Put()) == S_OK)
        info->GetDescription(&text);
    return TakeText(text);
}

GStreamInfo WithoutPin(std::uint32_t number)
{
    GStreamInfo stream = VideoStream(number);
    stream.mediaTypes.front().majortype = GUID_NULL;
    return stream;
}

}  // namespace

TEST(Load, AFailureLeavesNothingAndSaysWhere)
{
    GScript broken = Movie(3);
    broken.brokenPath = "x";
    GScript mute;
    mute.streams = {WithoutPin(0), GStreamInfo{}};
    const struct {
        GScript script;
        const char* error;
    } kCases[] = {
        {broken, "the script does not open (at byte 42)"},
        {mute, "no stream of the file can be played"},
    };
    for (const auto& one : kCases) {
        const auto log = std::make_shared<GScriptLog>();
        const auto filter = Filter(one.script, kPlainRules, log);
        for (int attempt = 1; attempt <= 2; ++attempt) {
            EXPECT_EQ(filter->Load(VEX_W("x"), nullptr), E_FAIL);
            EXPECT_EQ(ErrorText(), one.error);
            EXPECT_EQ(log->opened, attempt);
            EXPECT_EQ(log->closed, 2 * attempt) << "before it opens, and after it failed";
        }
        EXPECT_EQ(filter->GetPinCount(), 0);
        LPOLESTR name = nullptr;
        EXPECT_EQ(filter->GetCurFile(nullptr, nullptr), E_POINTER);
        EXPECT_EQ(filter->GetCurFile(&name, nullptr), S_OK);
        EXPECT_EQ(name, nullptr);
        EXPECT_EQ(filter->InterfaceSupportsErrorInfo(IID_IFileSourceFilter), S_OK);
        EXPECT_EQ(filter->InterfaceSupportsErrorInfo(IID_IBaseFilter), S_FALSE);
    }
}

TEST(Load, OnlyTheFirstVideoOfAnAviGetsAPin)
{
    GScript script;
    script.streams = {AudioStream(4), VideoStream(5), WithoutPin(6), VideoStream(7), AudioStream(8)};
    for (const auto& [rules, pins] : {std::pair(&kPlainRules, 3), std::pair(&kRelayRules, 4)}) {
        const auto filter = Filter(script, *rules);
        ASSERT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK);
        EXPECT_EQ(filter->GetPinCount(), pins);
    }
}

TEST(Load, AbsurdTimesAreHeld)
{
    GScript script = Movie(1);
    script.duration = INT64_MAX;
    script.packets[0].start = INT64_MIN + 1;
    script.packets[0].stop = INT64_MAX;
    script.packets[1].start = INT64_MAX;
    script.packets[1].stop = kNoTime;
    script.seekLands = [](REFERENCE_TIME, GSeekMode) { return INT64_MIN + 1; };
    GRig rig(std::move(script));
    for (const REFERENCE_TIME position : {INT64_MIN, INT64_MAX})
        EXPECT_EQ(rig.Seek(0, position), S_OK);
    EXPECT_EQ(rig.Seeking(1)->SetRate(1e-300), S_OK);
    rig.PlayToEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().at(0).start, 0);
    EXPECT_EQ(rig.Sink(1).SegmentSamples().at(0).start, INT64_MAX) << "the rate may not take it beyond 64 bits";
}

// A stream that does not belong to the file cannot be asked about.
TEST(Inspect, RefusesWhatIsNotThere)
{
    const auto filter = Filter(Movie(1));
    ULONG count = 0;
    BSTR text = nullptr;
    ULONGLONG number = 0;
    EXPECT_EQ(filter->GetPropertyCount(-1, &count), VFW_E_WRONG_STATE);
    EXPECT_EQ(filter->GetDamage(&number, &number, &text), VFW_E_WRONG_STATE);
    EXPECT_EQ(filter->IsIndexComplete(), VFW_E_WRONG_STATE);
    ASSERT_EQ(filter->Load(VEX_W("x"), nullptr), S_OK);
    EXPECT_EQ(filter->IsIndexComplete(), S_OK);
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
