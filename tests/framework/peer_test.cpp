// Peers that block, refuse, keep what they get or go away: whatever they do, the filter stops, seeks and ends.
#include <gtest/gtest.h>

#include <thread>

#include "dshow/class_factory.h"
#include "host/graph_site.h"
#include "support/limited_allocator.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

enum class GAction : std::uint8_t { Stop, Seek, Rate, Drop };

struct GNamedTrick {
    GSinkTrick trick;
    const char* name;
};

struct GNamedAction {
    GAction action;
    const char* name;
};

constexpr GNamedTrick kTricks[] = {
    {GSinkTrick::BlockReceive, "BlocksInReceive"},
    {GSinkTrick::BlockEndOfStream, "BlocksInEndOfStream"},
    {GSinkTrick::BlockNewSegment, "BlocksInNewSegment"},
    {GSinkTrick::Refuse, "Refuses"},
    {GSinkTrick::NoMore, "WantsNoMore"},
    {GSinkTrick::KeepSamples, "KeepsEverySample"},
    {GSinkTrick::LetGo, "DisconnectsMidway"},
};

constexpr GNamedAction kActions[] = {
    {GAction::Stop, "Stop"}, {GAction::Seek, "Seek"}, {GAction::Rate, "Rate"}, {GAction::Drop, "Drop"}};

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

class HostilePeer : public testing::TestWithParam<std::tuple<GNamedTrick, GNamedAction>> {};

}  // namespace

TEST_P(HostilePeer, KeepsNothingWaiting)
{
    const auto& [trick, action] = GetParam();
    const GWatchdog watchdog(std::string(trick.name) + ", " + action.name);
    GRig rig(Movie(FramesFor(trick.trick)));
    rig.ConnectAll();
    rig.Sink(0).Play(trick.trick);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    WaitForTrick(rig, trick.trick);
    switch (action.action) {
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

INSTANTIATE_TEST_SUITE_P(Peers, HostilePeer, testing::Combine(testing::ValuesIn(kTricks), testing::ValuesIn(kActions)),
                         [](const auto& instance) {
                             return std::string(std::get<0>(instance.param).name) + std::get<1>(instance.param).name;
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
        EXPECT_EQ(rig.Sink(0).Count(GRecordedEvent::Kind::End), 0);
        EXPECT_TRUE(rig.Sink(0).Samples().empty());
        // A new start asks the peer again, and says the end again when there is nothing else.
        rig.Sink(0).Play(GSinkTrick::None);
        ASSERT_EQ(rig.Seeking(0)->SetRate(2.0), S_OK);
        rig.Sink(0).WaitForEnd();
        rig.ForgetEvents();
        ASSERT_EQ(rig.Seek(1, 900 * kFrame), S_OK);
        rig.Sink(0).WaitForEnd();
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 100u);
    }
}

// A peer of two inputs lets go of one only when both are flushed.
TEST(Peers, AreAllFlushedBeforeOneIsWaitedFor)
{
    const GWatchdog watchdog("a peer that wants all of its inputs flushed");
    std::atomic<int> flushes{0};
    std::atomic<int> inside{0};
    GRig rig(Movie(50));
    for (std::size_t pin = 0; pin < 2; ++pin) {
        rig.Sink(pin).onReceive = [&](IMediaSample*) {
            const int before = flushes / 2;
            ++inside;
            while (flushes / 2 == before)
                std::this_thread::yield();
            --inside;
            return S_FALSE;
        };
        rig.Sink(pin).onBeginFlush = [&] { ++flushes; };
    }
    const auto waitUntilBothAreInside = [&] {
        while (inside != 2)
            std::this_thread::yield();
    };
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    waitUntilBothAreInside();
    EXPECT_EQ(rig.Seek(0, kFrame), S_OK);
    waitUntilBothAreInside();
    EXPECT_EQ(rig.Seeking(1)->SetRate(2.0), S_OK);
    waitUntilBothAreInside();
    EXPECT_EQ(rig.Filter()->Stop(), S_OK) << "of the filter alone: a graph would stop the peer first";
}

// It holds a packet that asks for a larger buffer, which it may not ask for any more, while another pin is being
// flushed.
TEST(Peers, AHaltThatTakesItsTimeCostsNoProcessor)
{
    const GWatchdog watchdog("a halt that takes its time");
    GScript script = Movie(20);
    for (GNextPacket& packet : script.packets)
        packet.size = packet.stream == 0 && packet.start > 0 ? 1 << 20 : 100;
    GRig rig(std::move(script));
    const auto memory = GComPtr<CLimitedAllocator>::Adopt(new CLimitedAllocator);
    rig.Sink(0).offered = GComPtr<IMemAllocator>(memory.Get());
    rig.RunUntilBlocked();
    rig.Sink(1).onBeginFlush = [&] {
        const int before = memory->asks;
        const auto start = std::chrono::steady_clock::now();
        while (memory->asks < before + 30)
            std::this_thread::yield();
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(25));
    };
    EXPECT_EQ(rig.Seek(0, 10 * kFrame), S_OK);
}

TEST(Peers, OneWithoutBuffersAfterARestartEndsAloneAndMayRecover)
{
    GRig rig(Movie(1000));
    const auto graph = GComPtr<CGraphSite>::Adopt(new CGraphSite(std::make_shared<GProgress>()));
    ASSERT_EQ(rig.Filter()->JoinFilterGraph(graph.Get(), nullptr), S_OK);
    const auto memory = GComPtr<CLimitedAllocator>::Adopt(new CLimitedAllocator);
    rig.Sink(0).offered = GComPtr<IMemAllocator>(memory.Get());
    rig.RunUntilBlocked();
    memory->commits = false;
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 10 * kFrame), S_OK);
    rig.LetGoAndWaitForEnds();
    EXPECT_TRUE(rig.Sink(0).Samples().empty());
    EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 990u) << "nobody waits for a pin that cannot play";
    EXPECT_EQ(graph->FirstError(), E_OUTOFMEMORY);
    memory->commits = true;
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 900 * kFrame), S_OK);
    rig.LetGoAndWaitForEnds();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 100u);
    rig.Filter()->JoinFilterGraph(nullptr, nullptr);
}

// What cannot be delivered for want of room ends the stream with its reason; data of this format flushes nobody.
TEST(Peers, WithBuffersTooSmallEndTheStreamWithTheReason)
{
    for (const bool lead : {true, false}) {
        GScript script = Movie(4, false);
        if (lead)
            script.streams[0].leadSamples = {{.data = std::vector<std::uint8_t>(3 << 20, 1)}};
        else
            script.packets[2].size = 3 << 20;
        GRig rig(std::move(script), kOpenRules);
        const auto graph = GComPtr<CGraphSite>::Adopt(new CGraphSite(std::make_shared<GProgress>()));
        ASSERT_EQ(rig.Filter()->JoinFilterGraph(graph.Get(), nullptr), S_OK);
        rig.Sink(0).offered = GComPtr<IMemAllocator>::Adopt(new CLimitedAllocator(1 << 20));
        rig.PlayToEnd();
        EXPECT_EQ(rig.Sink(0).Samples().size(), lead ? 0u : 2u);
        EXPECT_EQ(rig.Sink(0).Count(GRecordedEvent::Kind::BeginFlush), 1) << "that of the start";
        rig.StopGraph();
        EXPECT_EQ(graph->FirstError(), lead ? VFW_E_BUFFER_OVERFLOW : E_FAIL);
        rig.Filter()->JoinFilterGraph(nullptr, nullptr);
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
    LONGLONG position = 5 * kFrame;
    FILTER_STATE state = State_Stopped;
    const struct {
        const char* call;
        std::function<HRESULT()> make;
        HRESULT answer;
    } kCalls[] = {
        {"Stop", [&] { return rig.Filter()->Stop(); }, VFW_E_WRONG_STATE},
        {"Pause", [&] { return rig.Filter()->Pause(); }, VFW_E_WRONG_STATE},
        {"Run", [&] { return rig.Filter()->Run(0); }, VFW_E_WRONG_STATE},
        {"a seek", [&] { return rig.Seek(0, position); }, VFW_E_WRONG_STATE},
        {"a new stop",
         [&] { return rig.Seeking(0)->SetPositions(nullptr, 0, &position, AM_SEEKING_AbsolutePositioning); },
         VFW_E_WRONG_STATE},
        {"SetRate", [&] { return rig.Seeking(1)->SetRate(2.0); }, VFW_E_WRONG_STATE},
        {"Connect", [&] { return rig.Pin(1)->Connect(&rig.Sink(1), nullptr); }, VFW_E_NOT_STOPPED},
        {"Disconnect", [&] { return rig.Pin(1)->Disconnect(); }, VFW_E_NOT_STOPPED},
        {"Load", [&] { return rig.Scripted().Load(VEX_W("x"), nullptr); }, E_FAIL},
        {"GetState", [&] { return FAILED(rig.Filter()->GetState(INFINITE, &state)) ? E_FAIL : S_OK; }, S_OK},
    };
    std::atomic<bool> tried{false};
    rig.Sink(0).onReceive = [&](IMediaSample*) {
        if (tried.exchange(true))
            return S_OK;
        for (const auto& one : kCalls)
            EXPECT_EQ(one.make(), one.answer) << one.call;
        return S_OK;
    };
    rig.ConnectAll();
    const GWatchdog watchdog("a call from a streaming thread");
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
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

// The reader is stopped first, and may be inside a read that takes long.
TEST(State, AskedForWhileTheReaderIsStoppedIsAChangeInProgress)
{
    const GWatchdog watchdog("a stop that waits for a read");
    CAMEvent inside;
    CAMEvent goOn(true);
    GScript script = Movie(10);
    script.onRead = [&](std::size_t packet) {
        if (packet == 5) {
            inside.Set();
            goOn.Wait();
        }
    };
    GRig rig(std::move(script));
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    inside.Wait();  // a stop before that would find nothing to wait for
    GNativeThread stopping([&] { EXPECT_EQ(rig.Filter()->Stop(), S_OK); });
    FILTER_STATE state = State_Stopped;
    while (rig.Filter()->GetState(0, &state) != VFW_S_STATE_INTERMEDIATE)
        std::this_thread::yield();
    EXPECT_EQ(state, State_Running);
    goOn.Set();
    stopping.join();
    EXPECT_EQ(rig.Filter()->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Stopped);
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
    while (CanUnloadNow() != S_OK)
        std::this_thread::yield();
}

TEST(Release, OfAFilterThatRunsOrOnlyPausedOrOnlyLoaded)
{
    const GWatchdog watchdog("dropping a filter as it is");
    GRig running(Movie(1000));
    running.ConnectAll();
    ASSERT_EQ(running.Filter()->Run(0), S_OK);
    running.Sink(0).WaitForSamples(1);
    running.DropFilter();
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
