// What arrives at a peer: order, bytes, times, flags, and what is read for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/limited_allocator.h"
#include "support/scripted_filter.h"
#include "support/watched_source.h"

namespace vex::test {

namespace {

using testing::ElementsAre;
using Kind = GRecordedEvent::Kind;

std::vector<Kind> KindsSinceFlush(CRecordingSink& sink)
{
    std::vector<Kind> kinds;
    for (const GRecordedEvent& event : sink.SinceFlush())
        if (event.kind != Kind::BeginFlush)
            kinds.push_back(event.kind);
    return kinds;
}

// With payloads of 5000 bytes in a source: each is filled with the number of its packet.
GScript MovieInSource(std::size_t frames, GSourceWatch& watch)
{
    GScript script = Movie(frames, false, 5000);
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < frames; ++i)
        bytes.insert(bytes.end(), 5000, static_cast<std::uint8_t>(i));
    script.source = [&watch, disk = std::make_shared<GMemoryDisk>(std::move(bytes))] {
        return std::make_unique<GWatchedSource>(std::make_unique<GMemoryFile>(disk), watch);
    };
    return script;
}

}  // namespace

TEST(Delivery, EveryPacketBecomesOneSampleBetweenSegmentAndEnd)
{
    GRig rig(Movie(700));  // more than a queue holds
    rig.PlayToEnd();
    for (std::size_t pin = 0; pin < 2; ++pin) {
        const auto kinds = KindsSinceFlush(rig.Sink(pin));
        ASSERT_EQ(kinds.size(), 702u);
        EXPECT_EQ(kinds.front(), Kind::Segment);
        EXPECT_EQ(kinds.back(), Kind::End);
        const auto samples = rig.Sink(pin).SegmentSamples();
        ASSERT_EQ(samples.size(), 700u);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const REFERENCE_TIME start = static_cast<REFERENCE_TIME>(i) * kFrame;
            ASSERT_EQ(samples[i].bytes, std::vector<std::uint8_t>(100, static_cast<std::uint8_t>(2 * i + pin)));
            ASSERT_EQ(samples[i].start, start);
            ASSERT_EQ(samples[i].stop, start + kFrame);
            ASSERT_EQ(samples[i].mediaStart, start / 100'000);
            ASSERT_EQ(samples[i].mediaStop, (start + kFrame) / 100'000);
            ASSERT_EQ(samples[i].sync, i % 10 == 0) << i;
            ASSERT_EQ(samples[i].discontinuity, i == 0) << i;
            ASSERT_EQ(samples[i].preroll, i == 0) << "exactly 0 is preroll, later is not: " << i;
        }
    }
}

TEST(Delivery, ContinuationsArriveInsideTheirPacketAndEmptyOrTimelessPacketsNotAtAll)
{
    GScript script = Movie(7, false);
    for (const std::size_t timeless : {1u, 4u})
        script.packets[timeless].start = script.packets[timeless].stop = kNoTime;
    script.packets[1].continuation = true;
    script.packets[3].size = 0;
    script.packets[5].stop = kNoTime;
    GRig rig(std::move(script));
    rig.PlayToEnd();
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_THAT(Sizes(samples), ElementsAre(200, 100, 100, 100));
    EXPECT_EQ(samples[0].bytes.back(), 1);
    EXPECT_EQ(samples[1].start, 2 * kFrame);
    EXPECT_EQ(samples[2].start, 5 * kFrame);
    EXPECT_EQ(samples[2].stop, kNoTime) << "a missing stop time must not be made up";
    EXPECT_EQ(samples[2].mediaStop, kNoTime);
}

TEST(Delivery, APinThatRunsDryReadsWhatTheReaderLeftAndPassesOverWhatItCannot)
{
    GSourceWatch watch;
    watch.failFrom = 2 * 5000 + 4500;
    watch.failUntil = 3 * 5000 + 1;
    GRig rig(MovieInSource(6, watch));
    rig.PlayToEnd();
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_THAT(Sizes(samples), ElementsAre(5000, 5000, 4096, 5000, 5000)) << "as far as its pieces can be read";
    for (const std::size_t i : {1u, 2u, 4u})
        EXPECT_EQ(samples[i].bytes.back(), i < 3 ? i : i + 1);
    EXPECT_EQ(samples[3].start, 4 * kFrame);
    EXPECT_EQ(rig.Log().Payloads(), 0u);
}

TEST(Delivery, TheReaderReadsAheadForAPinThatHasEnoughToDo)
{
    GSourceWatch watch;
    GRig rig(MovieInSource(700, watch));
    rig.RunUntilBlocked();
    rig.Log().WaitForPayloads(100);
    rig.LetGoAndWaitForEnds();
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_EQ(samples.size(), 700u);
    for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_EQ(samples[i].bytes, std::vector<std::uint8_t>(5000, static_cast<std::uint8_t>(i)));
}

TEST(Delivery, TheRulesTellMediaTimesFirstSyncPointsAndPrerollApart)
{
    GScript script = Movie(2, false);
    script.packets[0].keyFrame = false;
    script.packets[1].mediaStart = 77;
    script.packets[1].mediaStop = 78;
    for (const GFilterRules* rules : {&kPlainRules, &kRelayRules}) {
        const bool avi = rules == &kPlainRules;
        GRig rig(script, *rules);
        rig.PlayToEnd();
        const auto samples = rig.Sink(0).SegmentSamples();
        EXPECT_EQ(samples.at(1).mediaStart, avi ? 77 : kNoTime) << "media times of the format win";
        EXPECT_EQ(samples.at(0).sync, avi) << "the first sample of a segment";
        EXPECT_EQ(samples.at(0).preroll, avi) << "the option of a new filter";
    }
}

TEST(Delivery, NothingIsReadForAPinThatNobodyConnectedNorIsItsEndKept)
{
    GRig rig(Movie(50));
    rig.Connect(1);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(1).WaitForEnd();
    EXPECT_EQ(rig.Log().Payloads(), 50u);

    // Connected later, it must not begin with the end that it was not there for.
    rig.StopGraph();
    rig.Connect(0);
    ASSERT_EQ(rig.Seek(0, 0), S_OK);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForSamples(50);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).Count(Kind::End), 1);
}

TEST(Delivery, AnIndexStillInTheMakingDelaysLosesNothingAndStops)
{
    GRig rig(Movie(60));
    rig.Log().SetAvailable(0);
    rig.Start();
    for (std::size_t count = 2; count <= 120; count += 2) {
        rig.Log().SetAvailable(count);
        rig.Log().WaitForPayloads(count);
    }
    rig.Sink(1).WaitForEnd();
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 60u);

    rig.Log().SetAvailable(10);
    EXPECT_EQ(rig.Seek(0, 50 * kFrame), S_OK);
    const GWatchdog watchdog("a stop while there is nothing to read");
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
}

TEST(ReadingAhead, StopsAtTheLimitsOfTheRowAndGoesOn)
{
    constexpr struct {
        std::size_t frames;
        std::uint32_t size;
        std::size_t read;  // what is queued, one inside the peer, one in the reader's hands
        GFilterRules rules = kPlainRules;
    } kCases[] = {{1000, 100, 302}, {40, 1 << 20, 10}, {1000, 100, 602, {.queue = {600}}}};
    for (const auto& one : kCases) {
        GRig rig(Movie(one.frames, false, one.size), one.rules);
        rig.RunUntilBlocked();
        rig.Log().WaitForPayloads(one.read);
        EXPECT_EQ(rig.Log().Payloads(), one.read);
        rig.LetGoAndWaitForEnds();
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), one.frames);
    }
    GRig beyond(Movie(3, false, 9 << 20));  // each more than a queue may hold
    beyond.PlayToEnd();
    EXPECT_EQ(beyond.Sink(0).SegmentSamples().size(), 3u);
}

TEST(Buffers, APacketTooLargeMakesTheBufferHalfAsLargeAgain)
{
    GScript script = Movie(3, false);
    script.packets[1].size = 1 << 20;
    for (const GFilterRules* rules : {&kPlainRules, &kRelayRules, &kOpenRules}) {
        GRig rig(script, *rules);
        rig.PlayToEnd();
        ALLOCATOR_PROPERTIES properties{};
        ASSERT_EQ(rig.Sink(0).Allocator()->GetProperties(&properties), S_OK);
        EXPECT_EQ(properties.cBuffers, 1);
        EXPECT_EQ(properties.cbBuffer, (1 << 20) * 3 / 2);
        // The flush of the renegotiation costs what the peer had, never what it gets.
        EXPECT_THAT(Sizes(rig.Sink(0).Samples()), ElementsAre(100, 1 << 20, 100));
        const std::ptrdiff_t flushes = rules == &kPlainRules ? 2 : 1;  // one of them at the start
        EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), flushes);
        EXPECT_EQ(rig.Sink(0).Count(Kind::EndFlush), flushes);
    }
}

TEST(Buffers, ThatCannotBeEnlargedCostThePacketUnderTheMatroskaRules)
{
    GScript script = Movie(4, false);
    script.packets[1].size = 1 << 20;
    script.packets[2].size = 3 << 20;
    GRig rig(std::move(script), kRelayRules);
    rig.Sink(0).offered = GComPtr<IMemAllocator>::Adopt(new CLimitedAllocator(2 << 20));
    rig.PlayToEnd();
    EXPECT_THAT(Sizes(rig.Sink(0).Samples()), ElementsAre(100, 1 << 20, 100));
}

TEST(Memory, ThatRunsShortOnTheStreamingThreadEndsTheStream)
{
    class CHungryPin final : public CVexOutputPin {
    public:
        using CVexOutputPin::CVexOutputPin;

    protected:
        GUnitStatus PrepareUnit() override { throw std::bad_alloc(); }
    };
    GRig rig(Movie(5, false), kPlainRules, PinsOf<CHungryPin>());
    rig.PlayToEnd();
    EXPECT_TRUE(rig.Sink(0).Samples().empty());
}

TEST(Restart, HeadersGoAheadOfTheDataAfterEveryStart)
{
    GScript script = Movie(20);
    script.headers = [](std::uint32_t stream) {
        std::vector<GPacketPtr> packets;
        if (stream == 1) {
            auto& packet = packets.emplace_back(std::make_unique<GPacket2>());
            packet->data.Assign(std::vector<std::uint8_t>{0xAA, 0xAA, 0xAA});
            packet->start = 0;
            packet->stop = 1;
            packet->header = true;
        }
        return packets;
    };
    GRig rig(std::move(script));
    rig.PlayToEnd();
    EXPECT_EQ(rig.Sink(1).SegmentSamples().at(0).bytes.size(), 3u);
    rig.PlayFrom(1, 10 * kFrame);
    const auto samples = rig.Sink(1).SegmentSamples();
    ASSERT_EQ(samples.size(), 11u);
    EXPECT_EQ(samples[0].bytes.size(), 3u);
    EXPECT_EQ(samples[0].start, -10 * kFrame) << "headers lie at the start of the file";
    EXPECT_EQ(rig.Sink(0).SegmentSamples().at(0).bytes.size(), 100u);
}

}  // namespace vex::test
