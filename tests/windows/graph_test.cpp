// graph_test: one of the module's filters in the system's own filter graph. Usage: see kUsage.

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <ranges>

#include "windows/resources.h"
#include "windows/support.h"
#include "windows/test_graph.h"

namespace vex::wintest {

namespace {

constexpr char kUsage[] =
    "graph_test MODULE samples own|grabber FILES        what Load said and every sample, as lines of JSON\n"
    "graph_test MODULE rounds own|grabber COUNT FILES   play, seek, pause, stop, play again; nothing left behind.\n"
    "                                                   What follows each seek as lines of JSON\n"
    "graph_test MODULE large CLSID FILE TARGET...       play to the end, then from each TARGET: number of samples,\n"
    "                                                   digest of the bytes, what follows the seeks as lines of JSON\n"
    "graph_test MODULEPATH reload COUNT FILES           load the module, play, unload it; nothing left behind\n"
    "graph_test MODULE decode avi|mp3|auto CLSID FILE OUTPUT COUNT TARGET...\n"
    "                                                   decoded by the system, COUNT samples from each TARGET\n"
    "graph_test hold shared|alone FILE                  holds the file open for writing until stdin ends\n"
    "MODULE: the module file, or \"registered\". CLSID: the filter's class identifier in braces. FILES: any number of\n"
    "CLSID FILE, in turn.\n";

struct GFile {
    CLSID clsid;
    std::wstring path;
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

using GArrivals = std::vector<GArrival>;  // one for each pin

GArrivals Arrivals(const GTestGraph& graph)
{
    GArrivals all;
    for (const auto& log : graph.Logs())
        all.push_back(log->Arrived());
    return all;
}

enum class GExtent {
    All,
    OnlyTheEnd,  // something else may have arrived before
};

void RequireSame(const GArrivals& expected, GArrivals arrived, const char* situation, GExtent extent = GExtent::All)
{
    Require(arrived.size() == expected.size(), std::string(situation) + ": another number of pins");
    for (std::size_t pin = 0; pin < expected.size(); ++pin) {
        auto& now = arrived[pin].samples;
        const auto& then = expected[pin].samples;
        if (extent == GExtent::OnlyTheEnd && now.size() > then.size())
            now.erase(now.begin(), now.end() - static_cast<std::ptrdiff_t>(then.size()));
        const std::string where = std::string(situation) + ": pin " + std::to_string(pin) + ": ";
        const auto [was, is] = std::ranges::mismatch(then, now);
        Require(was == then.end() && is == now.end(), where + std::to_string(now.size()) + " samples instead of " +
                                                          std::to_string(then.size()) + ", first difference at " +
                                                          std::to_string(is - now.begin()) +
                                                          (was != then.end() ? "\n  was " + ToJson(pin, *was) : "") +
                                                          (is != now.end() ? "\n  is  " + ToJson(pin, *is) : ""));
        Require(arrived[pin].segment == expected[pin].segment, where + "another start of the segment");
    }
}

std::vector<std::uint8_t> Bytes(const GArrival& arrival)
{
    std::vector<std::uint8_t> bytes;
    for (const auto& sample : arrival.samples)
        bytes.insert(bytes.end(), sample.bytes.begin(), sample.bytes.end());
    return bytes;
}

// Every format delivers its stream's headers, if it has such, and then the rest of the stream from somewhere on.
void RequireTheRest(const GArrivals& whole, const GArrivals& arrived)
{
    for (std::size_t pin = 0; pin < whole.size(); ++pin) {
        const auto all = Bytes(whole[pin]), rest = Bytes(arrived[pin]);
        const std::string where = "after a seek pin " + std::to_string(pin) + " delivers ";
        Require(!rest.empty() && rest.size() <= all.size(), where + std::to_string(rest.size()) + " bytes");
        const auto behindHeaders = std::ranges::mismatch(rest, all).in1;
        Require(std::equal(behindHeaders, rest.end(), all.end() - (rest.end() - behindHeaders)),
                where + "other bytes than the end of the file has");
    }
}

// Brings the running graph to a point where every pin has delivered and none has finished.
void PlayAWhile(GTestGraph& graph, GSinkKind kind)
{
    constexpr std::size_t kSamples = 3;
    graph.SeekTo(0);
    graph.ClearLogs();
    if (kind == GSinkKind::Own)
        graph.HoldSinksAt(kSamples);
    graph.Run();
    for (const auto& log : graph.Logs())
        log->WaitForSamples(kind == GSinkKind::Own ? kSamples : 1);
}

GArrivals FinishPlaying(GTestGraph& graph)
{
    graph.HoldSinksAt(0);
    graph.WaitForEnd();
    GArrivals arrived = Arrivals(graph);
    graph.Stop();
    return arrived;
}

GArrivals PlayFromHere(GTestGraph& graph)
{
    graph.ClearLogs();
    graph.Run();
    return FinishPlaying(graph);
}

GArrivals SeekPaused(GTestGraph& graph, LONGLONG target)
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
    return FinishPlaying(graph);
}

// A grabber cannot be held, so its graph runs by the clock; the seek goes close to the end to save the time in between.
GArrivals SeekRunning(GTestGraph& graph, LONGLONG target, GSinkKind kind)
{
    PlayAWhile(graph, kind);
    graph.ClearLogs();
    graph.SeekTo(target);
    return FinishPlaying(graph);
}

// With a grabber and without a clock the pause may come after the end: also that must lose nothing.
GArrivals PauseInTheMiddle(GTestGraph& graph, GSinkKind kind)
{
    PlayAWhile(graph, kind);
    graph.Pause();
    graph.Run();
    return FinishPlaying(graph);
}

// Playing once without a seek and then from 0 again asks for a position that the filter believes to be at.
GArrivals PlayTwice(GTestGraph& graph)
{
    const GArrivals whole = PlayFromHere(graph);
    for (const GArrival& pin : whole)
        Require(!pin.samples.empty(), "a pin delivers nothing");
    graph.SeekTo(0);
    RequireSame(whole, PlayFromHere(graph), "second run");
    return whole;
}

// What a round saw of a file: the whole of it, and what followed the seeks, by target.
struct GRound {
    GArrivals whole;
    std::map<LONGLONG, GArrivals> seeks;
};

GRound PlayRound(const GModuleAccess& access, GSinkKind kind, const GFile& file)
{
    GTestGraph graph(access, file.clsid, GKept::Bytes);
    graph.MustLoad(file.path);
    graph.ConnectAll(kind);
    // A file without an index is known in whole once it was played in whole: only then does a seek have one answer.
    GRound saw{PlayTwice(graph), {}};
    const LONGLONG duration = graph.Duration(), middle = duration / 2, late = duration - duration / 8;
    for (const LONGLONG target : {middle, late}) {
        graph.SeekTo(target);
        RequireTheRest(saw.whole, saw.seeks[target] = PlayFromHere(graph));
    }
    RequireSame(saw.seeks[middle], SeekPaused(graph, middle), "seek while paused");

    // What needs the graph to stay in the middle: sinks that hold, or the clock.
    graph.SetPace(kind == GSinkKind::Own ? GPace::Free : GPace::Clock);
    RequireSame(saw.seeks[late], SeekRunning(graph, late, kind), "seek while running",
                kind == GSinkKind::Own ? GExtent::All : GExtent::OnlyTheEnd);
    PlayAWhile(graph, kind);
    graph.Stop();
    graph.SetPace(GPace::Free);
    RequireSame(saw.whole, PauseInTheMiddle(graph, kind), "pause in the middle");
    return saw;
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

void RequireUnloadable(const GModuleAccess& access)
{
    Require(access.CanUnloadNow() == S_OK, "DllCanUnloadNow does not say S_OK after all was released");
}

void PrintArrivals(const GArrivals& arrived)
{
    for (std::size_t pin = 0; pin < arrived.size(); ++pin) {
        for (const auto& sample : arrived[pin].samples)
            std::puts(ToJson(pin, sample).c_str());
    }
}

void PrintSeek(std::size_t file, LONGLONG target, const GArrivals& arrived)
{
    std::string segments;  // a grabber sees none
    for (const GArrival& pin : arrived)
        segments += (segments.empty() ? "" : ",") + (pin.segment ? std::to_string(*pin.segment) : "null");
    std::printf("{\"file\":%zu,\"target\":%lld,\"segments\":[%s]}\n", file, target, segments.c_str());
    PrintArrivals(arrived);
}

void Rounds(const GModuleAccess& access, GSinkKind kind, int count, const std::vector<GFile>& files)
{
    std::vector<GRound> first(files.size());
    Repeat(count, files.size(), [&] {
        ForEach(files, [&](const GFile& file, std::size_t i) {
            GRound saw = PlayRound(access, kind, file);
            RequireUnloadable(access);
            if (first[i].whole.empty()) {
                for (const auto& [target, arrived] : saw.seeks)
                    PrintSeek(i, target, arrived);
                first[i] = std::move(saw);
                return;
            }
            RequireSame(first[i].whole, saw.whole, "another round");
            for (const auto& [target, arrived] : saw.seeks)
                RequireSame(first[i].seeks[target], arrived, "a seek in another round");
        });
    });
}

void Reload(const std::wstring& module, int count, const std::vector<GFile>& files)
{
    Repeat(count, files.size(), [&] {
        ForEach(files, [&](const GFile& file, std::size_t) {
            {
                const GModuleAccess access(module);
                {
                    GTestGraph graph(access, file.clsid);
                    graph.MustLoad(file.path);
                    graph.ConnectAll(GSinkKind::Own);
                    PlayFromHere(graph);
                }
                RequireUnloadable(access);
            }
            Require(!GetModuleHandleW(L"VEX.ax"), "the module stays loaded");
        });
    });
}

// The lines of a file follow one with its number and what Load said: whether that was right is for the caller to say.
void PrintSamples(const GModuleAccess& access, GSinkKind kind, const GFile& file, std::size_t number)
{
    {
        GTestGraph graph(access, file.clsid);
        const GLoadResult loaded = graph.Load(file.path);
        std::printf("{\"file\":%zu,\"result\":\"%s\",\"told\":%s}\n", number, ResultText(loaded.result).c_str(),
                    loaded.errorText.empty() ? "false" : "true");
        if (FAILED(loaded.result)) {
            std::fprintf(stderr, "%s: %s\n", Utf8FromWide(file.path).c_str(), loaded.errorText.c_str());
        } else {
            graph.ConnectAll(kind);
            PrintArrivals(PlayFromHere(graph));
            std::fprintf(stderr, "%zu of %zu pins through the sample grabber\n", graph.GrabbedPins(),
                         graph.Logs().size());
        }
    }
    RequireUnloadable(access);
}

// A file whose samples would not fit in memory.
void Large(const GModuleAccess& access, const GFile& file, const std::vector<LONGLONG>& targets)
{
    GTestGraph graph(access, file.clsid, GKept::First);
    graph.MustLoad(file.path);
    graph.ConnectAll(GSinkKind::Own, GSinkAllocator::None);
    for (GArrival& pin : PlayFromHere(graph))
        std::printf("{\"samples\":%zu,\"md5\":\"%s\"}\n", pin.count, HexText(pin.all.Finish()).c_str());
    for (const LONGLONG target : targets) {
        graph.SeekTo(target);
        graph.ClearLogs();
        graph.Run();
        for (const auto& log : graph.Logs())
            log->WaitForSamples(GPinLog::kFirst);
        graph.Stop();
        PrintSeek(0, target, Arrivals(graph));
    }
}

void PrintType(const CMediaType& type)
{
    if (type.formattype == FORMAT_VideoInfo) {
        const auto& header = reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat)->bmiHeader;
        std::printf("{\"width\":%ld,\"height\":%ld,\"bits\":%d}\n", header.biWidth, header.biHeight, header.biBitCount);
        return;
    }
    Require(type.formattype == FORMAT_WaveFormatEx, "the decoder gives neither pictures nor sound");
    const auto& wave = *reinterpret_cast<const WAVEFORMATEX*>(type.pbFormat);
    std::printf("{\"rate\":%lu,\"channels\":%d,\"bits\":%d}\n", wave.nSamplesPerSec, wave.nChannels,
                wave.wBitsPerSample);
}

// The first samples of a decoder, their bytes to `output`.
void WriteDecoded(const std::vector<GSampleRecord>& samples, std::size_t most, const std::string& seek,
                  std::FILE* output)
{
    for (const auto& sample : samples | std::views::take(most)) {
        Require(std::fwrite(sample.bytes.data(), 1, sample.size, output) == sample.size,
                "the decoded bytes cannot be written");
        std::printf("{\"seek\":%s,\"start\":%s,\"size\":%zu}\n", seek.c_str(),
                    sample.start != kNoTime ? std::to_string(sample.start).c_str() : "null", sample.size);
    }
}

// Plays the file through the decoder to the end, then `perSeek` decoded samples from each target. The decoded bytes go
// to `output`, one after the other; stdout gets a line for the decoded type and one for each sample.
void Decode(const GModuleAccess& access, GDecoder decoder, const GFile& file, const std::wstring& output,
            std::size_t perSeek, const std::vector<LONGLONG>& targets)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(_wfopen(output.c_str(), L"wb"), std::fclose);
    Require(out != nullptr, "cannot write to " + Utf8FromWide(output));
    GTestGraph graph(access, file.clsid, GKept::Bytes);
    graph.MustLoad(file.path);
    PrintType(graph.ConnectDecoded(decoder));
    // Always to the end: the MP3 decoder of Wine 8.0 reads a null pointer when it is stopped while it decodes.
    const auto whole = PlayFromHere(graph).front().samples;
    WriteDecoded(whole, whole.size(), "null", out.get());
    for (const LONGLONG target : targets) {
        graph.SeekTo(target);
        const auto samples = PlayFromHere(graph).front().samples;
        Require(samples.size() >= perSeek, "too few samples after the seek to " + std::to_string(target));
        WriteDecoded(samples, perSeek, std::to_string(target), out.get());
    }
}

int HoldFile(bool shared, const std::wstring& file)
{
    const DWORD sharing = shared ? FILE_SHARE_READ | FILE_SHARE_WRITE : 0;
    const HANDLE open = CreateFileW(file.c_str(), GENERIC_WRITE, sharing, nullptr, OPEN_EXISTING, 0, nullptr);
    Require(open != INVALID_HANDLE_VALUE, "the file cannot be opened for writing");
    std::puts("held");
    std::fflush(stdout);
    while (std::getchar() != EOF) {}
    CloseHandle(open);
    std::puts("released");
    return 0;
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
    if (words.size() == 3 && words[0] == L"hold")
        return HoldFile(words[1] == L"shared", words[2]);
    Require(words.size() >= 5, kUsage);
    const std::wstring& mode = words[1];
    if (mode == L"reload")
        return Reload(words[0], std::stoi(words[2]), ParseFiles(all.subspan(3))), 0;
    const GModuleAccess access(words[0]);
    if (mode == L"rounds")
        return Rounds(access, ParseKind(words[2]), std::stoi(words[3]), ParseFiles(all.subspan(4))), 0;
    if (mode == L"decode" && words.size() >= 7)
        return Decode(access, ParseDecoder(words[2]), {ParseGuid(words[3]), words[4]}, words[5], std::stoul(words[6]),
                      ParseTimes(all.subspan(7))),
               0;
    if (mode == L"large")
        return Large(access, {ParseGuid(words[2]), words[3]}, ParseTimes(all.subspan(4))), 0;
    Require(mode == L"samples", kUsage);
    ForEach(ParseFiles(all.subspan(3)),
            [&](const GFile& file, std::size_t number) { PrintSamples(access, ParseKind(words[2]), file, number); });
    return 0;
}

}  // namespace

}  // namespace vex::wintest

int wmain(int argc, wchar_t** argv) { return vex::wintest::RunProgram(vex::wintest::Body, argc, argv); }
