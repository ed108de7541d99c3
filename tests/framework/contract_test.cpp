// What a handler can say beside "here is a packet", and what a rule makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "support/scripted_filter.h"

namespace vex::test {

namespace {

using testing::ElementsAre;
using Kind = GRecordedEvent::Kind;

constexpr std::uint32_t kFilterStream = 7;

GStreamInfo ForTheFilter()
{
    GStreamInfo stream = AudioStream(kFilterStream);
    stream.target = GStreamTarget::Filter;
    return stream;
}

}  // namespace

TEST(StreamEnd, EndsOnePinAtOnceAndForThisRunOnly)
{
    GScript script = Movie(20);
    script.ends = {11};  // of the audio, after five packets
    GRig rig(std::move(script));
    rig.Log().SetAvailable(16);
    rig.Start();
    rig.Sink(1).WaitForEnd();  // nothing comes behind its last packet
    EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 5u);
    rig.Sink(0).WaitForSamples(7);
    EXPECT_EQ(rig.Sink(0).Count(Kind::End), 0);
    rig.Log().SetAvailable(SIZE_MAX);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 20u);
    EXPECT_EQ(rig.Log().Payloads(), 25u) << "what comes after the end is not read";
    EXPECT_EQ(rig.Sink(1).Count(Kind::Sample), 5);
    EXPECT_EQ(rig.Sink(1).Count(Kind::End), 1);

    rig.PlayFrom(0, 12 * kFrame);
    EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 8u) << "alive again";
}

// The third one's size is only known when it is read.
TEST(EmptyPayloads, AreSamplesWhereTheRuleSaysSo)
{
    for (const GFilterRules* rules : {&kOpenRules, &kPlainRules}) {
        GScript script = Movie(4, false);
        script.packets[0].size = 0;
        script.finishPacket = [](GPacket2& packet, std::size_t index) {
            if (index == 2)
                packet.data.Clear();
        };
        GRig rig(std::move(script), *rules);
        rig.PlayToEnd();
        const bool delivered = rules->emptyPayloads == GEmptyPayloads::Deliver;
        const auto expected = delivered ? std::vector<std::size_t>{0, 100, 0, 100} : std::vector<std::size_t>{100, 100};
        EXPECT_EQ(Sizes(rig.Sink(0).SegmentSamples()), expected);
    }
}

TEST(Run, BeginsWithTheStreamsThatSomebodyTakes)
{
    GScript script = Movie(20);
    script.streams.push_back(ForTheFilter());
    script.accepts = [](REFERENCE_TIME time) { return time != 7 * kFrame; };
    GRig rig(std::move(script));
    rig.Connect(1);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(1).WaitForEnd();
    ASSERT_EQ(rig.Seek(0, 7 * kFrame), S_OK);
    ASSERT_EQ(rig.Seeking(1)->SetRate(2.0), S_OK);
    rig.ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 5 * kFrame), S_OK);
    rig.Sink(1).WaitForEnd();
    EXPECT_THAT(rig.Log().Runs(), ElementsAre(ElementsAre(kFilterStream, 1), ElementsAre(kFilterStream, 1)))
        << "not after a refused seek, nor when only a pin starts again";
}

TEST(FilterStream, HasNoPinAndItsPacketsGoToTheFilter)
{
    GScript script = Movie(10, false);
    script.streams.insert(script.streams.begin(), ForTheFilter());
    script.packets[6].stream = script.packets[8].stream = kFilterStream;
    script.packets[8].size = 0;
    std::vector<GPacketPtr> packets;
    script.onTaken = [&](GPacketPtr packet) { packets.push_back(std::move(packet)); };
    GRig rig(std::move(script));
    ASSERT_EQ(rig.Scripted().GetPinCount(), 1);
    ASSERT_EQ(rig.Seek(0, 4 * kFrame), S_OK);
    rig.PlayToEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 4u);
    ASSERT_EQ(packets.size(), 1u);
    const GPacket2& taken = *packets.front();
    EXPECT_EQ(taken.stream, kFilterStream);
    EXPECT_EQ(taken.start, 2 * kFrame) << "counted from the segment's start";
    EXPECT_EQ(taken.stop, 3 * kFrame);
    EXPECT_EQ(taken.mediaStart, 6 * kFrame / kUnitsPerMediaTime);
    EXPECT_THAT(std::vector<std::uint8_t>(taken.data.Span().begin(), taken.data.Span().end()),
                testing::AllOf(testing::SizeIs(100), testing::Each(6)));
}

TEST(DropBeforeSegment, IsAStreamsOwn)
{
    GScript script = Movie(20);
    script.streams[1].dropBeforeSegment = true;
    for (const std::size_t late : {24u, 25u})  // one of each stream, read after the seek but of long before
        script.packets[late].start = 3 * kFrame;
    GRig rig(std::move(script));
    ASSERT_EQ(rig.Seek(0, 10 * kFrame), S_OK);
    rig.PlayToEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 10u);
    EXPECT_EQ(rig.Sink(0).SegmentSamples().at(2).start, -7 * kFrame);
    EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 9u);
    EXPECT_EQ(rig.Log().Payloads(), 19u);
}

TEST(Packets, GoBackToThePinTheyWereMadeFor)
{
    std::map<const GPacket2*, std::uint32_t> streams;
    std::size_t used = 0;
    GScript script = Movie(200);  // fewer than a pool keeps: no packet is freed, and no address used again
    script.finishPacket = [&](GPacket2& packet, std::size_t) {
        ++used;
        EXPECT_EQ(streams.try_emplace(&packet, packet.stream).first->second, packet.stream);
    };
    GRig rig(std::move(script));
    rig.PlayToEnd();
    for (int round = 0; round < 3; ++round) {
        rig.PlayFrom(0, (5 + round) * kFrame);
    }
    EXPECT_LT(streams.size(), used) << "nothing was used again";
}

}  // namespace vex::test
