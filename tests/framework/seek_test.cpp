// Where a seek goes, what it does to every pin, and when it does nothing.
#include <gtest/gtest.h>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

using Kind = GRecordedEvent::Kind;

constexpr DWORD kAbsolute = AM_SEEKING_AbsolutePositioning;
constexpr DWORD kStay = AM_SEEKING_NoPositioning;

// Runs a filter up to the point where every pin has a sample inside its peer.
void RunUntilBlocked(GRig& rig)
{
    for (std::size_t pin = 0; pin < rig.PinCount(); ++pin)
        rig.Sink(pin).Play(GSinkTrick::BlockReceive);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    for (std::size_t pin = 0; pin < rig.PinCount(); ++pin)
        rig.Sink(pin).WaitUntilBlocked();
}

void LetGo(GRig& rig)
{
    for (std::size_t pin = 0; pin < rig.PinCount(); ++pin)
        rig.Sink(pin).Play(GSinkTrick::None);
}

// The events of a pin after its last flush.
std::vector<GRecordedEvent> SinceFlush(CRecordingSink& sink)
{
    std::vector<GRecordedEvent> since;
    for (GRecordedEvent& event : sink.Events()) {
        if (event.kind == Kind::EndFlush)
            since.clear();
        else
            since.push_back(std::move(event));
    }
    return since;
}

}  // namespace

TEST(Seek, EveryPinStartsASegmentAtTheTimeReachedWithADiscontinuity)
{
    GRig rig(Movie(200));
    RunUntilBlocked(rig);
    const GWatchdog watchdog("a seek with peers that block");
    LONGLONG position = 150 * kFrame;
    ASSERT_EQ(rig.Seeking(1)->SetPositions(&position, kAbsolute, nullptr, kStay), S_OK);
    LetGo(rig);
    for (std::size_t pin = 0; pin < 2; ++pin) {
        rig.Sink(pin).WaitForEnd();
        const auto events = SinceFlush(rig.Sink(pin));
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
        EXPECT_EQ(events[1].sample.mediaStart, 150 * kFrame / 100'000) << "media times are the file's";
        EXPECT_EQ(events[2].sample.start, kFrame);
        EXPECT_FALSE(events[2].sample.discontinuity);
        LONGLONG current = 0;
        EXPECT_EQ(rig.Seeking(pin)->GetPositions(&current, nullptr), S_OK);
        EXPECT_EQ(current, 150 * kFrame);
    }
}

TEST(Seek, ToTheCurrentPositionDoesNothing)
{
    GRig rig(Movie(20));
    RunUntilBlocked(rig);
    const std::size_t flushes = rig.Sink(0).Count(Kind::BeginFlush);
    EXPECT_EQ(rig.Seek(0, 0), S_OK);
    EXPECT_TRUE(rig.Log().Seeks().empty());
    EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), flushes);
}

TEST(Seek, PastTheEndLandsAtTheDuration)
{
    GRig rig(Movie(20));
    RunUntilBlocked(rig);
    LONGLONG position = INT64_MAX;
    ASSERT_EQ(rig.Seeking(0)->SetPositions(&position, kAbsolute | AM_SEEKING_ReturnTime, nullptr, kStay), S_OK);
    EXPECT_EQ(position, 20 * kFrame);
    LetGo(rig);
    rig.Sink(0).WaitForEnd();
    EXPECT_TRUE(rig.Sink(0).SegmentSamples().empty());
    EXPECT_EQ(rig.Log().Seeks().size(), 1u);
}

TEST(Seek, BackAfterTheEndPlaysAgain)
{
    GRig rig(Movie(20));
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    rig.Sink(1).WaitForEnd();
    rig.Sink(0).ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 5 * kFrame), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 15u);
}

// A graph seeks to 0 before it runs again, although nobody ever seeked away from there.
TEST(Seek, ToTheStartPlaysAllAgainOnceStopped)
{
    for (const bool toTheEnd : {true, false}) {
        GRig rig(Movie(20));
        if (toTheEnd) {
            rig.ConnectAll();
            ASSERT_EQ(rig.Filter()->Run(0), S_OK);
            rig.Sink(0).WaitForEnd();
            rig.Sink(1).WaitForEnd();
        } else {
            RunUntilBlocked(rig);
        }
        rig.StopGraph();
        rig.Sink(0).Play(GSinkTrick::None);
        rig.Sink(1).Play(GSinkTrick::None);
        rig.Sink(0).ForgetEvents();
        rig.Sink(1).ForgetEvents();
        for (std::size_t pin = 0; pin < 2; ++pin)
            ASSERT_EQ(rig.Seek(pin, 0), S_OK);
        EXPECT_EQ(rig.Log().Seeks().size(), 1u) << "the second pin only repeats it";
        ASSERT_EQ(rig.Filter()->Run(0), S_OK);
        rig.Sink(0).WaitForEnd();
        rig.Sink(1).WaitForEnd();
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 20u);
    }
}

TEST(Seek, RelativeAndReachedPositions)
{
    GScript script = Movie(100);
    script.seekLands = [](REFERENCE_TIME time, GSeekMode) { return time / (10 * kFrame) * (10 * kFrame); };
    GRig rig(std::move(script));
    const auto seeking = rig.Seeking(0);
    LONGLONG position = 37 * kFrame;
    ASSERT_EQ(seeking->SetPositions(&position, kAbsolute, nullptr, kStay), S_OK);
    EXPECT_EQ(position, 30 * kFrame) << "the caller is told where it landed";
    position = 12 * kFrame;
    ASSERT_EQ(seeking->SetPositions(&position, AM_SEEKING_RelativePositioning, nullptr, kStay), S_OK);
    EXPECT_EQ(position, 40 * kFrame);
    position = -INT64_MAX;
    ASSERT_EQ(seeking->SetPositions(&position, AM_SEEKING_RelativePositioning, nullptr, kStay), S_OK);
    EXPECT_EQ(position, 0);
    position = 1;
    EXPECT_EQ(seeking->SetPositions(&position, AM_SEEKING_IncrementalPositioning, nullptr, kStay), E_INVALIDARG);
    EXPECT_EQ(seeking->SetPositions(nullptr, kAbsolute, nullptr, kStay), E_POINTER);
    EXPECT_EQ(rig.Log().Seeks().size(), 3u);
}

// key frame option, preroll option, position -> mode
TEST(Seek, AlignsOnKeyFramesOnlyWhenBothOptionsAreOnAndThePositionIsNew)
{
    constexpr struct {
        bool keyFrames;
        bool preroll;
        REFERENCE_TIME target;
        GSeekMode mode;
    } kCases[] = {
        {false, false, 5 * kFrame, GSeekMode::Independent},
        {true, false, 5 * kFrame, GSeekMode::Independent},
        {false, true, 5 * kFrame, GSeekMode::Independent},
        {true, true, 5 * kFrame, GSeekMode::KeyFrame},
        {true, true, 0, GSeekMode::Independent},
    };
    for (const auto& one : kCases) {
        GRig rig(Movie(20));
        rig.Scripted().SetOptions(one.keyFrames, one.preroll);
        if (one.target == 0)
            rig.Seek(0, kFrame);
        rig.Seek(0, one.target);
        EXPECT_EQ(rig.Log().Seeks().back().mode, one.mode);
    }
    // A pin that is told the position it has already asks for no alignment.
    GScript script = Movie(20);
    script.seekLands = [](REFERENCE_TIME, GSeekMode) { return 2 * kFrame; };
    GRig rig(std::move(script));
    rig.Scripted().SetOptions(true, true);
    rig.ConnectAll();
    ASSERT_EQ(rig.Seek(0, 5 * kFrame), S_OK);
    LONGLONG zero = 0;
    ASSERT_EQ(rig.Seeking(1)->SetPositions(&zero, AM_SEEKING_RelativePositioning, nullptr, kStay), S_OK);
    ASSERT_EQ(rig.Log().Seeks().size(), 2u);
    EXPECT_EQ(rig.Log().Seeks()[1].mode, GSeekMode::Independent);
}

// Every graph relays one seek to all pins. What lands elsewhere than asked tells the rules apart.
TEST(SeekRelay, CountsPerPinOrOncePerTarget)
{
    GScript script = Movie(100);
    script.seekLands = [](REFERENCE_TIME time, GSeekMode) { return time - kFrame; };
    GRig each(script, kAviRules);
    GRig once(script, kMkvRules);
    for (GRig* rig : {&each, &once}) {
        rig->ConnectAll();
        ASSERT_EQ(rig->Filter()->Run(0), S_OK);
        for (std::size_t pin = 0; pin < 2; ++pin)
            ASSERT_EQ(rig->Seek(pin, 50 * kFrame), S_OK);
    }
    EXPECT_EQ(each.Log().Seeks().size(), 2u);
    EXPECT_EQ(once.Log().Seeks().size(), 1u);
    // The user asks for the same place again: that is no relay.
    ASSERT_EQ(once.Seek(0, 50 * kFrame), S_OK);
    ASSERT_EQ(once.Seek(1, 50 * kFrame), S_OK);
    EXPECT_EQ(once.Log().Seeks().size(), 2u);
    // A relayed seek reports where the first one landed.
    LONGLONG position = 60 * kFrame;
    ASSERT_EQ(once.Seeking(1)->SetPositions(&position, kAbsolute, nullptr, kStay), S_OK);
    position = 60 * kFrame;
    ASSERT_EQ(once.Seeking(0)->SetPositions(&position, kAbsolute, nullptr, kStay), S_OK);
    EXPECT_EQ(position, 59 * kFrame);
}

TEST(SeekRelay, ExactLandingsAreDoneOnceUnderEitherRule)
{
    for (const GFilterRules* rules : {&kAviRules, &kMkvRules}) {
        GRig rig(Movie(100), *rules);
        ASSERT_EQ(rig.Seek(0, 50 * kFrame), S_OK);
        ASSERT_EQ(rig.Seek(1, 50 * kFrame), S_OK);
        EXPECT_EQ(rig.Log().Seeks().size(), 1u);
    }
}

TEST(StopPosition, GoesIntoTheSegmentThatTheSeekStarts)
{
    GRig rig(Movie(200));
    RunUntilBlocked(rig);
    rig.Sink(0).ForgetEvents();
    LONGLONG position = 20 * kFrame;
    LONGLONG stop = 30 * kFrame;
    ASSERT_EQ(rig.Seeking(0)->SetPositions(&position, kAbsolute, &stop, AM_SEEKING_IncrementalPositioning), S_OK);
    LetGo(rig);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).Count(Kind::Segment), 1u) << "a second restart would cost the first samples";
    EXPECT_EQ(SinceFlush(rig.Sink(0)).at(0).stop, 50 * kFrame);
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 180u);
    LONGLONG end = 0;
    EXPECT_EQ(rig.Seeking(0)->GetStopPosition(&end), S_OK);
    EXPECT_EQ(end, 50 * kFrame);
}

TEST(StopPosition, AloneRestartsThePinWithWhatIsQueued)
{
    GRig rig(Movie(200));
    RunUntilBlocked(rig);
    const GWatchdog watchdog("a new stop position with a peer that blocks");
    rig.Sink(0).ForgetEvents();
    LONGLONG stop = 40 * kFrame;
    ASSERT_EQ(rig.Seeking(0)->SetPositions(nullptr, kStay, &stop, kAbsolute | AM_SEEKING_ReturnTime), S_OK);
    ASSERT_EQ(rig.Seeking(0)->SetPositions(nullptr, kStay, &stop, kAbsolute), S_OK);
    EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), 1u) << "a stop that stays restarts nothing";
    LetGo(rig);
    rig.Sink(0).WaitForEnd();
    const auto events = SinceFlush(rig.Sink(0));
    EXPECT_EQ(events.at(0).stop, 40 * kFrame);
    EXPECT_EQ(events.at(1).sample.start, kFrame) << "only what was inside the peer is gone";
    EXPECT_TRUE(events.at(1).sample.discontinuity);
    EXPECT_EQ(events.size(), 201u);
    EXPECT_TRUE(rig.Log().Seeks().empty());
}

TEST(Rate, ScalesTimesFromTheNextSegmentOn)
{
    GRig rig(Movie(20));
    const auto seeking = rig.Seeking(0);
    for (const double bad :
         {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()})
        EXPECT_EQ(seeking->SetRate(bad), E_INVALIDARG) << bad;
    RunUntilBlocked(rig);
    const GWatchdog watchdog("a new rate with a peer that blocks");
    ASSERT_EQ(seeking->SetRate(3.0), S_OK);
    LetGo(rig);
    rig.Sink(0).WaitForEnd();
    const auto events = SinceFlush(rig.Sink(0));
    EXPECT_EQ(events.at(0).rate, 3.0);
    EXPECT_EQ(events.at(1).sample.start, static_cast<REFERENCE_TIME>(static_cast<double>(kFrame) / 3.0));
    EXPECT_EQ(events.at(1).sample.mediaStart, kFrame / 100'000) << "media times know no rate";
    double rate = 0;
    EXPECT_EQ(rig.Seeking(1)->GetRate(&rate), S_OK);
    EXPECT_EQ(rate, 1.0) << "the rate is a pin's own";
    EXPECT_EQ(seeking->SetRate(1e-300), S_OK) << "times that leave 64 bits are held";
}

TEST(Rate, AfterTheEndSaysTheEndAgain)
{
    GRig rig(Movie(5));
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    rig.Sink(0).ForgetEvents();
    ASSERT_EQ(rig.Seeking(0)->SetRate(2.0), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).Count(Kind::Segment), 1u);
}

TEST(Seek, AHandlerThatFailsForWantOfMemoryLeavesTheFilterRunning)
{
    GScript script = Movie(50);
    script.seekLands = [](REFERENCE_TIME, GSeekMode) -> REFERENCE_TIME { throw std::bad_alloc(); };
    GRig rig(std::move(script));
    RunUntilBlocked(rig);
    EXPECT_EQ(rig.Seek(0, 20 * kFrame), S_OK);
    LetGo(rig);
    rig.Sink(0).WaitForEnd();
}

}  // namespace vex::test
