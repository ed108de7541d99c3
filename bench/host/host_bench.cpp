// What the host itself costs: it must not be what a measurement of a filter measures.
#include <benchmark/benchmark.h>

#include <vector>

#include "host/md5.h"

namespace {

void Md5(benchmark::State& state)
{
    const std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 0x5A);
    for (auto _ : state)
        benchmark::DoNotOptimize(vex::GMd5::Of(bytes));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(Md5)->Arg(400)->Arg(64 * 1024);

}  // namespace

BENCHMARK_MAIN();
