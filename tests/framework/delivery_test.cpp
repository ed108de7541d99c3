// What arrives at a peer: order, bytes, times, flags, and what is read for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dshow/media_sample.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

using Kind = GRecordedEvent::Kind;

// The events after the last flush.
std::vector<Kind> KindsSinceFlush(CRecordingSink& sink)
{
    std::vector<Kind> kinds;
    for (const GRecordedEvent& event : sink.Events()) {
        if (event.kind == Kind::EndFlush)
            kinds.clear();
        else if (event.kind != Kind::BeginFlush)
            kinds.push_back(event.kind);
    }
    return kinds;
}

void PlayToEnd(GRig& rig)
{
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    for (std::size_t pin = 0; pin < rig.PinCount(); ++pin)
        rig.Sink(pin).WaitForEnd();
}

}  // namespace

TEST(Delivery, EveryPacketBecomesOneSampleBetweenSegmentAndEnd)
{
    GRig rig(Movie(700));  // more than a queue holds
    PlayToEnd(rig);
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

TEST(Delivery, AStreamOfOnePacketComesWithItsEnd)
{
    GRig rig(Movie(1, false));
    PlayToEnd(rig);
    EXPECT_THAT(KindsSinceFlush(rig.Sink(0)), testing::ElementsAre(Kind::Segment, Kind::Sample, Kind::End));
}

TEST(Delivery, AStreamWithoutPacketsEndsToo)
{
    GRig rig(Movie(0));
    PlayToEnd(rig);
    EXPECT_THAT(KindsSinceFlush(rig.Sink(1)), testing::ElementsAre(Kind::Segment, Kind::End));
}

TEST(Delivery, ContinuationsArriveInsideTheirPacket)
{
    GScript script = Movie(2, false);
    script.packets[1].continuation = true;
    script.packets[1].start = script.packets[1].stop = kNoTime;
    GNextPacket last = script.packets[0];
    last.start = 2 * kFrame;
    script.packets.push_back(last);
    GRig rig(std::move(script));
    PlayToEnd(rig);
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].bytes.size(), 200u);
    EXPECT_EQ(samples[0].bytes.back(), 1);
    EXPECT_EQ(samples[1].start, 2 * kFrame);
}

TEST(Delivery, EmptyAndTimelessPacketsArePassedOver)
{
    GScript script = Movie(4, false);
    script.packets[1].size = 0;
    script.packets[2].start = script.packets[2].stop = kNoTime;
    GRig rig(std::move(script));
    PlayToEnd(rig);
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[1].start, 3 * kFrame);
}

TEST(Delivery, APacketWithoutAnEndHasNoStopTimeAndNoMediaTimes)
{
    GScript script = Movie(2, false);
    script.packets[1].stop = kNoTime;
    GRig rig(std::move(script));
    PlayToEnd(rig);
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[1].start, kFrame);
    EXPECT_EQ(samples[1].stop, kNoTime);
    EXPECT_EQ(samples[1].mediaStop, kNoTime);
}

TEST(Delivery, MediaTimesOfTheFormatWinAndTheMatroskaRulesSetNone)
{
    GScript script = Movie(2, false);
    script.packets[1].mediaStart = 77;
    script.packets[1].mediaStop = 78;
    GRig avi(script);
    PlayToEnd(avi);
    EXPECT_EQ(avi.Sink(0).SegmentSamples().at(1).mediaStart, 77);
    GRig mkv(script, kMkvRules);
    PlayToEnd(mkv);
    EXPECT_EQ(mkv.Sink(0).SegmentSamples().at(1).mediaStart, kNoTime);
    EXPECT_FALSE(mkv.Sink(0).SegmentSamples().at(0).preroll) << "the option is off at first";
}

TEST(Delivery, OnlyTheAviRulesCallTheFirstSampleASyncPoint)
{
    GScript script = Movie(2, false);
    script.packets[0].keyFrame = false;
    GRig avi(script);
    PlayToEnd(avi);
    EXPECT_TRUE(avi.Sink(0).SegmentSamples().at(0).sync);
    GRig mkv(script, kMkvRules);
    PlayToEnd(mkv);
    EXPECT_FALSE(mkv.Sink(0).SegmentSamples().at(0).sync);
}

TEST(Delivery, NothingIsReadForAPinThatNobodyConnected)
{
    GRig rig(Movie(50));
    rig.Connect(1);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(1).WaitForEnd();
    EXPECT_EQ(rig.Log().Announcements(), 100u);
    EXPECT_EQ(rig.Log().Payloads(), 50u);
}

TEST(Delivery, AnIndexStillInTheMakingDelaysAndLosesNothing)
{
    GRig rig(Movie(60));
    rig.Log().SetAvailable(0);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    for (std::size_t count = 2; count <= 120; count += 2) {
        rig.Log().SetAvailable(count);
        rig.Log().WaitForPayloads(count);
    }
    rig.Sink(0).WaitForEnd();
    rig.Sink(1).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 60u);
}

TEST(Delivery, NotYetForEverStillStops)
{
    GRig rig(Movie(10));
    rig.Log().SetAvailable(3);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Log().WaitForPayloads(3);
    const GWatchdog watchdog("a stop while there is nothing to read");
    EXPECT_EQ(rig.Filter()->Stop(), S_OK);
}

TEST(ReadingAhead, StopsAtThreeHundredPacketsAndGoesOn)
{
    GRig rig(Movie(1000, false));
    rig.Sink(0).Play(GSinkTrick::BlockReceive);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitUntilBlocked();
    rig.Log().WaitForPayloads(302);
    // 300 queued, one inside the peer, one in the reader's hands.
    EXPECT_EQ(rig.Log().Payloads(), 302u);
    rig.Sink(0).Play(GSinkTrick::None);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 1000u);
}

TEST(ReadingAhead, StopsAtTheByteLimitAndGoesOn)
{
    GRig rig(Movie(40, false, 1 << 20));
    rig.Sink(0).Play(GSinkTrick::BlockReceive);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitUntilBlocked();
    rig.Log().WaitForPayloads(10);
    EXPECT_EQ(rig.Log().Payloads(), 10u) << "8 MiB queued, one inside the peer, one in the reader's hands";
    rig.Sink(0).Play(GSinkTrick::None);
    rig.Sink(0).WaitForEnd();
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 40u);
}

TEST(ReadingAhead, PacketsAboveTheByteLimitStillPlay)
{
    GRig rig(Movie(3, false, 9 << 20));
    PlayToEnd(rig);
    EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 3u);
}

TEST(Buffers, APacketTooLargeMakesTheBufferHalfAsLargeAgain)
{
    GScript script = Movie(3, false);
    script.packets[1].size = 1 << 20;
    GRig rig(std::move(script));
    rig.ConnectAll();
    ALLOCATOR_PROPERTIES properties{};
    ASSERT_EQ(rig.Sink(0).Allocator()->GetProperties(&properties), S_OK);
    EXPECT_EQ(properties.cBuffers, 1);
    EXPECT_EQ(properties.cbBuffer, 640 * 480);
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();

    ASSERT_EQ(rig.Sink(0).Allocator()->GetProperties(&properties), S_OK);
    EXPECT_EQ(properties.cbBuffer, (1 << 20) * 3 / 2);
    // The flush of the renegotiation costs what the peer had, never what it gets.
    std::vector<std::size_t> sizes;
    for (const auto& sample : rig.Sink(0).Samples())
        sizes.push_back(sample.bytes.size());
    EXPECT_THAT(sizes, testing::ElementsAre(100, 1 << 20, 100));
    EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), 2u) << "one at the start, one for the new buffers";
    EXPECT_EQ(rig.Sink(0).Count(Kind::EndFlush), 2u);
}

TEST(Buffers, TheMatroskaRulesEnlargeWithoutAFlushAndLoseOnlyWhatCannotBeEnlarged)
{
    GScript script = Movie(4, false);
    script.packets[1].size = 1 << 20;
    script.packets[2].size = 3 << 20;
    GRig rig(std::move(script), kMkvRules);
    // Grants at most 2 MiB.
    class CLimited final : public IMemAllocator {
    public:
        HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override
        {
            return real->QueryInterface(riid, ppv);
        }
        ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
        ULONG STDMETHODCALLTYPE Release() override
        {
            const ULONG left = --references;
            if (left == 0)
                delete this;
            return left;
        }
        HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) override
        {
            ALLOCATOR_PROPERTIES limited = *request;
            limited.cbBuffer = std::min<LONG>(limited.cbBuffer, 2 << 20);
            return real->SetProperties(&limited, actual);
        }
        HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* props) override
        {
            return real->GetProperties(props);
        }
        HRESULT STDMETHODCALLTYPE Commit() override { return real->Commit(); }
        HRESULT STDMETHODCALLTYPE Decommit() override { return real->Decommit(); }
        HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* end,
                                            DWORD flags) override
        {
            return real->GetBuffer(sample, start, end, flags);
        }
        HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* sample) override { return real->ReleaseBuffer(sample); }

    private:
        ~CLimited() = default;
        std::atomic<ULONG> references{1};
        const GComPtr<IMemAllocator> real{new CMemAllocator};
    };
    rig.Sink(0).offered = GComPtr<IMemAllocator>::Adopt(new CLimited);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    std::vector<std::size_t> sizes;
    for (const auto& sample : rig.Sink(0).Samples())
        sizes.push_back(sample.bytes.size());
    EXPECT_THAT(sizes, testing::ElementsAre(100, 1 << 20, 100));
    EXPECT_EQ(rig.Sink(0).Count(Kind::BeginFlush), 1u);
}

TEST(Memory, ThatRunsShortWhileReadingEndsTheStreamsAfterWhatWasRead)
{
    for (const bool inPayload : {false, true}) {
        GScript script = Movie(50);
        const auto fail = [](std::size_t packet) {
            if (packet == 60)
                throw std::bad_alloc();
        };
        (inPayload ? script.onPayload : script.onRead) = fail;
        GRig rig(std::move(script));
        PlayToEnd(rig);
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 30u);
        EXPECT_EQ(rig.Sink(1).SegmentSamples().size(), 30u);
        // And the filter still works.
        rig.Sink(0).ForgetEvents();
        EXPECT_EQ(rig.Seek(0, 40 * kFrame), S_OK);
        rig.Sink(0).WaitForEnd();
        EXPECT_EQ(rig.Sink(0).SegmentSamples().size(), 10u);
    }
}

TEST(Memory, ThatRunsShortOnTheStreamingThreadIsReported)
{
    class CHungryPin final : public CVexOutputPin {
    public:
        using CVexOutputPin::CVexOutputPin;

    protected:
        GUnitStatus PrepareUnit() override { throw std::bad_alloc(); }
    };
    GRig rig(Movie(5, false), kAviRules, [](CVexFilter* owner, WString name, const GStreamInfo& stream) {
        return std::make_unique<CHungryPin>(owner, std::move(name), stream);
    });
    PlayToEnd(rig);
    EXPECT_TRUE(rig.Sink(0).Samples().empty());
}

TEST(Restart, StopAndRunAgainStartsASegmentWithADiscontinuity)
{
    GRig rig(Movie(100));
    rig.Sink(0).Play(GSinkTrick::BlockReceive);
    rig.ConnectAll();
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitUntilBlocked();
    rig.StopGraph();
    rig.Sink(0).Play(GSinkTrick::None);
    rig.Sink(0).ForgetEvents();
    rig.Sink(1).ForgetEvents();
    ASSERT_EQ(rig.Seek(0, 90 * kFrame), S_OK) << "stopped";
    ASSERT_EQ(rig.Filter()->Run(0), S_OK);
    rig.Sink(0).WaitForEnd();
    rig.Sink(1).WaitForEnd();
    const auto samples = rig.Sink(0).SegmentSamples();
    ASSERT_EQ(samples.size(), 10u);
    EXPECT_TRUE(samples[0].discontinuity);
    EXPECT_TRUE(samples[0].sync);
    EXPECT_EQ(samples[0].start, 0);
}

TEST(Restart, HeadersGoAheadOfTheDataAfterEveryStart)
{
    GScript script = Movie(20);
    script.headers = [](std::uint32_t stream) {
        std::vector<GPacketPtr> packets;
        if (stream == 1) {
            auto packet = std::make_unique<GPacket2>();
            packet->data.Resize(3);
            packet->start = 0;
            packet->stop = 1;
            packet->header = true;
            std::ranges::fill(packet->data.Span(), std::uint8_t{0xAA});
            packets.push_back(std::move(packet));
        }
        return packets;
    };
    GRig rig(std::move(script));
    PlayToEnd(rig);
    EXPECT_EQ(rig.Sink(1).SegmentSamples().at(0).bytes.size(), 3u);
    rig.Sink(1).ForgetEvents();
    EXPECT_EQ(rig.Seek(1, 10 * kFrame), S_OK);
    rig.Sink(1).WaitForEnd();
    const auto samples = rig.Sink(1).SegmentSamples();
    ASSERT_EQ(samples.size(), 11u);
    EXPECT_EQ(samples[0].bytes.size(), 3u);
    EXPECT_EQ(samples[0].start, -10 * kFrame) << "headers lie at the start of the file";
    EXPECT_EQ(rig.Sink(0).SegmentSamples().at(0).bytes.size(), 100u);
}

}  // namespace vex::test
