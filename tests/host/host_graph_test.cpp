#include "host/host_graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "host/fake_filter.h"

namespace vex::test {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

// Far beyond what any wait of a test takes: only a hang meets it.
constexpr std::chrono::minutes kBound{2};

GFakePin Pin(const WCHAR* name, std::uint32_t samples)
{
    GFakePin pin;
    pin.name = name;
    pin.samples = samples;
    return pin;
}

// A graph over the fake filter that checks, when it ends, that nothing of the module is left alive.
class GFakeGraph {
public:
    explicit GFakeGraph(GFakeScript script)
        : module(FakeModule(std::move(script))), graph(std::make_unique<GHostGraph>(module))
    {
        EXPECT_EQ(graph->Create(kFakeClsid), S_OK);
        loaded = graph->Load(VEX_W("script"));
    }
    ~GFakeGraph()
    {
        graph.reset();
        EXPECT_EQ(module.canUnloadNow(), S_OK) << "an object of the module is still alive";
    }
    GHostGraph* operator->() const { return graph.get(); }

    HRESULT loaded = E_FAIL;

private:
    GModule module;
    std::unique_ptr<GHostGraph> graph;
};

bool IsHolding(const GFakeGraph& graph, std::size_t pin)
{
    return graph->WaitUntil(kBound, [&] { return graph->Sink(pin)->Report().holding; });
}

}  // namespace

TEST(HostDelivery, EverySampleArrivesOnceWithItsBytesTimesAndFlags)
{
    GFakeScript script{{Pin(VEX_W("Video"), 3), Pin(VEX_W("Audio"), 5)}, S_OK, {}};
    script.pins[1].hasStop = false;
    GFakeGraph graph(std::move(script));
    ASSERT_EQ(graph->PinCount(), 2u);
    EXPECT_EQ(graph->PinName(1), VEX_W("Audio"));

    std::vector<GSampleView> seen[2];
    std::vector<std::vector<std::uint8_t>> payloads[2];
    GSinkOptions options;
    options.onSample = [&](const GSampleView& view) {
        seen[view.pin].push_back(view);
        payloads[view.pin].emplace_back(view.data.begin(), view.data.end());
        return S_OK;
    };
    ASSERT_EQ(graph->ConnectAll(options), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    ASSERT_EQ(graph->Stop(), S_OK);

    ASSERT_EQ(seen[0].size(), 3u);
    ASSERT_EQ(seen[1].size(), 5u);
    for (std::uint32_t n = 0; n < 3; ++n) {
        EXPECT_EQ(payloads[0][n], FakePayload(0, n, 16));
        EXPECT_EQ(seen[0][n].start, n * kFakeSampleTime);
        EXPECT_EQ(seen[0][n].stop, (n + 1) * kFakeSampleTime);
        EXPECT_EQ(seen[0][n].mediaStop, n + 1);
        EXPECT_EQ(seen[0][n].sync, n % 2 == 0);
        EXPECT_EQ(seen[0][n].discontinuity, n == 0);
        EXPECT_EQ(seen[0][n].preroll, n == 1);
    }
    EXPECT_EQ(seen[1][4].start, 4 * kFakeSampleTime);
    EXPECT_EQ(seen[1][4].stop, kNoTime) << "a missing stop time must not be made up";
    EXPECT_THAT(graph->Sink(0)->Report().violations, IsEmpty());
    EXPECT_EQ(graph->Sink(1)->Report().bytes, 80u);
}

TEST(HostDelivery, ASampleWithoutTimesIsReportedWithoutTimes)
{
    GFakeScript script{{Pin(VEX_W("Video"), 1)}, S_OK, {}};
    script.pins[0].hasTimes = false;
    GFakeGraph graph(std::move(script));
    GSampleView seen;
    GSinkOptions options;
    options.onSample = [&](const GSampleView& view) {
        seen = view;
        return S_OK;
    };
    ASSERT_EQ(graph->ConnectAll(options), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    EXPECT_EQ(seen.start, kNoTime);
    EXPECT_EQ(seen.mediaStart, kNoTime);
}

TEST(HostDelivery, AnUnconnectedPinDoesNotKeepTheGraphWaiting)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 2), Pin(VEX_W("Audio"), 2)}, S_OK, {}});
    ASSERT_EQ(graph->Connect(1), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    EXPECT_EQ(graph->Sink(0), nullptr);
    EXPECT_EQ(graph->Sink(1)->Report().samples, 2u);
}

TEST(HostDelivery, APeerThatBringsItsOwnAllocatorIsAccepted)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 2)}, S_OK, {}});
    GSinkOptions options;
    options.offerAllocator = false;
    ASSERT_EQ(graph->Connect(0, options), S_OK);
    EXPECT_TRUE(graph->Sink(0)->Allocator());
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    EXPECT_EQ(graph->Sink(0)->Report().samples, 2u);
}

TEST(HostErrors, WhyALoadFailedComesFromTheErrorObject)
{
    GFakeGraph graph({{}, E_FAIL, VEX_W("no header at byte 12")});
    EXPECT_EQ(graph.loaded, E_FAIL);
    EXPECT_EQ(graph->ErrorText(), "no header at byte 12");
}

TEST(HostErrors, AnErrorTextLeftByAnEarlierCallIsNotTakenForThisOne)
{
    {
        GFakeGraph graph({{}, E_FAIL, VEX_W("stale")});
    }
    GComPtr<ICreateErrorInfo> writer;
    ASSERT_EQ(CreateErrorInfo(writer.Put()), S_OK);
    WString stale = VEX_W("stale");
    writer->SetDescription(stale.data());
    SetErrorInfo(0, QueryFor<IErrorInfo>(writer.Get(), IID_IErrorInfo).Get());
    GFakeGraph graph({{}, E_OUTOFMEMORY, {}});
    EXPECT_EQ(graph.loaded, E_OUTOFMEMORY);
    EXPECT_EQ(graph->ErrorText(), "");
}

TEST(HostErrors, AnAbortEventEndsTheWaitWithItsCode)
{
    GFakeScript script{{Pin(VEX_W("Video"), 2)}, S_OK, {}};
    script.pins[0].failWith = VFW_E_BUFFER_OVERFLOW;
    GFakeGraph graph(std::move(script));
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Failed);
    EXPECT_EQ(graph->ErrorCode(), VFW_E_BUFFER_OVERFLOW);
}

TEST(HostErrors, AStreamThatNeverEndsIsNoticed)
{
    GFakeScript script{{Pin(VEX_W("Video"), 2)}, S_OK, {}};
    script.pins[0].neverEnds = true;
    GFakeGraph graph(std::move(script));
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(std::chrono::milliseconds(50)), GEnd::Stalled);
}

TEST(HostErrors, BrokenRulesOfDeliveryAreNamed)
{
    GFakeScript script{{Pin(VEX_W("Video"), 1), Pin(VEX_W("Audio"), 1)}, S_OK, {}};
    script.pins[0].skipsSegment = true;
    script.pins[1].endsTwice = true;
    GFakeGraph graph(std::move(script));
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    ASSERT_EQ(graph->Stop(), S_OK);  // joins the streaming threads: the second end has been said
    EXPECT_THAT(graph->Sink(0)->Report().violations, ElementsAre("a sample came before the first segment"));
    EXPECT_THAT(graph->Sink(1)->Report().violations, ElementsAre("end of stream was said twice"));
}

TEST(HostSinks, AHeldSinkLetsGoWhenTold)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 4)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    graph->Sink(0)->SetBehaviour(GSinkBehaviour::Hold, 2);
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_TRUE(IsHolding(graph, 0));
    EXPECT_EQ(graph->Sink(0)->Report().samples, 2u);
    graph->Sink(0)->SetBehaviour(GSinkBehaviour::Accept);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    EXPECT_EQ(graph->Sink(0)->Report().samples, 4u);
}

TEST(HostSinks, AHeldSinkDoesNotKeepTheGraphFromStopping)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 4), Pin(VEX_W("Audio"), 4)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    graph->Sink(0)->SetBehaviour(GSinkBehaviour::Hold);
    graph->Sink(1)->SetBehaviour(GSinkBehaviour::Hold, 1);
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_TRUE(IsHolding(graph, 0));
    ASSERT_TRUE(IsHolding(graph, 1));
    EXPECT_EQ(graph->Stop(), S_OK);
}

TEST(HostSinks, AGraphIsTakenApartAroundAHeldSink)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 4)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    graph->Sink(0)->SetBehaviour(GSinkBehaviour::Hold);
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_TRUE(IsHolding(graph, 0));
}  // the destructor neither hangs nor leaves an object behind

TEST(HostSinks, ASeekFlushesAHeldSinkAndItsCountStartsAgain)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 9), Pin(VEX_W("Audio"), 9)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    for (std::size_t pin = 0; pin < 2; ++pin)
        graph->Sink(pin)->SetBehaviour(GSinkBehaviour::Hold, 2);
    ASSERT_EQ(graph->Run(), S_OK);
    for (std::size_t pin = 0; pin < 2; ++pin)
        ASSERT_TRUE(IsHolding(graph, pin));

    const auto results = graph->Seek(5 * kFakeSampleTime);
    for (const GSeekResult& result : results) {
        EXPECT_EQ(result.result, S_OK);
        EXPECT_EQ(result.reached, 5 * kFakeSampleTime);
    }
    for (std::size_t pin = 0; pin < 2; ++pin) {
        ASSERT_TRUE(graph->WaitUntil(kBound, [&] { return graph->Sink(pin)->Report().segmentSamples == 2; }));
        const GSinkReport report = graph->Sink(pin)->Report();
        EXPECT_EQ(report.segmentStart, 5 * kFakeSampleTime);
        EXPECT_EQ(report.flushes, 1u);
        EXPECT_THAT(report.violations, IsEmpty());
        graph->Sink(pin)->SetBehaviour(GSinkBehaviour::Accept);
    }
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
}

TEST(HostSinks, ARefusedSampleEndsThatStreamOnly)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 9), Pin(VEX_W("Audio"), 9), Pin(VEX_W("Text"), 9)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    graph->Sink(0)->SetBehaviour(GSinkBehaviour::Refuse, 3, E_FAIL);
    graph->Sink(1)->SetBehaviour(GSinkBehaviour::Finish, 1);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    EXPECT_EQ(graph->Sink(0)->Report().samples, 3u);
    EXPECT_EQ(graph->Sink(1)->Report().samples, 1u);
    EXPECT_EQ(graph->Sink(2)->Report().samples, 9u);
}

TEST(HostSinks, ASinkThatDropsItsConnectionMidwayRefusesTheNextSample)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 9)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    graph->Sink(0)->SetBehaviour(GSinkBehaviour::Hold, 2);
    ASSERT_EQ(graph->Run(), S_OK);
    ASSERT_TRUE(IsHolding(graph, 0));
    EXPECT_EQ(graph->Sink(0)->Disconnect(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    EXPECT_EQ(graph->Sink(0)->Report().samples, 2u);
}

TEST(HostSinks, AnUnwelcomeMediaTypeIsRefusedAtConnection)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 1)}, S_OK, {}});
    GSinkOptions options;
    options.accepts = [](const CMediaType&) { return false; };
    EXPECT_TRUE(FAILED(graph->Connect(0, options)));
    EXPECT_EQ(graph->Sink(0), nullptr);
}

TEST(HostState, AGraphPlaysAgainFromTheStartAfterAStop)
{
    GFakeGraph graph({{Pin(VEX_W("Video"), 3)}, S_OK, {}});
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(graph->Run(), S_OK);
        ASSERT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
        EXPECT_EQ(graph->Sink(0)->Report().samples, 3u) << "round " << round;
        ASSERT_EQ(graph->Stop(), S_OK);
    }
}

TEST(HostModule, AFileThatIsNoModuleIsRefusedWithAReason)
{
    std::string error;
    EXPECT_FALSE(LoadModule(VEX_W("no-such-module.so"), error).IsUsable());
    EXPECT_NE(error.find("no-such-module"), std::string::npos) << error;
}

}  // namespace vex::test
