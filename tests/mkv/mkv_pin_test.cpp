// The Matroska pin: which Block goes first, how long it lasts, and what its laced frames carry.
#include "formats/mkv/mkv_filter.h"
#include "formats/mkv/mkv_output_pin.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "support/scripted_filter.h"

namespace vex::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr REFERENCE_TIME kMs = 10'000;  // 100 ns

// One Block: what the reader announces and what it writes into the packet.
struct GBlockLine {
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    bool hasDuration = false;
    std::uint64_t priority = 0;
    std::vector<std::uint32_t> frames{10};  // bytes
    bool keyFrame = false;
};

GBlockLine Open(REFERENCE_TIME start, std::uint64_t priority = 0)
{
    return {.start = start, .stop = start + 1, .priority = priority};
}
GBlockLine Lasting(REFERENCE_TIME start, REFERENCE_TIME stop)
{
    return {.start = start, .stop = stop, .hasDuration = true};
}

GScript Blocks(std::vector<GBlockLine> lines)
{
    GScript script;
    script.streams = {VideoStream(1)};
    for (const GBlockLine& line : lines) {
        GNextPacket next;
        next.stream = 1;
        for (const std::uint32_t frame : line.frames)
            next.size += frame;
        next.keyFrame = line.keyFrame;
        next.start = line.start;
        next.stop = line.stop;
        script.packets.push_back(next);
        script.duration = std::max(script.duration, line.stop);
    }
    script.newPacket = [] { return std::make_unique<GMkvBlockPacket>(); };
    script.finishPacket = [lines = std::move(lines)](GPacket2& packet, std::size_t index) {
        const GBlockLine& line = lines[index];
        GMkvBlock& block = static_cast<GMkvBlockPacket&>(packet).block;
        block.frameSizes = line.frames;
        block.duration.valid = line.hasDuration;
        block.referencePriority.value = line.priority;
        // Tells frames apart: the first byte of frame n is n.
        std::size_t at = 0;
        std::uint8_t frame = 0;
        for (const std::uint32_t size : line.frames) {
            if (size > 0 && at < packet.data.Size())
                packet.data.Data()[at] = frame++;
            at += size;
        }
    };
    return script;
}

CScriptedFilter::GMakePin MkvPins(std::uint64_t minCache)
{
    return [minCache](CVexFilter* owner, const GStreamInfo& stream) {
        return std::make_unique<CMKV_OutputPin>(owner, stream, minCache);
    };
}

class GMkvRig : public GRig {
public:
    explicit GMkvRig(GScript script, std::uint64_t minCache = 0) : GRig(std::move(script), kMkvRules, MkvPins(minCache))
    {
        ConnectAll();
    }

    std::vector<GRecordedSample> Play()
    {
        EXPECT_EQ(Filter()->Run(0), S_OK);
        Sink(0).WaitForEnd();
        return Sink(0).SegmentSamples();
    }
};

using GTimes = std::pair<REFERENCE_TIME, REFERENCE_TIME>;  // start and stop, ms

std::vector<GTimes> Times(const std::vector<GRecordedSample>& samples)
{
    std::vector<GTimes> times;
    for (const GRecordedSample& sample : samples)
        times.emplace_back(sample.start / kMs, sample.stop / kMs);
    return times;
}

std::vector<REFERENCE_TIME> Starts(const std::vector<GRecordedSample>& samples)
{
    std::vector<REFERENCE_TIME> starts;
    for (const GTimes& times : Times(samples))
        starts.push_back(times.first);
    return starts;
}

TEST(MkvPin, ABlockWithoutADurationLastsUntilALaterOneStarts)
{
    GMkvRig rig(Blocks(
        {Open(40 * kMs), Open(40 * kMs), Open(0), Open(80 * kMs), Lasting(120 * kMs, 125 * kMs), Open(160 * kMs)}));
    const auto samples = rig.Play();
    EXPECT_THAT(Times(samples), ElementsAre(GTimes(40, 40), GTimes(40, 40), GTimes(0, 80), GTimes(80, 120),
                                            GTimes(120, 125), GTimes(160, 160)));
    EXPECT_EQ(samples[1].stop, 40 * kMs + 1) << "the next one starts earlier";
    EXPECT_EQ(samples[5].stop, 160 * kMs + 1) << "the last keeps the end it came with";
}

// It goes behind the last Block whose priority is not above its own, past no more than depth - 1 of them.
TEST(MkvPin, ALowerPriorityOvertakesWithinTheWindowAndEqualOnesKeepTheirOrder)
{
    const std::vector<GBlockLine> lines = {Open(0, 5), Open(1 * kMs, 5), Open(2 * kMs, 0), Open(3 * kMs, 5),
                                           Open(4 * kMs, 5)};
    EXPECT_THAT(Starts(GMkvRig(Blocks(lines), 2).Play()), ElementsAre(0, 2, 1, 3, 4));
    EXPECT_THAT(Starts(GMkvRig(Blocks(lines), 4).Play()), ElementsAre(2, 0, 1, 3, 4));
    GMkvRig equal(Blocks({Lasting(0, 1), Lasting(120 * kMs, 1), Lasting(40 * kMs, 1), Lasting(80 * kMs, 1)}), 8);
    EXPECT_THAT(Starts(equal.Play()), ElementsAre(0, 120, 40, 80));
}

// How many samples come of `lines` while only the first `available` are there; all must come in the end.
std::size_t SamplesOf(std::vector<GBlockLine> lines, std::uint64_t minCache, std::size_t available,
                      std::size_t expected)
{
    const std::size_t all = lines.size();
    GMkvRig rig(Blocks(std::move(lines)), minCache);
    rig.Log().SetAvailable(available);
    EXPECT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForSamples(expected);
    const std::size_t early = rig.Sink(0).Samples().size();
    rig.Log().SetAvailable(SIZE_MAX);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), all);
    return early;
}

std::vector<GBlockLine> OpenLines(int count)
{
    std::vector<GBlockLine> lines;
    for (int i = 0; i < count; ++i)
        lines.push_back(Open(i * 40 * kMs));
    return lines;
}

TEST(MkvPin, TheWindowHoldsBackAsManyBlocksAsItIsDeepAndNoneThatHaveTheirDuration)
{
    EXPECT_EQ(SamplesOf(OpenLines(5), 3, 4, 1), 1u) << "three stay in the window";
    EXPECT_EQ(SamplesOf({Lasting(0, 1 * kMs), Lasting(40 * kMs, 41 * kMs)}, 3, 1, 1), 1u);
    // The Block that was waited for lets those behind it go that are complete: they do not wait for another one.
    EXPECT_EQ(SamplesOf({Open(0), Lasting(40 * kMs, 80 * kMs), Lasting(80 * kMs, 120 * kMs), Open(120 * kMs)}, 0, 3, 3),
              3u);
    // A declared depth of 2^40 Blocks must not hold the whole file in memory.
    EXPECT_GE(SamplesOf(OpenLines(200), std::uint64_t{1} << 40, 100, 20), 20u);
}

TEST(MkvPin, LacedFramesShareTheTimeAndTheFirstCarriesTheFlags)
{
    GBlockLine laced = Lasting(0, 30 * kMs);
    laced.frames = {5, 0, 7};
    laced.keyFrame = true;
    GMkvRig rig(Blocks({laced, Lasting(30 * kMs, 60 * kMs)}));
    const auto samples = rig.Play();
    ASSERT_THAT(Times(samples), ElementsAre(GTimes(0, 10), GTimes(10, 20), GTimes(20, 30), GTimes(30, 60)));
    EXPECT_EQ(samples[0].bytes.size(), 5u);
    EXPECT_THAT(samples[1].bytes, IsEmpty());
    EXPECT_EQ(samples[2].bytes.size(), 7u);
    EXPECT_EQ(samples[2].bytes[0], 1) << "the bytes of the right frame";
    EXPECT_TRUE(samples[0].sync && samples[0].discontinuity);
    EXPECT_FALSE(samples[1].sync || samples[1].discontinuity || samples[2].sync);
    EXPECT_EQ(samples[0].mediaStart, kNoTime);
}

TEST(MkvPin, HeadersGoOutAtOnceAndFirst)
{
    GScript script = Blocks({Open(0), Open(40 * kMs)});
    script.headers = [](std::uint32_t) {
        std::vector<GPacketPtr> packets;
        GPacketPtr& packet = packets.emplace_back(std::make_unique<GMkvBlockPacket>());
        packet->header = true;
        packet->start = 0;
        packet->stop = 1;
        packet->data.Assign(std::array<std::uint8_t, 2>{0xA0, 9});
        return packets;
    };
    GMkvRig rig(std::move(script));
    rig.Log().SetAvailable(0);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForSamples(1);  // with no Block behind it
    rig.Log().SetAvailable(SIZE_MAX);
    rig.Sink(0).WaitForEnd();
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_EQ(samples.size(), 3u);
    EXPECT_THAT(samples[0].bytes, ElementsAre(0xA0, 9));
    EXPECT_FALSE(samples[0].sync);
    EXPECT_EQ(samples[0].stop, 1);
}

TEST(MkvPin, TheEndFlushesWhatIsPendingAndASeekForgetsIt)
{
    GMkvRig rig(Blocks(OpenLines(40)), 16);
    EXPECT_EQ(rig.Play().size(), 40u);
    for (int round = 0; round < 3; ++round) {
        rig.Sink(0).ForgetEvents();
        ASSERT_EQ(rig.Seek(0, (20 + round) * 40 * kMs), S_OK);
        rig.Sink(0).WaitForEnd();
        const auto samples = rig.Sink(0).SegmentSamples();
        ASSERT_EQ(samples.size(), static_cast<std::size_t>(20 - round));
        EXPECT_EQ(samples[0].start, 0);
        EXPECT_TRUE(samples[0].discontinuity);
        EXPECT_FALSE(samples[0].sync) << "no key frame, no sync point";
    }
}

TEST(MkvPin, InTheMiddleOfALaceARestartLosesNothingAndASeekStartsAtAFirstFrame)
{
    GBlockLine first = Lasting(0, 30 * kMs);
    GBlockLine second = Lasting(30 * kMs, 60 * kMs);
    first.frames = second.frames = {5, 5, 5};
    for (const bool seeks : {false, true}) {
        GMkvRig rig(Blocks({first, second}));
        rig.Sink(0).Play(GSinkTrick::BlockReceive);
        ASSERT_EQ(rig.Filter()->Run(0), S_OK);
        rig.Sink(0).WaitUntilBlocked();
        ASSERT_EQ(seeks ? rig.Seek(0, 30 * kMs) : rig.Seeking(0)->SetRate(2.0), S_OK);
        rig.Sink(0).Play(GSinkTrick::None);
        rig.Sink(0).WaitForEnd();
        const std::vector<REFERENCE_TIME> rest = {5, 10, 15, 20, 25};
        const std::vector<REFERENCE_TIME> sought = {0, 10, 20};
        EXPECT_EQ(Starts(rig.Sink(0).SegmentSamples()), seeks ? sought : rest);
    }
}

}  // namespace
}  // namespace vex::test
