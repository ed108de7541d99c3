// Peers that block, refuse, keep what they get or go away: whatever they do, the filter stops, seeks and ends.
#include <gtest/gtest.h>

#include <thread>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

enum class GAction : std::uint8_t { Stop, Seek, Rate, Drop };

struct GCase {
    GSinkTrick trick;
    const char* trickName;
    GAction action;
    const char* actionName;
};

constexpr struct {
    GSinkTrick trick;
    const char* name;
} kTricks[] = {
    {GSinkTrick::BlockReceive, "BlocksInReceive"},
    {GSinkTrick::BlockEndOfStream, "BlocksInEndOfStream"},
    {GSinkTrick::BlockNewSegment, "BlocksInNewSegment"},
    {GSinkTrick::Refuse, "Refuses"},
    {GSinkTrick::NoMore, "WantsNoMore"},
    {GSinkTrick::KeepSamples, "KeepsEverySample"},
    {GSinkTrick::LetGo, "DisconnectsMidway"},
};

constexpr struct {
    GAction action;
    const char* name;
} kActions[] = {{GAction::Stop, "Stop"}, {GAction::Seek, "Seek"}, {GAction::Rate, "Rate"}, {GAction::Drop, "Drop"}};

std::vector<GCase> AllCases()
{
    std::vector<GCase> cases;
    for (const auto& trick : kTricks)
        for (const auto& action : kActions)
            cases.push_back({trick.trick, trick.name, action.action, action.name});
    return cases;
}

// Long enough that the end is met only by the trick that wants it.
std::size_t FramesFor(GSinkTrick trick) { return trick == GSinkTrick::BlockEndOfStream ? 5 : 2000; }

// Until the trick has been played once.
void WaitForTrick(GRig& rig, GSinkTrick trick)
{
    switch (trick) {
    case GSinkTrick::BlockReceive:
    case GSinkTrick::BlockEndOfStream:
    case GSinkTrick::BlockNewSegment:
        rig.Sink(0).WaitUntilBlocked();
        break;
    case GSinkTrick::KeepSamples:
    case GSinkTrick::LetGo:
        rig.Log().WaitForPayloads(300);
        break;
    default:
        rig.Sink(1).WaitForEnd();  // the other pin goes on
        break;
    }
}

class HostilePeer : public testing::TestWithParam<GCase> {};

}  // namespace

TEST_P(HostilePeer, KeepsNothingWaiting)
{
    const GCase& one = GetParam();
    const GWatchdog watchdog(std::string(one.trickName) + ", " + one.actionName);
    GRig rig(Movie(FramesFor(one.trick)));
    rig.ConnectAll();
    rig.Sink(0).Play(one.trick);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    WaitForTrick(rig, one.trick);
    switch (one.action) {
    case GAction::Stop:
        // The filter alone, its peers still running: a graph would stop them first.
        EXPECT_EQ(rig.Filter()->Stop(), S_OK);
        break;
    case GAction::Seek:
        EXPECT_EQ(rig.Seek(0, kFrame), S_OK);
        EXPECT_EQ(rig.Seek(1, 3 * kFrame), S_OK);
        break;
    case GAction::Rate:
        EXPECT_EQ(rig.Seeking(0)->SetRate(2.0), S_OK);
        EXPECT_EQ(rig.Seeking(1)->SetRate(2.0), S_OK);
        break;
    case GAction::Drop:
        rig.DropFilter();
        break;
    }
}

INSTANTIATE_TEST_SUITE_P(Peers, HostilePeer, testing::ValuesIn(AllCases()), [](const auto& instance) {
    return std::string(instance.param.trickName) + instance.param.actionName;
});

TEST(Peers, OnesThatRefuseEndAloneWithoutEndOfStream)
{
    for (const GSinkTrick trick : {GSinkTrick::Refuse, GSinkTrick::NoMore}) {
        GRig rig(Movie(1000));
        rig.ConnectAll();
        rig.Sink(0).Play(trick);
        ASSERT_EQ(rig.Filter()->Run(0), S_OK);
        rig.Sink(1).WaitForEnd();
        EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 1000u);
        EXPECT_EQ(rig.Sink(0).Count(GRecordedEvent::Kind::End), 0u);
        EXPECT_TRUE(rig.Sink(0).Samples().empty());
        // A seek asks the peer again.
        rig.Sink(0).Play(GSinkTrick::None);
        ASSERT_EQ(rig.Seek(1, 900 * kFrame), S_OK);
        rig.Sink(0).WaitForEnd();
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 100u);
    }
}

TEST(Peers, ABlockedOneHoldsBackNobodyUntilItsQueueIsFull)
{
    GRig rig(Movie(200));
    rig.ConnectAll();
    rig.Sink(0).Play(GSinkTrick::BlockReceive);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(1).WaitForEnd();
    EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 200u);
}

// A streaming thread cannot wait for itself.
TEST(OwnThread, CallsThatWouldWaitForItAreRefused)
{
    GRig rig(Movie(10));
    HRESULT results[9] = {};
    std::atomic<bool> tried{false};
    rig.Sink(0).onReceive = [&](IMediaSample*) {
        if (tried.exchange(true))
            return S_OK;
        LONGLONG position = 5 * kFrame;
        FILTER_STATE state = State_Stopped;
        results[0] = rig.Filter()->Stop();
        results[1] = rig.Filter()->Pause();
        results[2] = rig.Filter()->Run(0);
        results[3] = rig.Seeking(0)->SetPositions(&position, AM_SEEKING_AbsolutePositioning, nullptr, 0);
        results[4] = rig.Seeking(1)->SetRate(2.0);
        results[5] = rig.Seeking(0)->SetPositions(nullptr, 0, &position, AM_SEEKING_AbsolutePositioning);
        results[6] = rig.Pin(1)->Disconnect();
        results[7] = rig.Scripted().Load(VEX_W("x"), nullptr);
        results[8] = rig.Filter()->GetState(INFINITE, &state);
        return S_OK;
    };
    rig.ConnectAll();
    const GWatchdog watchdog("a call from a streaming thread");
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(results[i], VFW_E_WRONG_STATE) << i;
    EXPECT_EQ(results[6], VFW_E_NOT_STOPPED);
    EXPECT_EQ(results[7], E_FAIL);
    EXPECT_TRUE(SUCCEEDED(results[8]));
    double rate = 0;
    EXPECT_EQ(rig.Seeking(1)->GetRate(&rate), S_OK);
    EXPECT_EQ(rate, 1.0) << "a refused rate must not stay behind";
}

// Another thread stops the filter and waits for this one, which asks how far that is.
TEST(OwnThread, AskingForTheStateDuringAStopDoesNotWaitForIt)
{
    GRig rig(Movie(10));
    CAMEvent inside;
    HRESULT asked = E_FAIL;
    rig.Sink(0).onReceive = [&](IMediaSample*) {
        inside.Set();
        FILTER_STATE state = State_Stopped;
        do
            asked = rig.Filter()->GetState(INFINITE, &state);
        while (asked == S_OK && state != State_Stopped);
        return S_OK;
    };
    rig.Connect(0);
    const GWatchdog watchdog("a state asked for on a streaming thread");
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    inside.Wait();
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    EXPECT_EQ(asked, VFW_S_STATE_INTERMEDIATE);
}

// The last reference is given back by a peer, inside a call of the filter's own thread.
TEST(OwnThread, TheLastReleaseEndsTheFilterElsewhere)
{
    const GWatchdog watchdog("a filter dropped by its own thread");
    GRig rig(Movie(1000));
    CAMEvent inside;
    CAMEvent goOn;
    CAMEvent dropped;
    std::atomic<bool> first{true};
    rig.Sink(0).onReceive = [&](IMediaSample*) {
        if (first.exchange(false)) {
            inside.Set();
            goOn.Wait();  // until nobody else is in a call
            rig.DropFilter();
            dropped.Set();
        }
        return S_OK;
    };
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    inside.Wait();
    goOn.Set();
    dropped.Wait();
}

TEST(Release, OfARunningFilterEndsItsThreads)
{
    GRig rig(Movie(1000));
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForSamples(1);
    const GWatchdog watchdog("dropping a running filter");
    rig.DropFilter();
}

TEST(Release, OfAFilterThatOnlyPausedOrOnlyLoaded)
{
    GRig paused(Movie(1000));
    paused.ConnectAll();
    ASSERT_EQ(paused.Filter()->Pause(), S_OK);
    paused.DropFilter();
    GRig loaded(Movie(10));
    loaded.DropFilter();
}

TEST(Peers, OneThatGoesBeforeTheBuffersAreMadeFailsThePauseWhole)
{
    GRig rig(Movie(10));
    rig.ConnectAll();
    // The peer's allocator has been taken over by somebody else: no buffer sizes.
    ALLOCATOR_PROPERTIES none{};
    ALLOCATOR_PROPERTIES granted{};
    ASSERT_EQ(rig.Sink(1).Allocator()->SetProperties(&none, &granted), S_OK);
    EXPECT_EQ(rig.Filter()->Pause(), VFW_E_SIZENOTSET);
    FILTER_STATE state = State_Running;
    EXPECT_EQ(rig.Filter()->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Stopped);
    EXPECT_EQ(rig.Pin(0)->Disconnect(), S_OK);
}

}  // namespace vex::test
