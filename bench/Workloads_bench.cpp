// Builds every workload once and checks it against its expected checksums (each accessor aborts
// the program on a mismatch), so a generator that drifted shows even for workloads no benchmark
// runs yet. The time reported is the generation and checking, not a figure of the library.
#include <benchmark/benchmark.h>

#include "Workloads.h"

namespace {

void Workloads_Check(benchmark::State& ioState) {
    for (auto _ : ioState) {
        benchmark::DoNotOptimize(wl::W1().mBytes.data());
        benchmark::DoNotOptimize(wl::W2Events().data());
        benchmark::DoNotOptimize(wl::W3AscendingNotes().data());
        benchmark::DoNotOptimize(wl::W4Windows().data());
        benchmark::DoNotOptimize(wl::W5Times().data());
        benchmark::DoNotOptimize(wl::W6Times().data());
    }
}
BENCHMARK(Workloads_Check)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
