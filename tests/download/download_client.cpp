// A host of the MP4 filter that loads URLs; download_cases.py runs it beside a server and reads what it prints.
//
//   make FILE                  writes a film with its movie header in front
//   load URL                   loads, meddles meanwhile, plays what came to the end, releases
//   release URL STATE FILE     releases as soon as the download state is STATE and FILE exists; the server has to stall
//   storm COUNT SEED URL...    releases that many filters at any moment, three of them alive at a time

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "formats/mp4/mp4_interface.h"
#include "host/host_graph.h"
#include "platform/console.h"
#include "platform/temp_files.h"
#include "platform/text.h"
#include "support/mp4_builder.h"
#include "support/watchdog.h"

namespace vex::test {
namespace {

constexpr std::chrono::milliseconds kMoment{1};

// Ends the program: what is wrong is on standard error.
void Require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "wrong: %s\n", what);
    std::exit(1);
}

int Make(const std::string& path)
{
    const GMp4Bytes film = HeaderFirst({.tracks = {NumberedVideo(50), PcmSound({400, 400, 400, 400, 400})}});
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(film.data()), static_cast<std::streamsize>(film.size()));
    return out.flush() ? 0 : 1;
}

// One filter and what it says of its download.
struct GLoad {
    GHostGraph graph{LinkedModule()};
    GComPtr<IVexMP4> control;
    HRESULT result = E_FAIL;

    explicit GLoad(const std::string& url)
    {
        Require(graph.Create(CLSID_VexMp4) == S_OK, "the filter cannot be created");
        control = graph.Control<IVexMP4>(IID_IVexMP4);
        result = graph.BeginLoad(WideFromPathArgument(url));
    }
    ULONG State()
    {
        ULONG state = 99;
        Require(control->GetDownloadState(&state) == S_OK, "no download state");
        return state;
    }
    // At most `moments`: a server that never answers leaves it in state 0.
    void WaitFor(ULONG state, int moments)
    {
        for (; moments > 0 && State() != state && State() != VexMp4Download_Done; --moments)
            graph.WaitUntil(kMoment, [] { return false; });
    }
};

// What a host may do while there are no pins.
void Meddle(GLoad& load, int round)
{
    LONGLONG available = -1;
    Require(load.control->GetAvailableTime(&available) == S_OK && available >= 0, "no available time");
    GHostGraph& graph = load.graph;
    Require(SUCCEEDED(round % 3 == 0   ? graph.Pause()
                      : round % 3 == 1 ? graph.Run()
                                       : graph.Stop()),
            "it does not pause, run or stop");
}

void Play(GLoad& load)
{
    Require(load.graph.Stop() == S_OK && load.graph.ConnectAll() == S_OK && load.graph.Run() == S_OK,
            "it does not play");
    Require(load.graph.WaitForEnd(std::chrono::minutes(1)) == GEnd::Complete, "it does not come to its end");
    load.graph.Stop();
    for (std::size_t pin = 0; pin < load.graph.PinCount(); ++pin)
        std::printf("samples %llu\n", static_cast<unsigned long long>(load.graph.Sink(pin)->Report().samples));
    LONGLONG available = 0;
    load.control->GetAvailableTime(&available);
    std::printf("available %lld\n", static_cast<long long>(available));
}

int LeftOver() { return static_cast<int>(ListFiles("mp4", ".tmp").size()); }

int Load(const std::string& url)
{
    {
        const GWatchdog watchdog("a load");
        GLoad load(url);
        std::printf("load %08lX\n", static_cast<unsigned long>(static_cast<std::uint32_t>(load.result)));
        ULONG seen = 99;
        for (int round = 0; SUCCEEDED(load.result) && seen != VexMp4Download_Done; ++round) {
            const ULONG state = load.State();
            if (state != seen)
                std::printf("state %lu\n", static_cast<unsigned long>(state));
            seen = state;
            Meddle(load, round);
            load.graph.WaitUntil(kMoment, [] { return false; });
        }
        if (SUCCEEDED(load.result))
            load.result = load.graph.FinishLoad();
        std::printf("pins %zu\n", load.graph.PinCount());
        std::printf("reason %s\n", load.graph.ErrorText().c_str());
        for (const GGraphEvent& event : load.graph.Events())
            if (event.code == kVexMp4DownloadEvent)
                std::printf("percent %ld\n", static_cast<long>(event.param1));
        if (SUCCEEDED(load.result))
            Play(load);
        std::printf("files %d\n", LeftOver());
        GLockedTempFile stale;  // of a program that was killed: it goes with the filter, too
        Require(stale.Create("mp4"), "no stale file");
        stale.Release();
    }
    std::printf("left %d\n", LeftOver());
    Require(LinkedModule().canUnloadNow() == S_OK, "something of the module is left");
    return 0;
}

int Release(const std::string& url, ULONG state, const std::string& file)
{
    {
        const GWatchdog watchdog("a release");
        GLoad load(url);
        Require(load.result == S_OK, "it does not load");
        load.WaitFor(state, INT_MAX);
        while (!std::filesystem::exists(file))
            load.graph.WaitUntil(kMoment, [] { return false; });
        std::printf("state %lu\n", static_cast<unsigned long>(load.State()));
        const auto source = load.graph.Control<IFileSourceFilter>(IID_IFileSourceFilter);
        Require(source->Load(VEX_W("www.another.invalid"), nullptr) == E_FAIL, "a second load is taken");
    }
    std::printf("left %d\n", LeftOver());
    Require(LinkedModule().canUnloadNow() == S_OK, "something of the module is left");
    return 0;
}

// Entries of a directory of /proc/self; 0 where there is no such thing.
long Count(const std::string& what)
{
    std::error_code error;
    long count = 0;
    for (std::filesystem::directory_iterator i("/proc/self/" + what, error), end; !error && i != end;
         i.increment(error))
        ++count;
    return count;
}

int Storm(int count, unsigned seed, const std::vector<std::string>& urls)
{
    constexpr std::size_t kAlive = 3;
    std::mt19937 random(seed);
    GLockedTempFile foreign;
    Require(foreign.Create("mp4"), "no file of another program");
    std::vector<std::unique_ptr<GLoad>> loads;
    long threads = 0;
    long files = 0;
    const auto release = [&] {
        const GWatchdog watchdog("a release");
        const std::size_t which = random() % loads.size();
        loads.erase(loads.begin() + static_cast<std::ptrdiff_t>(which));
        // A filter of the storm has its file as long as it lives.
        Require(ListFiles("mp4", ".tmp").size() > loads.size(), "a file in use is gone");
    };
    for (int i = 0; i < count; ++i) {
        if (loads.size() == kAlive)
            release();
        loads.push_back(std::make_unique<GLoad>(urls[random() % urls.size()]));
        Require(loads.back()->result == S_OK, "it does not load");
        if (random() % 4 == 0)
            loads.back()->WaitFor(VexMp4Download_Running, 20);
        else
            loads.back()->graph.WaitUntil(std::chrono::milliseconds(random() % 8), [] { return false; });
        if (i == count / 10) {  // by then everything that is made once was made
            while (!loads.empty())
                release();
            threads = Count("task");
            files = Count("fd");
        }
    }
    while (!loads.empty())
        release();
    Require(std::filesystem::exists(foreign.Path()), "the file of another program is gone");
    foreign.Release();
    Require(DeleteIfUnused(foreign.Path()), "the file of another program cannot be deleted");
    std::printf("left %d\n", LeftOver());
    Require(LinkedModule().canUnloadNow() == S_OK, "something of the module is left");
    std::printf("threads %ld\nfiles %ld\n", Count("task") - threads, Count("fd") - files + 1);
    return 0;
}

}  // namespace
}  // namespace vex::test

int main(int argc, char** argv)
{
    using namespace vex::test;
    std::setvbuf(stdout, nullptr, _IONBF, 0);  // the other end waits for each line
    const std::vector<std::string> words = vex::CommandLineArguments(argc, argv);
    const std::string mode = words.size() > 2 ? words[1] : "";
    if (mode == "make")
        return Make(words[2]);
    if (mode == "load")
        return Load(words[2]);
    if (mode == "release" && words.size() > 4)
        return Release(words[2], static_cast<ULONG>(std::stoul(words[3])), words[4]);
    if (mode == "storm" && words.size() > 4)
        return Storm(std::stoi(words[2]), static_cast<unsigned>(std::stoul(words[3])),
                     {words.begin() + 4, words.end()});
    std::fputs("see the comment in download_client.cpp\n", stderr);
    return 2;
}
