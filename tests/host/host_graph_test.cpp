#include "host/host_graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dshow/class_factory.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Far beyond what any wait of a test takes: only a hang meets it.
constexpr std::chrono::minutes kBound{2};

constexpr CLSID kClsid{0x8E1F3C00, 0x1111, 0x4222, {0x83, 0x33, 0x44, 0x44, 0x55, 0x55, 0x66, 0x66}};

// What the module's only filter plays. One graph at a time.
struct GScene {
    GScript script;
    CScriptedFilter::GMakePin makePin{};
    std::shared_ptr<GScriptLog> log = std::make_shared<GScriptLog>();
};
GScene scene;

CUnknown* CreateFilter(IUnknown* outer, HRESULT*)
{
    auto* filter = new CScriptedFilter(scene.script, kPlainRules, outer, scene.log);
    filter->makePin = scene.makePin;
    return filter;
}

constexpr std::array kTable{CFactoryTemplate{VEX_W("Scripted"), kClsid, CreateFilter, {}}};

HRESULT STDMETHODCALLTYPE GetScriptedClass(REFCLSID clsid, REFIID iid, void** ppv)
{
    return GetClassObject(kTable, clsid, iid, ppv);
}

HRESULT STDMETHODCALLTYPE CanUnloadScripted() { return CanUnloadNow(); }

// A graph that checks, when it ends, that nothing of the module is left alive.
class GSceneGraph {
public:
    explicit GSceneGraph(GScript script, CScriptedFilter::GMakePin makePin = {})
    {
        scene = {std::move(script), std::move(makePin)};
        graph = std::make_unique<GHostGraph>(GModule{GetScriptedClass, CanUnloadScripted, nullptr});
        EXPECT_EQ(graph->Create(kClsid), S_OK);
        loaded = graph->Load(VEX_W("script"));
    }
    ~GSceneGraph()
    {
        graph.reset();
        EXPECT_EQ(CanUnloadNow(), S_OK) << "an object of the module is still alive";
    }
    GHostGraph* operator->() const { return graph.get(); }

    void PlayToEnd(const GSinkOptions& options = {})
    {
        ASSERT_EQ(graph->ConnectAll(options), S_OK);
        ASSERT_EQ(graph->Run(), S_OK);
        EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
    }
    // Runs until every sink holds, `samples` taken.
    void RunUntilHolding(std::uint64_t samples)
    {
        ASSERT_EQ(graph->ConnectAll(), S_OK);
        for (std::size_t pin = 0; pin < graph->PinCount(); ++pin)
            graph->Sink(pin)->SetBehaviour(GSinkBehaviour::Hold, samples);
        ASSERT_EQ(graph->Run(), S_OK);
        for (std::size_t pin = 0; pin < graph->PinCount(); ++pin)
            ASSERT_TRUE(graph->WaitUntil(kBound, [&] { return graph->Sink(pin)->Report().holding; }));
    }

    HRESULT loaded = E_FAIL;

private:
    std::unique_ptr<GHostGraph> graph;
};

enum class GFault : std::uint8_t { NoSegment, EndsTwice, Aborts };

// Breaks one rule of delivery.
class CFaultyPin final : public CVexOutputPin {
public:
    CFaultyPin(CVexFilter* holder, const GStreamInfo& info, GFault wanted) : CVexOutputPin(holder, info), fault(wanted)
    {
    }

protected:
    HRESULT OnThreadStartPlay() override
    {
        return fault == GFault::NoSegment ? S_OK : CVexOutputPin::OnThreadStartPlay();
    }
    HRESULT DoBufferProcessingLoop() override
    {
        if (fault == GFault::Aborts)
            return Filter()->NotifyEvent(EC_ERRORABORT, VFW_E_BUFFER_OVERFLOW, 0);
        const HRESULT hr = CVexOutputPin::DoBufferProcessingLoop();
        if (hr == S_OK && fault == GFault::EndsTwice)
            DeliverEndOfStream();
        return hr;
    }

private:
    const GFault fault;
};

}  // namespace

TEST(HostDelivery, TheCallbackGetsEverySampleAndThePinsDescribeThemselves)
{
    GSceneGraph graph(Movie(3));
    ASSERT_EQ(graph->PinCount(), 2u);
    EXPECT_EQ(graph->PinName(1), VEX_W("Same name"));
    EXPECT_EQ(graph->PinTypes(1).at(0).majortype, MEDIATYPE_Audio);
    EXPECT_EQ(graph->Duration(), 3 * kFrame);
    std::vector<std::vector<std::uint8_t>> payloads[2];
    GSinkOptions options;
    options.offerAllocator = false;
    options.onSample = [&](const GSampleView& view) {
        payloads[view.pin].emplace_back(view.data.begin(), view.data.end());
        return S_OK;
    };
    graph.PlayToEnd(options);
    EXPECT_TRUE(graph->Sink(0)->Allocator()) << "the filter's own";
    ASSERT_EQ(graph->Stop(), S_OK);
    for (std::size_t pin = 0; pin < 2; ++pin) {
        ASSERT_EQ(payloads[pin].size(), 3u);
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_EQ(payloads[pin][i], std::vector<std::uint8_t>(100, static_cast<std::uint8_t>(2 * i + pin)));
        EXPECT_EQ(graph->Sink(pin)->Report().bytes, 300u);
        EXPECT_THAT(graph->Sink(pin)->Report().violations, IsEmpty());
    }
}

TEST(HostErrors, WhyALoadFailedComesFromTheErrorObjectOfThisLoad)
{
    {
        GScript script = Movie(1);
        script.brokenPath = "script";
        GSceneGraph graph(std::move(script));
        EXPECT_EQ(graph.loaded, E_FAIL);
        EXPECT_EQ(graph->ErrorText(), "the script does not open (at byte 42)");
    }
    GComPtr<ICreateErrorInfo> writer;
    ASSERT_EQ(CreateErrorInfo(writer.Put()), S_OK);
    WString stale = VEX_W("stale");
    writer->SetDescription(stale.data());
    SetErrorInfo(0, QueryFor<IErrorInfo>(writer.Get(), IID_IErrorInfo).Get());
    GSceneGraph graph(
        Movie(1), [](CVexFilter*, const GStreamInfo&) -> std::unique_ptr<CVexOutputPin> { throw std::bad_alloc(); });
    EXPECT_EQ(graph.loaded, E_OUTOFMEMORY);
    EXPECT_EQ(graph->ErrorText(), "out of memory");
}

TEST(HostErrors, AnAbortEventEndsTheWaitWithItsCode)
{
    GSceneGraph graph(Movie(2, false), PinsOf<CFaultyPin>(GFault::Aborts));
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Failed);
    EXPECT_EQ(graph->ErrorCode(), VFW_E_BUFFER_OVERFLOW);
}

TEST(HostErrors, AStreamThatNeverEndsIsNoticed)
{
    GSceneGraph graph(Movie(3, false));
    scene.log->SetAvailable(2);
    ASSERT_EQ(graph->ConnectAll(), S_OK);
    ASSERT_EQ(graph->Run(), S_OK);
    EXPECT_EQ(graph->WaitForEnd(std::chrono::milliseconds(50)), GEnd::Stalled);
}

TEST(HostErrors, BrokenRulesOfDeliveryAreNamed)
{
    constexpr std::pair<GFault, const char*> kCases[] = {
        {GFault::NoSegment, "a sample came before the first segment"},
        {GFault::EndsTwice, "end of stream was said twice"},
    };
    for (const auto& [fault, violation] : kCases) {
        GSceneGraph graph(Movie(1, false), PinsOf<CFaultyPin>(fault));
        graph.PlayToEnd();
        ASSERT_EQ(graph->Stop(), S_OK);  // joins the streaming threads: the second end has been said
        EXPECT_THAT(graph->Sink(0)->Report().violations, ElementsAre(violation));
    }
}

TEST(HostSinks, AHeldSinkLetsGoWhenToldAndKeepsNoGraphFromStoppingOrEnding)
{
    enum class GWay : std::uint8_t { Accept, Disconnect, Stop, Destroy };
    for (const GWay way : {GWay::Accept, GWay::Disconnect, GWay::Stop, GWay::Destroy}) {
        GSceneGraph graph(Movie(4));
        graph.RunUntilHolding(2);
        EXPECT_EQ(graph->Sink(0)->Report().samples, 2u);
        if (way == GWay::Stop) {
            EXPECT_EQ(graph->Stop(), S_OK);
        }
        if (way == GWay::Stop || way == GWay::Destroy)
            continue;
        for (std::size_t pin = 0; pin < 2; ++pin) {
            if (way == GWay::Accept)
                graph->Sink(pin)->SetBehaviour(GSinkBehaviour::Accept);
            else
                graph->Sink(pin)->Disconnect();
        }
        EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
        EXPECT_EQ(graph->Sink(0)->Report().samples, way == GWay::Accept ? 4u : 2u);
    }
}

TEST(HostSinks, ASeekFlushesAHeldSinkAndItsCountStartsAgain)
{
    GSceneGraph graph(Movie(50));  // the second pin's new stop may cost it what its sink had
    graph.RunUntilHolding(2);
    for (const GSeekResult& result : graph->Seek(5 * kFrame, 8 * kFrame)) {
        EXPECT_EQ(result.result, S_OK);
        EXPECT_EQ(result.reached, 5 * kFrame);
    }
    for (std::size_t pin = 0; pin < 2; ++pin) {
        ASSERT_TRUE(graph->WaitUntil(kBound, [&] { return graph->Sink(pin)->Report().segmentSamples == 2; }));
        const GSinkReport report = graph->Sink(pin)->Report();
        EXPECT_EQ(report.segmentStart, 5 * kFrame);
        EXPECT_EQ(report.segmentStop, 8 * kFrame);
        EXPECT_GE(report.flushes, 2u) << "one at the start";
        EXPECT_THAT(report.violations, IsEmpty());
        graph->Sink(pin)->SetBehaviour(GSinkBehaviour::Accept);
    }
    EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
}

TEST(HostSinks, ARefusedSampleEndsThatStreamOnly)
{
    for (const GSinkBehaviour behaviour : {GSinkBehaviour::Refuse, GSinkBehaviour::Finish}) {
        GSceneGraph graph(Movie(9));
        ASSERT_EQ(graph->ConnectAll(), S_OK);
        graph->Sink(0)->SetBehaviour(behaviour, 3);
        ASSERT_EQ(graph->Run(), S_OK);
        EXPECT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
        EXPECT_EQ(graph->Sink(0)->Report().samples, 3u);
        EXPECT_EQ(graph->Sink(1)->Report().samples, 9u);
        EXPECT_TRUE(graph->Sink(1)->Report().endOfStream);
    }
}

TEST(HostState, AGraphPlaysAgainFromTheStartAfterAStop)
{
    GSceneGraph graph(Movie(3, false));
    graph.PlayToEnd();
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(graph->Stop(), S_OK);
        graph->Seek(0);
        ASSERT_EQ(graph->Run(), S_OK);
        ASSERT_EQ(graph->WaitForEnd(kBound), GEnd::Complete);
        EXPECT_EQ(graph->Sink(0)->Report().samples, 3u) << "a report begins with a run";
    }
}

TEST(HostModule, AFileThatIsNoModuleIsRefusedWithAReason)
{
    std::string error;
    EXPECT_FALSE(LoadModule(VEX_W("no-such-module.so"), error).IsUsable());
    EXPECT_NE(error.find("no-such-module"), std::string::npos) << error;
}

}  // namespace vex::test
