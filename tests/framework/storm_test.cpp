// Everything at once, for as long as it takes to meet the rare orders of events.
#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "platform/threads.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

constexpr std::size_t kFrames = 500;

// A script whose packets outgrow the buffers now and then, so that renegotiations meet seeks and stops.
GScript Uneven(std::uint32_t biggest)
{
    GScript script = Movie(kFrames);
    std::mt19937 random(7);
    for (GNextPacket& packet : script.packets)
        packet.size = static_cast<std::uint32_t>(1 + random() % (random() % 16 == 0 ? biggest : 2000));
    return script;
}

void SeekAbout(GRig& rig, unsigned seed, int seeks, bool changeState)
{
    std::optional<GWatchdog> watchdog;
    std::mt19937 random(seed);
    for (int i = 0; i < seeks; ++i) {
        if (i % 50 == 0)
            watchdog.emplace("a storm of seeks");
        const std::size_t pin = random() % 2;
        switch (changeState ? random() % 10 : 9) {
        case 0:
            rig.Filter()->Stop();
            break;
        case 1:
            rig.Filter()->Pause();
            break;
        case 2:
            rig.Filter()->Run(0);
            break;
        case 3:
            rig.Seeking(pin)->SetRate(0.5 + static_cast<double>(random() % 4));
            break;
        case 4: {
            LONGLONG stop = static_cast<LONGLONG>(random() % kFrames) * kFrame;
            rig.Seeking(pin)->SetPositions(nullptr, 0, &stop, AM_SEEKING_AbsolutePositioning);
            break;
        }
        default:
            EXPECT_EQ(rig.Seek(pin, static_cast<REFERENCE_TIME>(random() % (kFrames + 50)) * kFrame), S_OK);
            break;
        }
    }
}

// How much arrives between two seeks is up to the machine, and may come to gigabytes.
void ForgetBytes(GRig& rig) { rig.Sink(0).keepsBytes = rig.Sink(1).keepsBytes = false; }

void PlayOut(GRig& rig)
{
    // Whatever came before, the filter still plays from a place nobody has been to.
    ASSERT_TRUE(SUCCEEDED(rig.Filter()->Stop()));
    for (std::size_t pin = 0; pin < 2; ++pin)
        rig.Seeking(pin)->SetRate(1.0);
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, (kFrames - 10) * kFrame + 1), S_OK);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    for (std::size_t pin = 0; pin < 2; ++pin) {
        rig.Sink(pin).WaitForEnd();
        const auto samples = rig.Sink(pin).SegmentSamples();
        ASSERT_EQ(samples.size(), 9u);
        EXPECT_TRUE(samples[0].discontinuity);
    }
}

// No sample, no end outside a segment; flushes in pairs; after each flush a segment first.
void CheckOrder(CRecordingSink& sink)
{
    using Kind = GRecordedEvent::Kind;
    bool flushing = false;
    bool playing = false;  // between a segment and its end
    for (const GRecordedEvent& event : sink.Events()) {
        if (event.kind == Kind::BeginFlush || event.kind == Kind::EndFlush) {
            EXPECT_EQ(flushing, event.kind == Kind::EndFlush) << "flushes inside each other";
            flushing = event.kind == Kind::BeginFlush;
        } else if (event.kind == Kind::Segment) {
            playing = true;
        } else {
            EXPECT_TRUE(playing && !flushing);
            playing = event.kind == Kind::Sample;
        }
    }
}

}  // namespace

TEST(Storm, AThousandSeeksAndStopsAndRatesBesideThem)
{
    const struct {
        const GFilterRules& rules;
        std::uint32_t biggest;  // bytes
        bool changeState;       // from two threads
    } kCases[] = {{kPlainRules, 1'000'000, false}, {kPlainRules, 100'000, true}, {kRelayRules, 100'000, true}};
    for (const auto& one : kCases) {
        GRig rig(Uneven(one.biggest), one.rules);
        ForgetBytes(rig);
        rig.Start();
        GNativeThread other([&] { SeekAbout(rig, 2, one.changeState ? 500 : 0, true); });
        SeekAbout(rig, 3, one.changeState ? 500 : 1000, one.changeState);
        other.join();
        CheckOrder(rig.Sink(0));
        CheckOrder(rig.Sink(1));
        PlayOut(rig);
    }
}

TEST(Storm, SeeksWhileThePeerBlocksAndKeeps)
{
    for (const GSinkTrick trick : {GSinkTrick::BlockReceive, GSinkTrick::BlockEndOfStream, GSinkTrick::BlockNewSegment,
                                   GSinkTrick::KeepSamples, GSinkTrick::Refuse}) {
        GRig rig(Uneven(400'000));
        ForgetBytes(rig);
        rig.Sink(0).Play(trick);
        rig.Start();
        // Stops are left to the graph here: a filter stopped before its peers waits a while for each.
        SeekAbout(rig, 4, 100, false);
        rig.Sink(0).GiveSamplesBack();
    }
}

TEST(Storm, FiltersComeAndGo)
{
    for (int i = 0; i < 50; ++i) {
        GRig rig(Movie(1000));
        rig.Start();
        if (i % 2 == 0)
            rig.DropFilter();
    }
}

}  // namespace vex::test
