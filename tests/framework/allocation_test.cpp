// Memory that runs short at every single allocation of a call: the call fails whole or not at all, and the filter can
// be stopped, released and used again.
#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

constexpr std::size_t kFrames = 60;
constexpr int kMostAllocations = 1000;  // of one call

// Calls `round` with every allocation in turn, until it says that its call needs no more than that.
template <class Round>
void ForEveryAllocation(const char* call, Round&& round)
{
    const GWatchdog watchdog(call);
    GFailingAllocation::HasFailed();
    int index = 0;
    while (index < kMostAllocations && round(index) && !testing::Test::HasFailure())
        ++index;
    EXPECT_GT(index, 0) << call << ": no allocation failed";
    EXPECT_LT(index, kMostAllocations) << call;
}

template <class Call>
HRESULT WithFailure(int index, Call&& call)
{
    const GFailingAllocation failing(index);
    return call();
}

// A rig whose sinks need no memory for what they write down: a peer that throws is another test.
void ReadyToRun(GRig& rig)
{
    for (std::size_t pin = 0; pin < 2; ++pin) {
        rig.Sink(pin).keepsBytes = false;
        for (int i = 0; i < 300; ++i)
            rig.Sink(pin).EndFlush();
    }
    rig.ForgetEvents();
    rig.ConnectAll();
}

void ExpectPlays(GRig& rig, std::size_t frames)
{
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, static_cast<REFERENCE_TIME>(kFrames - frames) * kFrame), S_OK);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.LetGoAndWaitForEnds();
    for (std::size_t pin = 0; pin < 2; ++pin)
        EXPECT_EQ(rig.Sink(pin).SegmentSamples().size(), frames);
}

}  // namespace

TEST(Allocation, EveryOneOfALoad)
{
    ForEveryAllocation("Load", [](int index) {
        const GComPtr<CScriptedFilter> filter(new CScriptedFilter(Movie(3)));
        const HRESULT hr = WithFailure(index, [&] { return filter->Load(VEX_W("a longer name of a file"), nullptr); });
        if (!GFailingAllocation::HasFailed())
            return false;
        EXPECT_EQ(filter->GetPinCount(), SUCCEEDED(hr) ? 2 : 0);
        VexLoadState state = VexLoad_None;
        EXPECT_EQ(filter->GetLoadState(&state, nullptr), S_OK);
        EXPECT_EQ(state, SUCCEEDED(hr) ? VexLoad_Done : VexLoad_Failed);
        LPOLESTR name = nullptr;
        EXPECT_EQ(filter->GetCurFile(&name, nullptr), S_OK);
        EXPECT_EQ(name != nullptr, SUCCEEDED(hr));
        CoTaskMemFree(name);
        EXPECT_EQ(filter->Load(VEX_W("a longer name of a file"), nullptr), FAILED(hr) ? S_OK : E_FAIL);
        EXPECT_EQ(filter->GetPinCount(), 2);
        return true;
    });
}

TEST(Allocation, EveryOneOfAConnection)
{
    ForEveryAllocation("Connect", [](int index) {
        GRig rig(Movie(3));
        const HRESULT hr = WithFailure(index, [&] { return rig.Pin(0)->Connect(&rig.Sink(0), nullptr); });
        if (!GFailingAllocation::HasFailed())
            return false;
        if (FAILED(hr)) {
            GComPtr<IPin> peer;
            EXPECT_EQ(rig.Pin(0)->ConnectedTo(peer.Put()), VFW_E_NOT_CONNECTED);
            EXPECT_EQ(rig.Sink(0).References(), 1u) << "allocation " << index;
            rig.Connect(0);
        }
        return true;
    });
}

TEST(Allocation, EveryOneOfAPause)
{
    ForEveryAllocation("Pause", [](int index) {
        GRig rig(Movie(kFrames));
        ReadyToRun(rig);
        const HRESULT hr = WithFailure(index, [&] { return rig.Filter()->Pause(); });
        if (!GFailingAllocation::HasFailed())
            return false;
        EXPECT_EQ(rig.State(), SUCCEEDED(hr) ? State_Paused : State_Stopped) << "allocation " << index;
        ExpectPlays(rig, kFrames - 1);
        return true;
    });
}

TEST(Allocation, EveryOneOfASeekANewRateAndAStop)
{
    for (const bool running : {false, true}) {
        const auto every = [&](const char* call, const std::function<HRESULT(GRig&)>& make) {
            ForEveryAllocation(call, [&](int index) {
                GRig rig(Movie(kFrames), kRelayRules);
                ReadyToRun(rig);
                for (std::size_t pin = 0; running && pin < 2; ++pin)
                    rig.Sink(pin).Play(GSinkTrick::BlockReceive);
                EXPECT_EQ(running ? rig.Filter()->Run(0) : S_OK, S_OK);
                for (std::size_t pin = 0; running && pin < 2; ++pin)
                    rig.Sink(pin).WaitUntilBlocked();
                const HRESULT hr = WithFailure(index, [&] { return make(rig); });
                LONGLONG position = 0;
                EXPECT_EQ(rig.Seeking(0)->GetPositions(&position, nullptr), S_OK);
                EXPECT_TRUE(position == 0 || hr == S_OK) << call << ", allocation " << index;
                const bool failed = GFailingAllocation::HasFailed();
                EXPECT_TRUE(failed || hr == S_OK);
                ExpectPlays(rig, 20);
                return failed;
            });
        };
        every("a seek", [](GRig& rig) { return rig.Seek(0, 10 * kFrame); });
        if (running)
            every("a new rate", [](GRig& rig) { return rig.Seeking(1)->SetRate(2.0); });
    }
}

// A stop needs none.
TEST(Allocation, IsNoNeedOfAStop)
{
    GRig rig(Movie(kFrames));
    ReadyToRun(rig);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    EXPECT_EQ(WithFailure(0, [&] { return rig.Filter()->Stop(); }), S_OK);
    EXPECT_FALSE(GFailingAllocation::HasFailed());
}

TEST(Allocation, EveryOneOfTheReaderAndOfAStreamingThread)
{
    for (const bool reader : {true, false}) {
        ForEveryAllocation(reader ? "the reader" : "a streaming thread", [&](int index) {
            GScript script = Movie(kFrames);
            for (GNextPacket& packet : script.packets)
                packet.size = packet.start == 30 * kFrame ? 1 << 20 : 100;
            if (reader)
                script.onRead = [&](std::size_t packet) { packet == 4 ? GFailingAllocation::Arm(index) : void(); };
            GRig rig(std::move(script));
            ReadyToRun(rig);
            std::atomic<bool> first{true};
            rig.Sink(0).onReceive = [&](IMediaSample*) {
                if (!reader && first.exchange(false))
                    GFailingAllocation::Arm(index);
                return S_OK;
            };
            EXPECT_EQ(rig.Filter()->Run(0), S_OK);
            rig.LetGoAndWaitForEnds();
            const bool failed = GFailingAllocation::HasFailed();
            EXPECT_EQ(rig.Filter()->Stop(), S_OK);  // the threads end, and with them what they were to fail at
            ExpectPlays(rig, 20);
            return failed;
        });
    }
}

// The last reference comes back from a peer, on a thread that cannot finish the filter, and there is no memory for one
// that could: the host does it, when it asks whether it may unload.
TEST(Allocation, EveryOneOfALastReleaseByAPeer)
{
    ForEveryAllocation("Release", [](int index) {
        GRig rig(Movie(kFrames));
        ReadyToRun(rig);
        CAMEvent inside;
        CAMEvent goOn;
        CAMEvent dropped;
        std::atomic<bool> first{true};
        rig.Sink(0).onReceive = [&](IMediaSample*) {
            if (first.exchange(false)) {
                inside.Set();
                goOn.Wait();
                GFailingAllocation::Arm(index);
                rig.DropFilter();
                GFailingAllocation::Disarm();
                dropped.Set();
            }
            return S_OK;
        };
        EXPECT_EQ(rig.Filter()->Run(0), S_OK);
        inside.Wait();
        goOn.Set();
        dropped.Wait();
        const bool failed = GFailingAllocation::HasFailed();
        while (!CUnknown::AllGone())
            std::this_thread::yield();
        return failed;
    });
}

}  // namespace vex::test
