// State changes, the graph and the clock.
#include <gtest/gtest.h>

#include <thread>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

// A graph that counts references and takes events.
class CGraph final : public IFilterGraph, public IMediaEventSink {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
    {
        *ppv = riid == IID_IMediaEventSink ? static_cast<void*>(static_cast<IMediaEventSink*>(this)) : nullptr;
        if (!*ppv)
            return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter*, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR, IBaseFilter**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Disconnect(IPin*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Notify(LONG EventCode, LONG_PTR EventParam1, LONG_PTR) override
    {
        code = EventCode;
        parameter = EventParam1;
        return S_OK;
    }

    std::atomic<ULONG> references{1};
    std::atomic<LONG> code{0};
    std::atomic<LONG_PTR> parameter{0};
};

class CClock final : public IReferenceClock {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
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

    std::atomic<ULONG> references{1};
};

FILTER_STATE StateOf(IBaseFilter* filter)
{
    FILTER_STATE state = State_Running;
    EXPECT_EQ(filter->GetState(INFINITE, &state), S_OK);
    return state;
}

}  // namespace

TEST(State, FollowsTheCallsAndRunningPausesFirst)
{
    GRig rig(Movie(3));
    EXPECT_EQ(StateOf(rig.Filter()), State_Stopped);
    EXPECT_EQ(rig.Filter()->Run(0), S_OK) << "with nothing connected too";
    EXPECT_EQ(StateOf(rig.Filter()), State_Running);
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    rig.ConnectAll();
    EXPECT_EQ(rig.Filter()->Pause(), S_OK);
    EXPECT_EQ(StateOf(rig.Filter()), State_Paused);
    EXPECT_EQ(rig.Filter()->Pause(), S_OK);
    EXPECT_EQ(rig.Filter()->Run(0), S_OK);
    EXPECT_EQ(StateOf(rig.Filter()), State_Running);
    EXPECT_EQ(rig.Filter()->Pause(), S_OK);
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    EXPECT_EQ(StateOf(rig.Filter()), State_Stopped);
    EXPECT_EQ(rig.Filter()->GetState(0, nullptr), E_POINTER);
}

TEST(State, AnUnloadedFilterChangesStateAllTheSame)
{
    const GComPtr<CScriptedFilter> filter(new CScriptedFilter(Movie(3), kAviRules, std::make_shared<GScriptLog>()));
    EXPECT_EQ(filter->Run(0), S_OK);
    EXPECT_EQ(StateOf(filter.Get()), State_Running);
    EXPECT_EQ(filter->Stop(), S_OK);
}

// Another thread is in the middle of a pause, which a peer holds up.
TEST(State, AskedDuringAChangeWaitsAsLongAsItIsTold)
{
    const GWatchdog watchdog("a state asked for during a change");
    CAMEvent inside;
    CAMEvent goOn;
    std::atomic<bool> first{true};
    class CHoldingPin final : public CVexOutputPin {
    public:
        CHoldingPin(CVexFilter* holder, WString pinName, const GStreamInfo& info, std::function<void()> hold)
            : CVexOutputPin(holder, std::move(pinName), info), onActive(std::move(hold))
        {
        }
        HRESULT Active() override
        {
            onActive();
            return CVexOutputPin::Active();
        }

    private:
        const std::function<void()> onActive;
    };
    GRig held(Movie(3), kAviRules, [&](CVexFilter* owner, WString name, const GStreamInfo& stream) {
        return std::make_unique<CHoldingPin>(owner, std::move(name), stream, [&] {
            if (!first.exchange(false))
                return;
            inside.Set();
            goOn.Wait();
        });
    });
    held.ConnectAll();
    std::thread pausing([&] { EXPECT_EQ(held.Filter()->Pause(), S_OK); });
    inside.Wait();
    FILTER_STATE state = State_Running;
    EXPECT_EQ(held.Filter()->GetState(0, &state), VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(held.Filter()->GetState(5, &state), VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(state, State_Stopped);
    std::thread asking([&] { EXPECT_EQ(StateOf(held.Filter()), State_Paused); });
    goOn.Set();
    asking.join();
    pausing.join();
}

TEST(Graph, IsKnownButNotOwned)
{
    GRig rig(Movie(3));
    CGraph graph;
    EXPECT_EQ(rig.Scripted().NotifyEvent(EC_COMPLETE, 0, 0), E_NOTIMPL);
    ASSERT_EQ(rig.Filter()->JoinFilterGraph(&graph, VEX_W("source 1")), S_OK);
    EXPECT_EQ(graph.references, 1u) << "the graph owns the filter: a reference back would keep both for ever";
    EXPECT_EQ(rig.Scripted().NotifyEvent(EC_ERRORABORT, E_FAIL, 0), S_OK);
    EXPECT_EQ(graph.code, EC_ERRORABORT);
    FILTER_INFO info{};
    ASSERT_EQ(rig.Filter()->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(WString(info.achName), VEX_W("source 1"));
    ASSERT_EQ(info.pGraph, &graph);
    EXPECT_EQ(graph.references, 2u);
    info.pGraph->Release();
    ASSERT_EQ(rig.Filter()->JoinFilterGraph(nullptr, nullptr), S_OK);
    ASSERT_EQ(rig.Filter()->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(info.pGraph, nullptr);
    EXPECT_EQ(rig.Scripted().NotifyEvent(EC_COMPLETE, 0, 0), E_NOTIMPL);
    EXPECT_EQ(rig.Filter()->QueryFilterInfo(nullptr), E_POINTER);
}

// A buffer that cannot be made large enough ends the stream, and the graph hears why.
TEST(Graph, HearsOfAStreamThatHadToBeGivenUp)
{
    GScript script = Movie(5, false);
    script.packets[2].size = 1 << 20;
    GRig rig(std::move(script));
    CGraph graph;
    ASSERT_EQ(rig.Filter()->JoinFilterGraph(&graph, nullptr), S_OK);
    rig.ConnectAll();
    // Somebody else holds a sample of the allocator from the moment it is needed: its size cannot change.
    GComPtr<IMediaSample> kept;
    const auto allocator = rig.Sink(0).Allocator();
    ALLOCATOR_PROPERTIES two{2, 640 * 480, 1, 0};
    ASSERT_EQ(allocator->SetProperties(&two, &two), S_OK);
    ASSERT_EQ(allocator->Commit(), S_OK);
    ASSERT_EQ(allocator->GetBuffer(kept.Put(), nullptr, nullptr, 0), S_OK);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).Samples().size(), 2u);
    ASSERT_EQ(rig.Filter()->Stop(), S_OK);
    EXPECT_EQ(graph.code, EC_ERRORABORT);
    EXPECT_EQ(graph.parameter, VFW_E_BUFFERS_OUTSTANDING);
    kept.Reset();
    rig.Filter()->JoinFilterGraph(nullptr, nullptr);
}

TEST(Clock, IsOwnedUntilReplaced)
{
    GRig rig(Movie(3));
    CClock clock;
    ASSERT_EQ(rig.Filter()->SetSyncSource(&clock), S_OK);
    EXPECT_EQ(clock.references, 2u);
    GComPtr<IReferenceClock> told;
    ASSERT_EQ(rig.Filter()->GetSyncSource(told.Put()), S_OK);
    EXPECT_EQ(told.Get(), &clock);
    told.Reset();
    ASSERT_EQ(rig.Filter()->SetSyncSource(nullptr), S_OK);
    EXPECT_EQ(clock.references, 1u);
    EXPECT_EQ(rig.Filter()->GetSyncSource(nullptr), E_POINTER);
    CLSID id = GUID_NULL;
    EXPECT_EQ(rig.Filter()->GetClassID(&id), S_OK);
    EXPECT_NE(id, GUID_NULL);
}

}  // namespace vex::test
