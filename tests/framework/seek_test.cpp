// Where a seek goes, what it does to every pin, and when it does nothing.
#include <gtest/gtest.h>

#include <thread>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

using Kind = GRecordedEvent::Kind;

constexpr DWORD kAbsolute = AM_SEEKING_AbsolutePositioning;
constexpr DWORD kRelative = AM_SEEKING_RelativePositioning;
constexpr DWORD kStay = AM_SEEKING_NoPositioning;

REFERENCE_TIME ToTenthFrame(REFERENCE_TIME time, GSeekMode) { return time / (10 * kFrame) * (10 * kFrame); }

}  // namespace

TEST(Seek, EveryPinStartsASegmentAtTheTimeReachedWithADiscontinuity)
{
    GRig rig(Movie(200));
    rig.RunUntilBlocked();
    const GWatchdog watchdog("a seek with peers that block");
    ASSERT_EQ(rig.Seek(1, 150 * kFrame), S_OK);
    rig.LetGoAndWaitForEnds();
    for (std::size_t pin = 0; pin < 2; ++pin) {
        const auto events = rig.Sink(pin).SinceFlush();
        ASSERT_EQ(events.size(), 52u);
        EXPECT_EQ(events[0].kind, Kind::Segment);
        EXPECT_EQ(events[0].start, 150 * kFrame);
        EXPECT_EQ(events[0].stop, 200 * kFrame);
        EXPECT_EQ(events[0].rate, 1.0);
        EXPECT_TRUE(events[1].sample.discontinuity);
        EXPECT_TRUE(events[1].sample.sync);
        EXPECT_TRUE(events[1].sample.preroll) << "a relative start of exactly 0";
        EXPECT_FALSE(events[2].sample.preroll);
        EXPECT_EQ(events[1].sample.start, 0);
        EXPECT_EQ(events[1].sample.stop, kFrame);
        EXPECT_EQ(events[1].sample.mediaStart, 150 * kFrame / 100'000) << "media times are the file's";
        EXPECT_EQ(events[2].sample.start, kFrame);
        EXPECT_FALSE(events[2].sample.discontinuity);
        LONGLONG current = 0;
        EXPECT_EQ(rig.Seeking(pin)->GetPositions(&current, nullptr), S_OK);
        EXPECT_EQ(current, 150 * kFrame);
    }
}

TEST(Seek, ToTheCurrentPositionDoesNothingAndPastTheEndLandsAtTheDuration)
{
    GRig rig(Movie(20));
    rig.RunUntilBlocked();
    EXPECT_EQ(rig.Seek(0, 0), S_OK);
    EXPECT_TRUE(rig.Log().Seeks().empty());
    EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), 1) << "that of the start";

    EXPECT_EQ(rig.Reached(0, INT64_MAX, kAbsolute | AM_SEEKING_ReturnTime), 20 * kFrame);
    rig.LetGoAndWaitForEnds();
    EXPECT_TRUE(rig.Sink(0).SegmentSamples().empty());
    EXPECT_EQ(rig.Log().Seeks().size(), 1u);

    rig.PlayFrom(0, 5 * kFrame);  // back after the end
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 15u);
}

// A graph seeks to 0 before it runs again, although nobody ever seeked away from there.
TEST(Seek, ToTheStartPlaysAllAgainOnceStopped)
{
    enum class GBefore : std::uint8_t { Middle, End, RunsOn };
    for (const GBefore before : {GBefore::Middle, GBefore::End, GBefore::RunsOn}) {
        GRig rig(Movie(20));
        before == GBefore::Middle ? rig.RunUntilBlocked() : rig.PlayToEnd();
        rig.StopGraph();
        if (before == GBefore::RunsOn) {
            EXPECT_EQ(rig.Filter()->Run(0), S_OK) << "reading goes on where it was";
        }
        rig.ForgetEvents();
        for (std::size_t pin = 0; pin < 2; ++pin)
            ASSERT_EQ(rig.Seek(pin, 0), S_OK);
        EXPECT_EQ(rig.Log().Seeks().size(), 1u) << "the second pin only repeats it";
        ASSERT_EQ(rig.Filter()->Run(0), S_OK);
        rig.LetGoAndWaitForEnds();
        const auto samples = rig.Sink(0).SegmentSamples();
        ASSERT_EQ(samples.size(), 20u);
        EXPECT_TRUE(samples[0].discontinuity);
    }
}

TEST(Seek, RelativeAndReachedPositions)
{
    GScript script = Movie(100);
    script.seekLands = ToTenthFrame;
    GRig rig(std::move(script));
    EXPECT_EQ(rig.Reached(0, 37 * kFrame), 30 * kFrame) << "the caller is told where it landed";
    EXPECT_EQ(rig.Reached(0, 12 * kFrame, kRelative), 40 * kFrame);
    EXPECT_EQ(rig.Reached(0, -INT64_MAX, kRelative), 0);
    LONGLONG position = 1;
    EXPECT_EQ(rig.Seeking(0)->SetPositions(&position, AM_SEEKING_IncrementalPositioning, nullptr, kStay), E_INVALIDARG);
    EXPECT_EQ(rig.Log().Seeks().size(), 3u);
}

TEST(Seek, AlignsOnKeyFramesOnlyWhenBothOptionsAreOnAndThePositionIsNew)
{
    constexpr struct {
        bool keyFrames;
        bool preroll;
        REFERENCE_TIME target;
        DWORD flags;
        GSeekMode mode;
    } kCases[] = {
        {false, false, 5 * kFrame, kAbsolute, GSeekMode::Independent},
        {true, false, 5 * kFrame, kAbsolute, GSeekMode::Independent},
        {false, true, 5 * kFrame, kAbsolute, GSeekMode::Independent},
        {true, true, 5 * kFrame, kAbsolute, GSeekMode::KeyFrame},
        {true, true, 0, kAbsolute, GSeekMode::Independent},
        {true, true, 0, kRelative, GSeekMode::Independent},  // where the pin believes to be already
    };
    for (const auto& one : kCases) {
        GRig rig(Movie(20));
        rig.Scripted().SetOptions(one.keyFrames, one.preroll);
        ASSERT_EQ(rig.Seek(0, 2 * kFrame), S_OK);
        rig.Reached(1, one.target, one.flags);
        ASSERT_EQ(rig.Log().Seeks().size(), 2u);
        EXPECT_EQ(rig.Log().Seeks()[1].mode, one.mode);
    }
}

TEST(Seek, ThatSearchesTheFileGivesWayToAStopAndCountsAsNotMade)
{
    GScript script = Movie(200);
    std::atomic<int> waits{0};
    script.onSeek = [&](const std::atomic<bool>& interrupted) {
        if (waits++ == 0)
            for (const GHangCheck hang("a stop that waits for a seek that searches"); !interrupted; hang.Check())
                std::this_thread::yield();
        else
            EXPECT_FALSE(interrupted) << "the stop is over";
    };
    GRig rig(script);
    rig.Start();
    GNativeThread seeker([&] { EXPECT_EQ(rig.Seek(0, 50 * kFrame), S_OK); });
    for (const GHangCheck hang("a seek that does not begin"); waits == 0; hang.Check())
        std::this_thread::yield();
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
    seeker.join();
    EXPECT_EQ(rig.Seek(0, 50 * kFrame), S_OK);
    EXPECT_EQ(rig.Log().Seeks().size(), 2u);
}

// Every graph relays one seek to all pins. What lands elsewhere than asked tells the rules apart.
TEST(SeekRelay, CountsPerPinOrOncePerTarget)
{
    GScript script = Movie(100);
    script.seekLands = [](REFERENCE_TIME time, GSeekMode) { return time == 50 * kFrame ? time : time - kFrame; };
    GRig each(script, kPlainRules);
    GRig once(script, kRelayRules);
    for (GRig* rig : {&each, &once}) {
        rig->ConnectAll();
        ASSERT_EQ(rig->Filter()->Run(0), S_OK);
        for (const REFERENCE_TIME target : {50 * kFrame, 40 * kFrame})
            for (std::size_t pin = 0; pin < 2; ++pin)
                ASSERT_EQ(rig->Seek(pin, target), S_OK);
    }
    EXPECT_EQ(each.Log().Seeks().size(), 3u) << "an exact landing is done once";
    EXPECT_EQ(once.Log().Seeks().size(), 2u);
    // The user asks for the same place again, which is not a relayed seek.
    for (const std::size_t pin : {1u, 0u}) {
        ASSERT_EQ(once.Seek(pin, 40 * kFrame), S_OK);
        EXPECT_EQ(once.Log().Seeks().size(), 3u) << "pin " << pin;
    }
    for (const std::size_t pin : {1u, 0u})
        EXPECT_EQ(once.Reached(pin, 60 * kFrame), 59 * kFrame) << "a relayed seek reports where the first one landed";
}

TEST(StopPosition, GoesIntoTheSegmentThatTheSeekStartsAndCountsFromWhereItLanded)
{
    GScript script = Movie(100);
    script.seekLands = ToTenthFrame;
    GRig rig(std::move(script));
    rig.RunUntilBlocked();
    rig.ForgetEvents();
    LONGLONG position = 25 * kFrame;
    LONGLONG stop = 30 * kFrame;
    ASSERT_EQ(rig.Seeking(0)->SetPositions(&position, kAbsolute, &stop,
                                           AM_SEEKING_IncrementalPositioning | AM_SEEKING_ReturnTime),
              S_OK);
    EXPECT_EQ(position, 20 * kFrame);
    EXPECT_EQ(stop, 50 * kFrame);
    rig.LetGoAndWaitForEnds();
    EXPECT_EQ(rig.Sink(0).Count(Kind::Segment), 1) << "a second restart would cost the first samples";
    EXPECT_EQ(rig.Sink(0).SinceFlush().at(0).stop, 50 * kFrame);
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 80u);
}

TEST(StopPosition, AloneRestartsThePinWithWhatIsQueued)
{
    GRig rig(Movie(200));
    rig.RunUntilBlocked();
    const GWatchdog watchdog("a new stop position with a peer that blocks");
    rig.ForgetEvents();
    LONGLONG stop = 40 * kFrame;
    ASSERT_EQ(rig.Seeking(0)->SetPositions(nullptr, kStay, &stop, kAbsolute | AM_SEEKING_ReturnTime), S_OK);
    ASSERT_EQ(rig.Seeking(0)->SetPositions(nullptr, kStay, &stop, kAbsolute), S_OK);
    EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), 1) << "a stop that stays restarts nothing";
    EXPECT_EQ(rig.Sink(1).Count(Kind::BeginFlush), 0) << "the other pin plays on";
    rig.LetGoAndWaitForEnds();
    const auto events = rig.Sink(0).SinceFlush();
    EXPECT_EQ(events.at(0).stop, 40 * kFrame);
    EXPECT_EQ(events.at(1).sample.start, kFrame) << "only what was inside the peer is gone";
    EXPECT_TRUE(events.at(1).sample.discontinuity);
    EXPECT_EQ(events.size(), 201u);
    EXPECT_TRUE(rig.Log().Seeks().empty());
}

TEST(Rate, ScalesTimesFromTheNextSegmentOnAndAfterTheEndSaysTheEndAgain)
{
    GRig rig(Movie(20));
    const auto seeking = rig.Seeking(0);
    for (const double bad :
         {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        EXPECT_EQ(seeking->SetRate(bad), E_INVALIDARG) << bad;
    rig.RunUntilBlocked();
    const GWatchdog watchdog("a new rate with a peer that blocks");
    ASSERT_EQ(seeking->SetRate(3.0), S_OK);
    rig.LetGoAndWaitForEnds();
    const auto events = rig.Sink(0).SinceFlush();
    EXPECT_EQ(events.at(0).rate, 3.0);
    EXPECT_EQ(events.at(1).sample.start, static_cast<REFERENCE_TIME>(static_cast<double>(kFrame) / 3.0));
    EXPECT_EQ(events.at(1).sample.stop, static_cast<REFERENCE_TIME>(static_cast<double>(2 * kFrame) / 3.0));
    EXPECT_EQ(events.at(1).sample.mediaStart, kFrame / 100'000) << "media times know no rate";
    double rate = 0;
    EXPECT_EQ(rig.Seeking(1)->GetRate(&rate), S_OK);
    EXPECT_EQ(rate, 1.0) << "the rate is a pin's own";

    rig.Sink(0).ForgetEvents();
    ASSERT_EQ(seeking->SetRate(2.0), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).Count(Kind::Segment), 1);
}

// The position that holds afterwards is the old one, and times are right whatever the handler reads next.
TEST(Seek, ThatRunsOutOfMemoryIsReportedAndTheNextOneCounts)
{
    for (const REFERENCE_TIME next : {20 * kFrame, REFERENCE_TIME{5 * kFrame}}) {
        bool fails = false;
        GScript script = Movie(50);
        script.seekLands = [&](REFERENCE_TIME time, GSeekMode) {
            return std::exchange(fails, false) ? throw std::bad_alloc() : time;
        };
        GRig rig(std::move(script));
        ASSERT_EQ(rig.Seek(1, 5 * kFrame), S_OK);
        rig.RunUntilBlocked();
        fails = true;
        LONGLONG position = 20 * kFrame;
        LONGLONG stop = kFrame;
        EXPECT_EQ(rig.Seeking(0)->SetPositions(&position, kAbsolute, &stop, kAbsolute), E_OUTOFMEMORY);
        EXPECT_EQ(rig.Seeking(0)->GetPositions(&position, &stop), S_OK);
        EXPECT_EQ(position, 5 * kFrame);
        EXPECT_EQ(stop, 50 * kFrame);
        rig.LetGoAndWaitForEnds();
        EXPECT_EQ(rig.Sink(0).SinceFlush().at(0).start, 5 * kFrame);
        EXPECT_EQ(rig.Sink(0).SegmentSamples().at(0).start, kFrame) << "one was inside the peer";

        rig.PlayFrom(1, next);
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), static_cast<std::size_t>(50 - next / kFrame));
    }
}

TEST(RefusedSeek, AskedForBeforehandDisturbsNothing)
{
    for (const bool running : {false, true}) {
        GScript script = Movie(200);
        script.accepts = [](REFERENCE_TIME time) { return time < 200 * kFrame; };
        GRig rig(std::move(script), kRelayRules);
        ASSERT_EQ(rig.Seek(0, kFrame), S_OK);
        if (running)
            rig.RunUntilBlocked();
        rig.ForgetEvents();
        for (std::size_t pin = 0; pin < 2; ++pin) {
            EXPECT_EQ(rig.Reached(pin, INT64_MAX, kAbsolute | AM_SEEKING_ReturnTime), kFrame)
                << "the position that holds";
            EXPECT_EQ(rig.Sink(pin).Count(Kind::BeginFlush), 0);
        }
        EXPECT_EQ(rig.Log().Seeks().size(), 1u);
        EXPECT_EQ(rig.Log().Runs().size(), running ? 1u : 0u);
    }
}

// The handler finds out while it seeks: by then the pins are flushed. What was inside the peers is lost, nothing else.
TEST(RefusedSeek, ByTheHandlerGoesOnWithoutAGap)
{
    GScript script = Movie(1000, false);
    script.refuses = [](REFERENCE_TIME time) { return time == 700 * kFrame; };
    GRig rig(std::move(script));
    rig.RunUntilBlocked();
    rig.Log().WaitForPayloads(302);  // the queue is full, one packet is in the reader's hands
    rig.ForgetEvents();
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(rig.Seek(0, 700 * kFrame), S_OK);
    EXPECT_EQ(rig.Log().Seeks().size(), 3u);
    EXPECT_EQ(rig.Log().Runs().size(), 1u) << "the run goes on";
    rig.LetGoAndWaitForEnds();
    const auto events = rig.Sink(0).SinceFlush();
    EXPECT_EQ(events.at(0).start, 0);
    EXPECT_TRUE(events.at(1).sample.discontinuity);
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_GE(samples.size(), 997u) << "each restart may cost one";
    for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_EQ(samples[samples.size() - 1 - i].start, static_cast<REFERENCE_TIME>(999 - i) * kFrame);
    EXPECT_EQ(rig.Sink(0).Count(Kind::End), 1);

    // At the end it is the end that is said again, once.
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 700 * kFrame), S_OK);
    rig.Sink(0).WaitForEnd();
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 990 * kFrame), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 10u);
    EXPECT_EQ(rig.Sink(0).Count(Kind::End), 1);
}

TEST(Duration, ThatGrowsMovesTheRangeAndAStopAtTheEnd)
{
    constexpr struct {
        const GFilterRules& rules;
        REFERENCE_TIME firstStop;
        REFERENCE_TIME stop;
    } kCases[] = {{kPlainRules, 20 * kFrame, 150 * kFrame}, {kOpenRules, 100 * kFrame, 150 * kFrame}};
    for (const auto& one : kCases) {
        GRig rig(Movie(20), one.rules);
        const auto seeking = rig.Seeking(0);
        LONGLONG time = 0;
        EXPECT_EQ(seeking->GetStopPosition(&time), S_OK);
        EXPECT_EQ(time, one.firstStop);
        rig.PlayToEnd();
        rig.Log().grownTo = 150 * kFrame;
        LONGLONG stop = kFrame;
        EXPECT_EQ(rig.Seeking(1)->SetPositions(nullptr, kStay, &stop, kAbsolute), S_OK);
        EXPECT_EQ(seeking->GetStopPosition(&time), S_OK);
        EXPECT_EQ(time, one.stop);
        for (const REFERENCE_TIME now : {150 * kFrame, 0 * kFrame}) {
            rig.Log().grownTo = now;
            EXPECT_EQ(seeking->GetDuration(&time), S_OK);
            EXPECT_EQ(time, 150 * kFrame) << "never less than was said";
        }
        rig.ForgetEvents();
        EXPECT_EQ(rig.Reached(0, 140 * kFrame), 140 * kFrame) << "a seek is limited to what is known now";
        rig.LetGoAndWaitForEnds();
        EXPECT_EQ(rig.Sink(0).SinceFlush().at(0).stop, one.stop);
        EXPECT_EQ(rig.Sink(1).SinceFlush().at(0).stop, kFrame) << "that the host has set";
    }
}

}  // namespace vex::test
