// A whole filter, threads and all: opening, playing to the end and seeking the bundled sample, or the file that
// VEX_BENCH_FILE names.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "host/filter_catalog.h"
#include "host/host_graph.h"
#include "platform/file.h"
#include "platform/text.h"

namespace {

using namespace vex;

constexpr std::chrono::minutes kStall{1};

std::string File()
{
    const char* chosen = std::getenv("VEX_BENCH_FILE");
    return chosen ? chosen : VEX_SAMPLE;
}

std::unique_ptr<GHostGraph> Opened()
{
    GOsFile file;
    std::vector<std::uint8_t> start(kContentProbeBytes);
    file.OpenForReading(File().c_str());
    start.resize(static_cast<std::size_t>(std::max<std::int64_t>(file.ReadAt(0, start.data(), kContentProbeBytes), 0)));
    auto graph = std::make_unique<GHostGraph>(LinkedModule());
    const GFilterInfo* entry = FindByContent(start);
    if (!entry || FAILED(graph->Create(entry->clsid)) || FAILED(graph->Load(WideFromUtf8(File()))) ||
        FAILED(graph->ConnectAll()))
        return nullptr;
    return graph;
}

void Open(benchmark::State& state)
{
    for (auto _ : state)
        if (!Opened())
            return state.SkipWithError("the file cannot be opened");
}
BENCHMARK(Open)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Opening included, as for everybody who plays a file once.
void PlayToEnd(benchmark::State& state)
{
    std::uint64_t samples = 0;
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        const auto graph = Opened();
        if (!graph)
            return state.SkipWithError("the file cannot be opened");
        graph->Run();
        if (graph->WaitForEnd(kStall) != GEnd::Complete)
            return state.SkipWithError("the file does not play to its end");
        for (std::size_t pin = 0; pin < graph->PinCount(); ++pin) {
            samples += graph->Sink(pin)->Report().samples;
            bytes += graph->Sink(pin)->Report().bytes;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(samples));
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(PlayToEnd)->Unit(benchmark::kMillisecond)->UseRealTime();

void SeekWhilePlaying(benchmark::State& state)
{
    const auto graph = Opened();
    if (!graph)
        return state.SkipWithError("the file cannot be opened");
    graph->Run();
    std::mt19937 random(1);
    std::uniform_int_distribution<REFERENCE_TIME> anywhere(0, graph->Duration().value_or(0));
    for (auto _ : state)
        graph->Seek(anywhere(random));
}
BENCHMARK(SeekWhilePlaying)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
