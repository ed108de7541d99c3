// Samples that a pin sends ahead of its data after every start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

using Kind = GRecordedEvent::Kind;

constexpr std::size_t kLeads = 2;

// Two leads on the first pin: a codec header, and a text that lasts for one unit with flags of its own.
GScript WithLeads(std::size_t frames, bool audio = false)
{
    GScript script = Movie(frames, audio);
    script.streams[0].leadSamples = {
        {.data = std::vector<std::uint8_t>(30, 0xA1)},
        {.data = {0}, .stop = 1, .sync = true, .discontinuity = true},
    };
    return script;
}

// Segment, leads, then data that begins with `frame`, whose times count from there.
void ExpectStart(CRecordingSink& sink, std::size_t frame)
{
    const auto events = sink.SinceFlush();
    ASSERT_GT(events.size(), kLeads + 1);
    EXPECT_EQ(events[0].kind, Kind::Segment);
    for (std::size_t i = 0; i < kLeads; ++i) {
        const GRecordedSample& lead = events[1 + i].sample;
        EXPECT_EQ(lead.bytes.size(), i == 0 ? 30u : 1u);
        EXPECT_EQ(lead.start, 0);
        EXPECT_EQ(lead.stop, i == 0 ? 0 : 1);
        EXPECT_EQ(lead.mediaStart, kNoTime);
        EXPECT_EQ(lead.sync, i == 1);
        EXPECT_EQ(lead.discontinuity, i == 1);
        EXPECT_FALSE(lead.preroll);
    }
    const GRecordedSample& first = events[1 + kLeads].sample;
    EXPECT_EQ(first.bytes, std::vector<std::uint8_t>(100, static_cast<std::uint8_t>(frame)));
    EXPECT_TRUE(first.discontinuity) << "a lead does not stand for the first sample of the segment";
}

}  // namespace

TEST(Leads, ComeAfterEveryStartOnceWithTimesOfTheirOwn)
{
    GRig rig(WithLeads(20));
    rig.PlayToEnd();
    ExpectStart(rig.Sink(0), 0);

    rig.PlayFrom(0, 5 * kFrame);
    ExpectStart(rig.Sink(0), 5);
    EXPECT_EQ(rig.Sink(0).Count(Kind::Sample), 15 + static_cast<std::ptrdiff_t>(kLeads));

    // At the end there is no data left, and still the peer starts anew.
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seeking(0)->SetRate(0.5), S_OK);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).Count(Kind::Sample), static_cast<std::ptrdiff_t>(kLeads));
    EXPECT_EQ(rig.Sink(0).Samples().at(1).stop, 1) << "no rate changes them";

    rig.StopGraph();
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 9 * kFrame), S_OK);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    ExpectStart(rig.Sink(0), 9);
}

// The pins run before the reader does.
TEST(Leads, WaitForTheFlushWithWhichTheReaderBegins)
{
    CRecordingSink* sink = nullptr;
    const std::function<void(CVexOutputPin&)> letTheFirstPinRun = [&](CVexOutputPin& pin) {
        while (pin.StreamNumber() == 1 && sink->Count(Kind::Segment) == 0)
            std::this_thread::yield();
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
    };
    GRig rig(WithLeads(5, true), kPlainRules, PinsOf<CCallingPin>(letTheFirstPinRun));
    sink = &rig.Sink(0);
    rig.PlayToEnd();
    EXPECT_EQ(rig.Sink(0).Count(Kind::Sample), 5 + static_cast<std::ptrdiff_t>(kLeads));
}

TEST(Leads, InterruptedHalfwayBeginAgain)
{
    GRig rig(WithLeads(20));
    rig.RunUntilBlocked();  // inside the first
    const GWatchdog watchdog("a peer that blocks in a lead");
    ASSERT_EQ(rig.Seeking(0)->SetRate(1.5), S_OK);
    rig.Sink(0).WaitUntilBlocked();
    ASSERT_EQ(rig.Seek(0, 3 * kFrame), S_OK);
    rig.LetGoAndWaitForEnds();
    ExpectStart(rig.Sink(0), 3);
    GRig stopped(WithLeads(20));
    stopped.RunUntilBlocked();
    stopped.StopGraph();
}

}  // namespace vex::test
