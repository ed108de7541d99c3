// State changes, the graph and the clock.
#include <gtest/gtest.h>

#include <thread>

#include "support/scripted_filter.h"
#include "support/test_object.h"

namespace vex::test {

namespace {

class CClock final : public GTestObject<IReferenceClock> {
public:
    HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE AdviseTime(REFERENCE_TIME, REFERENCE_TIME, HEVENT, DWORD_PTR*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE AdvisePeriodic(REFERENCE_TIME, REFERENCE_TIME, HSEMAPHORE, DWORD_PTR*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD_PTR) override { return E_NOTIMPL; }
};

}  // namespace

TEST(State, FollowsTheCallsAndRunningPausesFirst)
{
    GRig rig(Movie(3));
    EXPECT_EQ(rig.State(), State_Stopped);
    EXPECT_EQ(rig.Filter()->Run(0), S_OK) << "with nothing connected too";
    EXPECT_EQ(rig.State(), State_Running);
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    rig.ConnectAll();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(rig.Filter()->Pause(), S_OK);
        EXPECT_EQ(rig.State(), State_Paused);
    }
    EXPECT_EQ(rig.Filter()->Run(0), S_OK);
    EXPECT_EQ(rig.State(), State_Running);
    EXPECT_EQ(rig.Filter()->Pause(), S_OK);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(rig.Filter()->Stop(), S_OK);
        EXPECT_EQ(rig.State(), State_Stopped);
    }
    EXPECT_EQ(rig.Filter()->GetState(0, nullptr), E_POINTER);
}

// Another thread is in the middle of a pause, which a peer holds up.
TEST(State, AskedDuringAChangeWaitsAsLongAsItIsToldUnlessItMakesTheChange)
{
    const GWatchdog watchdog("a state asked for during a change");
    CAMEvent inside;
    CAMEvent goOn;
    IBaseFilter* filter = nullptr;
    FILTER_STATE state = State_Running;
    GRig rig(Movie(3, false), kPlainRules, PinsOf<CCallingPin>(std::function<void(CVexOutputPin&)>([&](CVexOutputPin&) {
                 FILTER_STATE now = State_Running;
                 EXPECT_EQ(filter->GetState(INFINITE, &now), VFW_S_STATE_INTERMEDIATE);
                 EXPECT_EQ(now, State_Stopped);
                 inside.Set();
                 goOn.Wait();
             })));
    filter = rig.Filter();
    rig.ConnectAll();
    std::thread pausing([&] { EXPECT_EQ(filter->Pause(), S_OK); });
    inside.Wait();
    EXPECT_EQ(filter->GetState(0, &state), VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(filter->GetState(5, &state), VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(state, State_Stopped);
    std::thread asking([&] { EXPECT_EQ(rig.State(), State_Paused); });
    goOn.Set();
    asking.join();
    pausing.join();
}

TEST(Graph, IsKnownButNotOwnedAndTheClockIsOwnedUntilReplaced)
{
    GRig rig(Movie(3));
    const auto graph = GComPtr<CGraphSite>::Adopt(new CGraphSite(std::make_shared<GProgress>()));
    ASSERT_EQ(rig.Filter()->JoinFilterGraph(graph.Get(), VEX_W("source 1")), S_OK);
    EXPECT_EQ(graph->AddRef(), 2u) << "the graph owns the filter: a reference back would keep both for ever";
    EXPECT_EQ(rig.Scripted().NotifyEvent(EC_ERRORABORT, E_ABORT, 0), S_OK);
    EXPECT_EQ(graph->FirstError(), E_ABORT);
    FILTER_INFO info{};
    ASSERT_EQ(rig.Filter()->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(WString(info.achName), VEX_W("source 1"));
    ASSERT_EQ(info.pGraph, graph.Get());
    EXPECT_EQ(info.pGraph->Release(), 2u);
    EXPECT_EQ(graph->Release(), 1u);
    ASSERT_EQ(rig.Filter()->JoinFilterGraph(nullptr, nullptr), S_OK);
    ASSERT_EQ(rig.Filter()->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.pGraph, nullptr);
    EXPECT_EQ(rig.Scripted().NotifyEvent(EC_COMPLETE, 0, 0), E_NOTIMPL);
    EXPECT_EQ(rig.Filter()->QueryFilterInfo(nullptr), E_POINTER);

    const auto clock = GComPtr<CClock>::Adopt(new CClock);
    ASSERT_EQ(rig.Filter()->SetSyncSource(clock.Get()), S_OK);
    EXPECT_EQ(clock->References(), 2u);
    GComPtr<IReferenceClock> told;
    ASSERT_EQ(rig.Filter()->GetSyncSource(told.Put()), S_OK);
    EXPECT_EQ(told.Get(), clock.Get());
    told.Reset();
    ASSERT_EQ(rig.Filter()->SetSyncSource(nullptr), S_OK);
    EXPECT_EQ(clock->References(), 1u);
    EXPECT_EQ(rig.Filter()->GetSyncSource(nullptr), E_POINTER);
}

}  // namespace vex::test
