// Peers that block, refuse, keep what they get or go away: whatever they do, the filter stops, seeks and ends.
#include <gtest/gtest.h>

#include <thread>

#include "support/limited_allocator.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

// What shows that a trick has been played once.
enum class GSign : std::uint8_t { Blocks, ReadsAhead, OtherPinEnds };

constexpr struct {
    GSinkTrick trick;
    GSign sign;
    const char* peer;
} kTricks[] = {
    {GSinkTrick::BlockReceive, GSign::Blocks, "a peer that blocks in Receive"},
    {GSinkTrick::BlockEndOfStream, GSign::Blocks, "a peer that blocks in EndOfStream"},
    {GSinkTrick::BlockNewSegment, GSign::Blocks, "a peer that blocks in NewSegment"},
    {GSinkTrick::Refuse, GSign::OtherPinEnds, "a peer that refuses"},
    {GSinkTrick::NoMore, GSign::OtherPinEnds, "a peer that wants no more"},
    {GSinkTrick::KeepSamples, GSign::ReadsAhead, "a peer that keeps every sample"},
    {GSinkTrick::LetGo, GSign::ReadsAhead, "a peer that disconnects midway"},
};

// Long enough that the end is met only by the trick that wants it.
std::size_t FramesFor(GSinkTrick trick) { return trick == GSinkTrick::BlockEndOfStream ? 5 : 2000; }

void WaitFor(GRig& rig, GSign sign)
{
    if (sign == GSign::Blocks)
        rig.Sink(0).WaitUntilBlocked();
    else if (sign == GSign::ReadsAhead)
        rig.Log().WaitForPayloads(300);
    else
        rig.Sink(1).WaitForEnd();
}

}  // namespace

TEST(Peers, HostileOnesKeepNothingWaiting)
{
    const std::pair<const char*, std::function<void(GRig&)>> actions[] = {
        // The filter alone, its peers still running: a graph would stop them first.
        {"a stop", [](GRig& rig) { EXPECT_EQ(rig.Filter()->Stop(), S_OK); }},
        {"seeks",
         [](GRig& rig) {
             EXPECT_EQ(rig.Seek(0, kFrame), S_OK);
             EXPECT_EQ(rig.Seek(1, 3 * kFrame), S_OK);
         }},
        {"new rates",
         [](GRig& rig) {
             EXPECT_EQ(rig.Seeking(0)->SetRate(2.0), S_OK);
             EXPECT_EQ(rig.Seeking(1)->SetRate(2.0), S_OK);
         }},
        {"a release", [](GRig& rig) { rig.DropFilter(); }},
    };
    for (const auto& [trick, sign, peer] : kTricks) {
        for (const auto& [action, act] : actions) {
            const std::string what = std::string(peer) + ", " + action;
            SCOPED_TRACE(what);
            const GWatchdog watchdog(what);
            GRig rig(Movie(FramesFor(trick)));
            rig.ConnectAll();
            rig.Sink(0).Play(trick);
            ASSERT_EQ(rig.Filter()->Run(0), S_OK);
            WaitFor(rig, sign);
            act(rig);
            for (std::size_t pin = 0; pin < 2; ++pin)
                EXPECT_EQ(rig.Sink(pin).Count(GRecordedEvent::Kind::BeginFlush),
                          rig.Sink(pin).Count(GRecordedEvent::Kind::EndFlush))
                    << "a flush that never ends";
        }
    }
}

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
    rig.Start();
    waitUntilBothAreInside();
    EXPECT_EQ(rig.Seek(0, kFrame), S_OK);
    waitUntilBothAreInside();
    EXPECT_EQ(rig.Seeking(1)->SetRate(2.0), S_OK);
    waitUntilBothAreInside();
    EXPECT_EQ(rig.Filter()->Stop(), S_OK) << "of the filter alone: a graph would stop the peer first";
}

// The streaming thread flushes the peer by itself when it asks for a larger buffer: a halt comes before or after that.
TEST(Peers, AreNotFlushedByTwoAtOnce)
{
    const GWatchdog watchdog("a halt while the streaming thread flushes");
    GScript script = Movie(20, false);
    script.packets[1].size = 1 << 20;
    GRig rig(std::move(script));
    CAMEvent inside;
    std::atomic<int> flushes{0};
    rig.Sink(0).onBeginFlush = [&] {
        if (++flushes != 2)  // one at the start
            return;
        inside.Set();
        for (int i = 0; i < 10'000 && flushes == 2; ++i)
            std::this_thread::yield();
        EXPECT_EQ(flushes, 2);
    };
    rig.Start();
    inside.Wait();
    EXPECT_EQ(rig.Seek(0, 10 * kFrame), S_OK);
    rig.LetGoAndWaitForEnds();
    EXPECT_EQ(flushes, 3);
}

TEST(Peers, OneWithoutBuffersAfterARestartEndsAloneAndMayRecover)
{
    GRig rig(Movie(1000));
    const auto memory = GComPtr<CLimitedAllocator>::Adopt(new CLimitedAllocator);
    rig.Sink(0).offered = GComPtr<IMemAllocator>(memory.Get());
    rig.RunUntilBlocked();
    memory->commits = false;
    rig.PlayFrom(0, 10 * kFrame);
    EXPECT_TRUE(rig.Sink(0).Samples().empty());
    EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 990u) << "nobody waits for a pin that cannot play";
    EXPECT_EQ(rig.FirstError(), E_OUTOFMEMORY);
    memory->commits = true;
    rig.PlayFrom(0, 900 * kFrame);
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 100u);
}

// What cannot be delivered for want of room ends the stream with its reason.
TEST(Peers, WithBuffersTooSmallEndTheStreamWithTheReason)
{
    const struct {
        const GFilterRules& rules;
        bool lead;
        HRESULT reason;
        std::ptrdiff_t flushes;  // one of them at the start
    } kCases[] = {
        {kOpenRules, true, VFW_E_BUFFER_OVERFLOW, 1},
        {kOpenRules, false, E_FAIL, 1},
        {kPlainRules, false, E_FAIL, 2},
    };
    for (const auto& one : kCases) {
        GScript script = Movie(4, false);
        if (one.lead)
            script.streams[0].leadSamples = {{.data = std::vector<std::uint8_t>(3 << 20, 1)}};
        else
            script.packets[2].size = 3 << 20;
        GRig rig(std::move(script), one.rules);
        rig.Sink(0).offered = GComPtr<IMemAllocator>::Adopt(new CLimitedAllocator(1 << 20));
        rig.PlayToEnd();
        EXPECT_EQ(rig.Sink(0).Samples().size(), one.lead ? 0u : 2u);
        EXPECT_EQ(rig.Sink(0).Count(GRecordedEvent::Kind::BeginFlush), one.flushes);
        rig.StopGraph();
        EXPECT_EQ(rig.FirstError(), one.reason);
    }
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

// Another thread stops the filter and waits for the reader, which asks how far that is.
TEST(OwnThread, AskingForTheStateDuringAStopIsToldOfTheChangeWithoutWaitingForIt)
{
    const GWatchdog watchdog("a state asked for by the reader that is being stopped");
    CAMEvent inside;
    CAMEvent running;
    HRESULT asked = S_OK;
    FILTER_STATE state = State_Stopped;
    IBaseFilter* filter = nullptr;
    GScript script = Movie(10);
    script.onRead = [&](std::size_t packet) {
        if (packet != 5)
            return;
        inside.Set();
        running.Wait();
        while (asked == S_OK)
            asked = filter->GetState(INFINITE, &state);
    };
    GRig rig(std::move(script));
    filter = rig.Filter();
    rig.Start();
    running.Set();
    inside.Wait();  // a stop before that would find nothing to wait for
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    EXPECT_EQ(asked, VFW_S_STATE_INTERMEDIATE);
    EXPECT_EQ(state, State_Running);
    EXPECT_EQ(rig.State(), State_Stopped);
}

}  // namespace vex::test
