// Files that have to be fetched first: Load returns, the pins come later.
#include <gtest/gtest.h>

#include "host/host_graph.h"
#include "support/scripted_filter.h"

namespace vex::test {

namespace {

// What a test and the preparation that it scripts share.
struct GFetch {
    std::function<GResult<WString>()> result = [] { return WString(VEX_W("fetched")); };
    std::function<void()> onLoaded = [] {};
    std::string shortfall;
    CAMEvent begun{true};
    CAMEvent goOn{true};
    CAMEvent loaded{true};
    std::atomic<bool> aborted{false};
    std::atomic<int> reports{0};
    std::atomic<bool> succeeded{false};
};

class GFetching final : public GPreparation {
public:
    explicit GFetching(GFetch& shared) : fetch(shared) {}
    GResult<WString> Run() override
    {
        fetch.begun.Set();
        fetch.goOn.Wait();
        if (fetch.aborted)
            return GError{GErrorKind::Aborted, "aborted", 0};
        return fetch.result();
    }
    std::string Shortfall() const override { return fetch.shortfall; }
    void Abort() override
    {
        fetch.aborted = true;
        fetch.goOn.Set();
    }
    void Loaded(const GStatus& status) override
    {
        ++fetch.reports;
        fetch.succeeded = status.Ok();
        fetch.onLoaded();
        fetch.loaded.Set();
    }

private:
    GFetch& fetch;
};

// Paths that begin with "http" are fetched, others opened as they are.
GComPtr<CScriptedFilter> Filter(GFetch& fetch, GScript script = Movie(10))
{
    script.prepare = [&fetch](const WString& path) -> GResult<std::unique_ptr<GPreparation>> {
        return path.starts_with(VEX_W("http")) ? std::make_unique<GFetching>(fetch) : nullptr;
    };
    return GComPtr<CScriptedFilter>(new CScriptedFilter(std::move(script)));
}

VexLoadState StateOf(CScriptedFilter& filter, std::string* reason = nullptr)
{
    VexLoadState state = VexLoad_None;
    BSTR text = nullptr;
    EXPECT_EQ(filter.GetLoadState(&state, &text), S_OK);
    EXPECT_TRUE(text || state != VexLoad_Failed);
    EXPECT_TRUE(!text || reason) << "a reason where a test expects none";
    if (reason)
        *reason = TakeText(text);
    return state;
}

WString CurrentFile(CScriptedFilter& filter)
{
    LPOLESTR name = nullptr;
    EXPECT_EQ(filter.GetCurFile(&name, nullptr), S_OK);
    const WString copy = name ? WString(name) : WString();
    CoTaskMemFree(name);
    return copy;
}

GComPtr<IMediaSeeking> SeekingOf(CScriptedFilter& filter)
{
    return QueryFor<IMediaSeeking>(static_cast<IPin*>(filter.GetPin(0)), IID_IMediaSeeking);
}

void ExpectPlays(CScriptedFilter& filter)
{
    const auto sink = GComPtr<CRecordingSink>::Adopt(new CRecordingSink);
    ASSERT_EQ(filter.GetPin(0)->Connect(sink.Get(), nullptr), S_OK);
    ASSERT_EQ(filter.Run(0), S_OK);
    sink->WaitForEnd();
    EXPECT_EQ(sink->SegmentSamples().size(), 10u);
    EXPECT_EQ(filter.Stop(), S_OK);
    EXPECT_EQ(filter.GetPin(0)->Disconnect(), S_OK);
    sink->Disconnect();
}

void WaitForNoObjects()
{
    const GWatchdog watchdog("the end of a filter that loads");
    while (!CUnknown::AllGone())
        std::this_thread::yield();
}

}  // namespace

TEST(Preparation, PinsAppearWhenItIsDoneAndUntilThenTheFilterDoesWhatAFilterDoes)
{
    const GWatchdog watchdog("a file that is fetched");
    GFetch fetch;
    const auto filter = Filter(fetch);
    EXPECT_EQ(StateOf(*filter), VexLoad_None);
    ASSERT_EQ(filter->Load(VEX_W("http://x"), nullptr), S_OK);
    fetch.begun.Wait();
    EXPECT_EQ(StateOf(*filter), VexLoad_Running);
    EXPECT_EQ(filter->GetPinCount(), 0);
    EXPECT_EQ(filter->Load(VEX_W("other"), nullptr), E_FAIL);
    EXPECT_EQ(CurrentFile(*filter), VEX_W("http://x"));
    ULONG count = 0;
    EXPECT_EQ(filter->GetPropertyCount(-1, &count), VFW_E_WRONG_STATE);
    EXPECT_EQ(filter->Run(0), S_OK);
    EXPECT_EQ(filter->Stop(), S_OK);
    EXPECT_EQ(filter->Pause(), S_OK);
    GComPtr<IEnumPins> pins;
    GComPtr<IPin> pin;
    ASSERT_EQ(filter->EnumPins(pins.Put()), S_OK);
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), S_FALSE);

    fetch.goOn.Set();
    fetch.loaded.Wait();
    EXPECT_TRUE(fetch.succeeded);
    EXPECT_EQ(StateOf(*filter), VexLoad_Done);
    EXPECT_EQ(filter->GetPinCount(), 2);
    GComPtr<IEnumPins> copy;
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(pins->Skip(1), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(pins->Clone(copy.Put()), VFW_E_ENUM_OUT_OF_SYNC);
    EXPECT_EQ(pins->Reset(), S_OK);
    EXPECT_EQ(pins->Next(1, pin.Put(), nullptr), S_OK);
    EXPECT_EQ(filter->Load(nullptr, nullptr), E_FAIL);
    // Pins that come while the filter is paused connect once it is stopped.
    LONGLONG position = 0;
    const auto seeking = SeekingOf(*filter);
    EXPECT_EQ(seeking->SetPositions(&position, AM_SEEKING_AbsolutePositioning, nullptr, 0), S_OK);
    EXPECT_EQ(filter->Stop(), S_OK);
    ExpectPlays(*filter);
}

TEST(Preparation, ThatFailsOrFallsShortSaysWhyAndLeavesRoomForAnotherFileWhenNothingOpened)
{
    const auto fetched = [] { return WString(VEX_W("fetched")); };
    const struct {
        std::function<GResult<WString>()> result;
        const char* shortfall;
        const char* brokenPath;
        const char* reason;
        bool opens;
    } kCases[] = {
        {[] {
             return GError{GErrorKind::Io, "no such host", 0};
         },
         "", "", "no such host", false},
        {fetched, "", "fetched", "the script does not open (at byte 42)", false},
        {[]() -> GResult<WString> { throw std::bad_alloc(); }, "", "", "out of memory", false},
        {fetched, "cut off", "", "the file did not arrive whole: cut off", true},
        {fetched, "cut off", "fetched", "the file did not arrive whole: cut off; the script does not open (at byte 42)",
         false},
    };
    for (const auto& one : kCases) {
        const GWatchdog watchdog(one.reason);
        GFetch fetch;
        fetch.result = one.result;
        fetch.shortfall = one.shortfall;
        GScript script = Movie(10);
        script.brokenPath = one.brokenPath;
        const auto filter = Filter(fetch, std::move(script));
        ASSERT_EQ(filter->Load(VEX_W("http://x"), nullptr), S_OK);
        fetch.goOn.Set();
        fetch.loaded.Wait();
        EXPECT_EQ(fetch.succeeded, one.opens);
        std::string reason;
        EXPECT_EQ(filter->Load(nullptr, nullptr), one.opens ? E_FAIL : E_POINTER);
        EXPECT_EQ(StateOf(*filter, &reason), one.opens ? VexLoad_Done : VexLoad_Failed);
        EXPECT_EQ(reason, one.reason);
        EXPECT_EQ(CurrentFile(*filter), one.opens ? VEX_W("http://x") : WString());
        EXPECT_EQ(filter->GetPinCount(), one.opens ? 2 : 0);

        EXPECT_EQ(filter->Load(VEX_W("local"), nullptr), one.opens ? E_FAIL : S_OK);
        EXPECT_EQ(StateOf(*filter, &reason), VexLoad_Done);
        EXPECT_EQ(reason.empty(), !one.opens);
        ExpectPlays(*filter);
    }
}

TEST(Preparation, EndsWithItsFilter)
{
    const GWatchdog watchdog("a filter dropped while it loads");
    {
        GFetch fetch;
        auto filter = Filter(fetch);
        ASSERT_EQ(filter->Load(VEX_W("http://x"), nullptr), S_OK);
        fetch.begun.Wait();
        ASSERT_EQ(filter->Pause(), S_OK);
        filter.Reset();
        EXPECT_TRUE(fetch.aborted);
        EXPECT_EQ(fetch.reports, 0) << "there is nobody left to tell";
    }
    {
        GFetch fetch;
        CAMEvent opening;
        GScript script = Movie(10);
        script.onOpen = [&](const std::atomic<bool>& interrupted) {
            opening.Set();
            while (!interrupted)
                std::this_thread::yield();
            return false;
        };
        auto filter = Filter(fetch, std::move(script));
        ASSERT_EQ(filter->Load(VEX_W("http://x"), nullptr), S_OK);
        fetch.goOn.Set();
        opening.Wait();
        filter.Reset();
    }
    {
        GFetch fetch;
        auto filter = Filter(fetch);
        fetch.onLoaded = [&] {
            EXPECT_EQ(filter->Stop(), VFW_E_WRONG_STATE) << "on the loading thread";
            EXPECT_EQ(filter->Load(VEX_W("x"), nullptr), E_FAIL);
            filter.Reset();
        };
        ASSERT_EQ(filter->Load(VEX_W("http://x"), nullptr), S_OK);
        fetch.goOn.Set();
        WaitForNoObjects();
    }
}

TEST(Preparation, MeetsCallsOfTheHostAtAnyMoment)
{
    for (int round = 0; round < 60; ++round) {
        const GWatchdog watchdog("a host that does not wait for its file");
        GFetch fetch;
        if (round % 3 == 0)
            fetch.result = [] { return GError{GErrorKind::Io, "no such host", 0}; };
        auto filter = Filter(fetch);
        ASSERT_EQ(filter->Load(VEX_W("http://x"), nullptr), S_OK);
        fetch.goOn.Set();
        for (int i = 0; i < round; ++i) {
            filter->Pause();
            filter->Run(0);
            if (const auto seeking = SeekingOf(*filter)) {
                LONGLONG position = kFrame;
                EXPECT_EQ(seeking->SetPositions(&position, AM_SEEKING_AbsolutePositioning, nullptr, 0), S_OK);
            }
            filter->Stop();
        }
        filter.Reset();
    }
    WaitForNoObjects();
}

}  // namespace vex::test
