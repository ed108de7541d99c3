// IMediaSeeking of a pin, with nothing running.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

constexpr REFERENCE_TIME kDuration = 100 * kFrame;

class Seeking : public testing::Test {
protected:
    GRig rig{Movie(100)};
    GComPtr<IMediaSeeking> seeking = rig.Seeking(0);
};

}  // namespace

TEST_F(Seeking, KnowsReferenceTimeAndNothingElse)
{
    const GUID known = TIME_FORMAT_MEDIA_TIME;
    const GUID other = MEDIATYPE_Video;
    EXPECT_EQ(seeking->IsFormatSupported(&known), S_OK);
    EXPECT_EQ(seeking->IsFormatSupported(&other), S_FALSE);
    EXPECT_EQ(seeking->IsUsingTimeFormat(&known), S_OK);
    EXPECT_EQ(seeking->IsUsingTimeFormat(&other), S_FALSE);
    EXPECT_EQ(seeking->SetTimeFormat(&known), S_OK);
    EXPECT_EQ(seeking->SetTimeFormat(&other), E_INVALIDARG);
    GUID preferred = GUID_NULL;
    GUID used = GUID_NULL;
    EXPECT_EQ(seeking->QueryPreferredFormat(&preferred), S_OK);
    EXPECT_EQ(seeking->GetTimeFormat(&used), S_OK);
    EXPECT_TRUE(preferred == known && used == known);

    LONGLONG converted = 0;
    for (const auto& [to, from] : {std::pair<const GUID*, const GUID*>(nullptr, &known), {&known, nullptr}}) {
        EXPECT_EQ(seeking->ConvertTimeFormat(&converted, to, -5, from), S_OK);
        EXPECT_EQ(converted, -5);
    }
    EXPECT_EQ(seeking->ConvertTimeFormat(&converted, &other, 1, nullptr), E_INVALIDARG);
    EXPECT_EQ(seeking->ConvertTimeFormat(&converted, nullptr, 1, &other), E_INVALIDARG);
}

TEST_F(Seeking, EveryNullPointerIsRefused)
{
    EXPECT_EQ(seeking->GetCapabilities(nullptr), E_POINTER);
    EXPECT_EQ(seeking->CheckCapabilities(nullptr), E_POINTER);
    EXPECT_EQ(seeking->IsFormatSupported(nullptr), E_POINTER);
    EXPECT_EQ(seeking->QueryPreferredFormat(nullptr), E_POINTER);
    EXPECT_EQ(seeking->GetTimeFormat(nullptr), E_POINTER);
    EXPECT_EQ(seeking->IsUsingTimeFormat(nullptr), E_POINTER);
    EXPECT_EQ(seeking->SetTimeFormat(nullptr), E_POINTER);
    EXPECT_EQ(seeking->GetDuration(nullptr), E_POINTER);
    EXPECT_EQ(seeking->GetStopPosition(nullptr), E_POINTER);
    EXPECT_EQ(seeking->GetCurrentPosition(nullptr), E_POINTER);
    EXPECT_EQ(seeking->ConvertTimeFormat(nullptr, nullptr, 0, nullptr), E_POINTER);
    EXPECT_EQ(seeking->GetRate(nullptr), E_POINTER);
    EXPECT_EQ(seeking->GetPreroll(nullptr), E_POINTER);
    EXPECT_EQ(seeking->SetPositions(nullptr, AM_SEEKING_AbsolutePositioning, nullptr, 0), E_POINTER);
    EXPECT_EQ(seeking->SetPositions(nullptr, 0, nullptr, AM_SEEKING_AbsolutePositioning), E_POINTER);
    EXPECT_EQ(seeking->SetPositions(nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(seeking->GetPositions(nullptr, nullptr), S_OK);
}

TEST_F(Seeking, MovesStartAndStopByEveryKindOfFlag)
{
    constexpr DWORD kStay = AM_SEEKING_NoPositioning;
    constexpr DWORD kAbsolute = AM_SEEKING_AbsolutePositioning;
    constexpr DWORD kRelative = AM_SEEKING_RelativePositioning;
    constexpr DWORD kIncremental = AM_SEEKING_IncrementalPositioning;
    // One after the other; times in frames.
    constexpr struct {
        LONGLONG start;
        DWORD startFlags;
        LONGLONG stop;
        DWORD stopFlags;
        LONGLONG newStart;
        LONGLONG newStop;
    } kCases[] = {
        {10, kAbsolute, 90, kAbsolute, 10, 90},   {5, kRelative, -10, kRelative, 15, 80},
        {20, kAbsolute, 5, kIncremental, 20, 25}, {1, kStay, 7, kIncremental, 20, 27},
        {30, kAbsolute, 1, kStay, 30, 27},        {1, kStay, 1, kStay, 30, 27},
    };
    LONGLONG start = 0;
    LONGLONG stop = 0;
    for (const auto& one : kCases) {
        start = one.start * kFrame;
        stop = one.stop * kFrame;
        ASSERT_EQ(seeking->SetPositions(&start, one.startFlags | AM_SEEKING_ReturnTime, &stop,
                                        one.stopFlags | AM_SEEKING_ReturnTime),
                  S_OK);
        EXPECT_EQ(start, one.newStart * kFrame) << "handed back as absolute times";
        EXPECT_EQ(stop, one.newStop * kFrame);
        EXPECT_EQ(seeking->GetPositions(&start, &stop), S_OK);
        EXPECT_EQ(start, one.newStart * kFrame);
        EXPECT_EQ(stop, one.newStop * kFrame);
    }
    stop = INT64_MAX;
    ASSERT_EQ(seeking->SetPositions(nullptr, 0, &stop, kRelative), S_OK);
    EXPECT_EQ(seeking->GetStopPosition(&stop), S_OK);
    EXPECT_EQ(stop, INT64_MAX) << "a sum beyond 64 bits is held";
}

TEST_F(Seeking, SaysThatTheWholeFileIsAvailableAndWhichOfTheAskedCapabilitiesItHas)
{
    LONGLONG value[5] = {9, 9, 9, 9, 9};
    EXPECT_EQ(seeking->GetAvailable(&value[0], &value[1]), S_OK);
    EXPECT_EQ(seeking->GetDuration(&value[2]), S_OK);
    EXPECT_EQ(seeking->GetStopPosition(&value[3]), S_OK);
    EXPECT_EQ(seeking->GetPreroll(&value[4]), S_OK);
    EXPECT_THAT(value, testing::ElementsAre(0, kDuration, kDuration, kDuration, 0));
    EXPECT_EQ(seeking->GetAvailable(nullptr, nullptr), S_OK);
    EXPECT_EQ(seeking->GetCurrentPosition(&value[0]), E_NOTIMPL) << "as the capabilities say";
    double rate = 0;
    EXPECT_EQ(seeking->SetRate(0.25), S_OK);
    EXPECT_EQ(seeking->GetRate(&rate), S_OK);
    EXPECT_EQ(rate, 0.25);

    constexpr struct {
        DWORD asked;
        DWORD had;
        HRESULT answer;
    } kCases[] = {
        {0x37, 0x37, S_OK},
        {AM_SEEKING_CanSeekAbsolute | AM_SEEKING_CanPlayBackwards, AM_SEEKING_CanSeekAbsolute, S_FALSE},
        {AM_SEEKING_CanGetCurrentPos, 0, E_FAIL},
    };
    for (const auto& one : kCases) {
        DWORD asked = one.asked;
        EXPECT_EQ(seeking->CheckCapabilities(&asked), one.answer);
        EXPECT_EQ(asked, one.had);
    }
}

}  // namespace vex::test
