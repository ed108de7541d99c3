// graph_test: one of the module's filters in the system's own filter graph. Usage: see kUsage.

#include <algorithm>
#include <cstdio>

#include "windows/decode_cases.h"
#include "windows/path_cases.h"
#include "windows/resources.h"
#include "windows/support.h"
#include "windows/test_graph.h"

namespace vex::wintest {

namespace {

constexpr char kUsage[] =
    "graph_test MODULE samples own|grabber FILES        every sample of every pin as a line of JSON\n"
    "graph_test MODULE rounds own|grabber COUNT FILES   play, pause, seek, stop, play again; nothing left behind\n"
    "graph_test MODULE again own|grabber FILES          play to the end, then from 0 again\n"
    "graph_test MODULEPATH reload COUNT FILES           load the module, play, unload it; nothing left behind\n"
    "graph_test MODULE decode avi|mp3|auto CLSID FILE OUTPUT COUNT TARGET...\n"
    "                                                   decoded by the system, COUNT samples from each TARGET\n"
    "graph_test MODULE paths CLSID DIRECTORY FILE DECOY file names that are hard to pass on\n"
    "graph_test hold shared|alone FILE EVENT            (used by paths) holds a file open for writing\n"
    "MODULE: the module file, or \"registered\". CLSID: the filter's class identifier in braces. FILES: any number of\n"
    "CLSID FILE, in turn.\n";

struct GFile {
    CLSID clsid;
    std::wstring path;
};

struct GSubject {
    const GModuleAccess& access;
    GSinkKind kind;
    CLSID clsid;
    std::wstring file;
};

// Does `work` for every file, and says which one failed.
template <class Work>
void ForEach(const std::vector<GFile>& files, Work&& work)
{
    for (std::size_t i = 0; i < files.size(); ++i) {
        try {
            work(files[i], i);
        } catch (const std::exception& failure) {
            throw GTestFailure(Utf8FromWide(files[i].path) + ": " + failure.what());
        }
    }
}

using GPinSamples = std::vector<std::vector<GSampleRecord>>;

GPinSamples AllSamples(const GTestGraph& graph)
{
    GPinSamples all;
    for (const auto& log : graph.Logs())
        all.push_back(log->Samples());
    return all;
}

std::string Where(const GTestGraph& graph, std::size_t pin, const char* situation)
{
    return std::string(situation) + ": pin \"" + graph.Logs()[pin]->name + "\": ";
}

void RequireSame(const GTestGraph& graph, const GPinSamples& whole, const char* situation)
{
    for (std::size_t pin = 0; pin < whole.size(); ++pin) {
        const auto now = graph.Logs()[pin]->Samples();
        const auto [was, is] = std::ranges::mismatch(whole[pin], now);
        if (was == whole[pin].end() && is == now.end())
            continue;
        throw GTestFailure(Where(graph, pin, situation) + std::to_string(now.size()) + " samples instead of " +
                           std::to_string(whole[pin].size()) + ", first difference at " +
                           std::to_string(is - now.begin()) +
                           (was != whole[pin].end() ? "\n  was " + ToJson(pin, *was) : "") +
                           (is != now.end() ? "\n  is  " + ToJson(pin, *is) : ""));
    }
}

// Where a seek landed on one pin, told from what arrived.
struct GLanding {
    std::size_t index = 0;  // of the first sample in the whole file's
    LONGLONG base = 0;      // what was taken off the times, 100 ns
    bool operator==(const GLanding&) const = default;
};

void RequireSameLanding(const std::vector<GLanding>& expected, const std::vector<GLanding>& reached,
                        const char* situation)
{
    if (expected == reached)
        return;
    std::string text = std::string("a seek lands elsewhere when the graph is ") + situation + ':';
    for (std::size_t pin = 0; pin < expected.size(); ++pin)
        text += " sample " + std::to_string(reached[pin].index) + " at " + std::to_string(reached[pin].base) +
                ", not sample " + std::to_string(expected[pin].index) + " at " + std::to_string(expected[pin].base) +
                ';';
    throw GTestFailure(text);
}

// What follows a seek must be the end of what the whole file gave: the same payloads, the times moved by one base.
GLanding RequireTail(const GTestGraph& graph, std::size_t pin, const std::vector<GSampleRecord>& whole,
                     const char* situation)
{
    const auto& log = *graph.Logs()[pin];
    const auto tail = log.LastSegment();
    const std::string where = Where(graph, pin, situation);
    Require(!tail.empty(), where + "no sample with a discontinuity arrived");
    Require(tail.size() <= whole.size(), where + std::to_string(tail.size()) + " samples are more than the file has");
    Require(tail.front().sync, where + "the first sample is no sync point");
    const std::size_t first = whole.size() - tail.size();
    Require(tail.front().start && whole[first].start, where + "the first sample has no time");
    const LONGLONG base = *whole[first].start - *tail.front().start;
    for (std::size_t i = 0; i < tail.size(); ++i) {
        const auto& before = whole[first + i];
        const auto& after = tail[i];
        const bool same = before.md5 == after.md5 && before.size == after.size && before.start && after.start &&
                          *before.start - base == *after.start && before.stop.has_value() == after.stop.has_value() &&
                          (!before.stop || *before.stop - base == *after.stop) && (i == 0 || before.sync == after.sync);
        Require(same, where + "sample " + std::to_string(i) + " differs\n  was " + ToJson(pin, before) + "\n  is  " +
                          ToJson(pin, after));
    }
    if (const auto segment = log.SegmentStart())
        Require(*segment == base, where + "the new segment starts at " + std::to_string(*segment) +
                                      ", the samples at " + std::to_string(base));
    return {first, base};
}

std::vector<GLanding> RequireTails(const GTestGraph& graph, const GPinSamples& whole, const char* situation)
{
    std::vector<GLanding> landings;
    for (std::size_t pin = 0; pin < whole.size(); ++pin)
        landings.push_back(RequireTail(graph, pin, whole[pin], situation));
    for (const GLanding& landing : landings)
        Require(landing.base == landings.front().base, std::string(situation) + ": the pins have different bases");
    return landings;
}

// Brings the running graph to a point where every pin has delivered and none has finished.
void PlayAWhile(GTestGraph& graph, GSinkKind kind)
{
    constexpr std::size_t kSamples = 3;
    if (kind == GSinkKind::Own)
        graph.HoldSinksAt(kSamples);
    graph.Run();
    for (const auto& log : graph.Logs())
        log->WaitForSamples(kind == GSinkKind::Own ? kSamples : 1);
}

// Plays from the start: `whole` is filled by the first round and compared with in the others.
void PlayFromTheStart(GTestGraph& graph, GPinSamples& whole, const char* situation)
{
    graph.ClearLogs();
    graph.Run();
    graph.WaitForEnd();
    graph.Stop();
    if (whole.empty())
        whole = AllSamples(graph);
    for (std::size_t pin = 0; pin < whole.size(); ++pin)
        Require(!whole[pin].empty(), Where(graph, pin, situation) + "no sample arrived");
    RequireSame(graph, whole, situation);
}

std::vector<GLanding> SeekStopped(GTestGraph& graph, const GPinSamples& whole, LONGLONG target)
{
    graph.ClearLogs();
    graph.SeekTo(target);
    graph.Run();
    graph.WaitForEnd();
    const auto landings = RequireTails(graph, whole, "seek while stopped");
    graph.Stop();
    return landings;
}

std::vector<GLanding> SeekPaused(GTestGraph& graph, const GPinSamples& whole, LONGLONG target)
{
    graph.SeekTo(0);
    graph.ClearLogs();
    graph.Pause();
    for (const auto& log : graph.Logs())
        log->WaitForSamples(1);
    graph.ClearLogs();
    graph.SeekTo(target);
    for (const auto& log : graph.Logs())
        log->WaitForSamples(1);
    graph.Run();
    graph.WaitForEnd();
    const auto landings = RequireTails(graph, whole, "seek while paused");
    graph.Stop();
    return landings;
}

// A grabber cannot be held, so its graph runs by the clock; the seek goes close to the end to save the time in between.
std::vector<GLanding> SeekRunning(GTestGraph& graph, const GPinSamples& whole, LONGLONG target, GSinkKind kind)
{
    graph.SeekTo(0);
    graph.ClearLogs();
    PlayAWhile(graph, kind);
    graph.SeekTo(target);
    graph.HoldSinksAt(0);
    graph.WaitForEnd();
    const auto landings = RequireTails(graph, whole, "seek while running");
    graph.Stop();
    return landings;
}

// With a grabber and without a clock the pause may come after the end: also that must lose nothing.
void PauseInTheMiddle(GTestGraph& graph, GPinSamples& whole, GSinkKind kind)
{
    graph.SeekTo(0);
    graph.ClearLogs();
    PlayAWhile(graph, kind);
    graph.Pause();
    graph.HoldSinksAt(0);
    graph.Run();
    graph.WaitForEnd();
    RequireSame(graph, whole, "pause in the middle");
    graph.Stop();
}

void StopInTheMiddle(GTestGraph& graph, GSinkKind kind)
{
    graph.SeekTo(0);
    graph.ClearLogs();
    PlayAWhile(graph, kind);
    graph.Stop();
    graph.HoldSinksAt(0);
}

void Round(const GSubject& subject, GPinSamples& whole)
{
    {
        GTestGraph graph(subject.access, subject.clsid);
        const GLoadResult loaded = graph.Load(subject.file);
        Check(loaded.result, "Load (" + loaded.errorText + ")");
        graph.ConnectAll(subject.kind, GPace::Free);
        const LONGLONG duration = graph.Duration();
        Require(duration > 0, "the graph knows no duration");

        // A file without an index is known in whole once it was played in whole: only then does a seek have one answer.
        PlayFromTheStart(graph, whole, "first run");
        const LONGLONG middle = duration / 2;
        const auto landings = SeekStopped(graph, whole, middle);
        Require(landings.front().base > 0 && landings.front().base <= middle,
                "the seek did not land before its target");
        RequireSameLanding(landings, SeekPaused(graph, whole, middle), "paused");
        graph.SeekTo(0);
        PlayFromTheStart(graph, whole, "run again from 0");

        // What needs the graph to stay in the middle: sinks that hold, or the clock.
        graph.SetPace(subject.kind == GSinkKind::Own ? GPace::Free : GPace::Clock);
        const LONGLONG late = duration - duration / 4;
        const auto lateLandings = SeekStopped(graph, whole, late);
        RequireSameLanding(lateLandings, SeekRunning(graph, whole, late, subject.kind), "running");
        StopInTheMiddle(graph, subject.kind);
        graph.SetPace(GPace::Free);
        PauseInTheMiddle(graph, whole, subject.kind);
    }
    Require(subject.access.CanUnloadNow() == S_OK, "DllCanUnloadNow does not say S_OK after all was released");
}

// Playing once without a seek and then from 0 again asks for a position that the filter believes to be at.
void PlayTwice(const GSubject& subject)
{
    GPinSamples whole;
    GTestGraph graph(subject.access, subject.clsid);
    Check(graph.Load(subject.file).result, "Load");
    graph.ConnectAll(subject.kind, GPace::Free);
    PlayFromTheStart(graph, whole, "first run");
    graph.SeekTo(0);
    PlayFromTheStart(graph, whole, "second run");
}

// Handles that the system itself keeps of every filter graph, an empty one too: Wine 8 keeps an event.
unsigned long HandlesKeptPerGraph()
{
    constexpr unsigned long kGraphs = 8;
    const auto build = [] {
        GComPtr<IUnknown> empty;
        Check(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, empty.PutVoid()),
              "the system has no filter graph");
    };
    build();
    const GResources before = SettledResources({});
    for (unsigned long i = 0; i < kGraphs; ++i)
        build();
    const GResources after = SettledResources(before);
    return after.handles > before.handles ? (after.handles - before.handles) / kGraphs : 0;
}

// Does something that builds so many graphs, over and over; what the process holds after the third time must not have
// grown after the last, but for what the system keeps of a graph.
template <class Work>
void Repeat(int count, std::size_t graphs, Work&& work)
{
    constexpr int kSettledRound = 3;  // by then the system has loaded and started what it keeps
    Require(count > kSettledRound, "too few rounds to tell what stays behind");
    ProveTheCounters();
    const unsigned long kept = HandlesKeptPerGraph() * static_cast<unsigned long>(graphs);
    GResources limit;
    for (int round = 1; round <= count; ++round) {
        work();
        limit.handles += round > kSettledRound ? kept : 0;
        const GResources now = round < kSettledRound ? CountResources() : SettledResources(limit);
        std::fprintf(stderr, "round %d, files: %zu: %s (the system keeps %lu handles)\n", round, graphs,
                     now.Text().c_str(), kept);
        if (round == kSettledRound)
            limit = now;
        else if (round > kSettledRound)
            Require(now.Within(limit), "the rounds leave something behind");
    }
}

void Rounds(const GModuleAccess& access, GSinkKind kind, int count, const std::vector<GFile>& files)
{
    std::vector<GPinSamples> whole(files.size());
    Repeat(count, files.size(), [&] {
        ForEach(files, [&](const GFile& file, std::size_t i) {
            Round({access, kind, file.clsid, file.path}, whole[i]);
        });
    });
}

void Reload(const std::wstring& module, int count, const std::vector<GFile>& files)
{
    Repeat(count, files.size(), [&] {
        ForEach(files, [&](const GFile& file, std::size_t) {
            {
                const GModuleAccess access(module);
                Check(PlayWhole(access, file.clsid, file.path).loaded.result, "Load");
                Require(access.CanUnloadNow() == S_OK, "DllCanUnloadNow does not say S_OK after all was released");
            }
            Require(!GetModuleHandleW(L"VEX.ax"), "the module stays loaded");
        });
    });
}

// The lines of a file follow one with its number.
void PrintSamples(const GSubject& subject, std::size_t number)
{
    std::string text = "{\"file\":" + std::to_string(number) + "}\n";
    {
        GTestGraph graph(subject.access, subject.clsid);
        const GLoadResult loaded = graph.Load(subject.file);
        Check(loaded.result, "Load (" + loaded.errorText + ")");
        graph.ConnectAll(subject.kind, GPace::Free);
        graph.Run();
        graph.WaitForEnd();
        graph.Stop();
        for (std::size_t pin = 0; pin < graph.Logs().size(); ++pin) {
            for (const auto& sample : graph.Logs()[pin]->Samples())
                text += ToJson(pin, sample) + '\n';
        }
        std::fprintf(stderr, "%zu of %zu pins through the sample grabber\n", graph.GrabbedPins(), graph.Logs().size());
    }
    Require(subject.access.CanUnloadNow() == S_OK, "DllCanUnloadNow does not say S_OK after all was released");
    std::fwrite(text.data(), 1, text.size(), stdout);
}

GSinkKind ParseKind(std::wstring_view text)
{
    Require(text == L"own" || text == L"grabber", kUsage);
    return text == L"own" ? GSinkKind::Own : GSinkKind::Grabber;
}

GDecoder ParseDecoder(std::wstring_view text)
{
    Require(text == L"avi" || text == L"mp3" || text == L"auto", kUsage);
    return text == L"avi" ? GDecoder::AviVideo : text == L"mp3" ? GDecoder::Mp3Audio : GDecoder::Automatic;
}

std::vector<GFile> ParseFiles(std::span<const std::wstring> words)
{
    Require(!words.empty() && words.size() % 2 == 0, kUsage);
    std::vector<GFile> files;
    for (std::size_t i = 0; i < words.size(); i += 2)
        files.push_back({ParseGuid(words[i]), words[i + 1]});
    return files;
}

std::vector<LONGLONG> ParseTimes(std::span<const std::wstring> words)
{
    std::vector<LONGLONG> times;
    for (const auto& word : words)
        times.push_back(std::stoll(word));
    return times;
}

int Body(std::span<wchar_t*> arguments)
{
    const std::vector<std::wstring> words(arguments.begin(), arguments.end());
    const std::span all(words);
    if (words.size() == 4 && words[0] == L"hold")
        return HoldFile(words[1] == L"shared", words[2], words[3]);
    Require(words.size() >= 5, kUsage);
    const std::wstring& mode = words[1];
    if (mode == L"reload")
        return Reload(words[0], std::stoi(words[2]), ParseFiles(all.subspan(3))), 0;
    const GModuleAccess access(words[0]);
    if (mode == L"rounds")
        return Rounds(access, ParseKind(words[2]), std::stoi(words[3]), ParseFiles(all.subspan(4))), 0;
    if (mode == L"decode" && words.size() >= 7)
        return Decode(access, ParseGuid(words[3]), ParseDecoder(words[2]), words[4], words[5], std::stoul(words[6]),
                      ParseTimes(all.subspan(7)));
    if (mode == L"paths" && words.size() == 6)
        return TryPaths(access, ParseGuid(words[2]), words[3], words[4], words[5]);
    Require(mode == L"samples" || mode == L"again", kUsage);
    ForEach(ParseFiles(all.subspan(3)), [&](const GFile& file, std::size_t number) {
        const GSubject subject{access, ParseKind(words[2]), file.clsid, file.path};
        mode == L"samples" ? PrintSamples(subject, number) : PlayTwice(subject);
    });
    return 0;
}

}  // namespace

}  // namespace vex::wintest

int wmain(int argc, wchar_t** argv) { return vex::wintest::RunProgram(vex::wintest::Body, argc, argv); }
