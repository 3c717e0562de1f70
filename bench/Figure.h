// The figure a benchmark stands for in the table of scripts/bench.sh. A benchmark reports it as
// a counter named by its unit and says, in its label, which counter that is, the target set for
// it, and which benchmark of the same run it is measured against. Benchmarks that declare no
// figure still appear in the table, with their time per iteration.
//
// Units: "<things>/s" is a rate (higher is better), "ns/<thing>" a time per thing (lower is
// better). Rates and times use the benchmark's own clock: declare UseRealTime() for the
// workloads, which are timed by the wall clock.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string_view>

namespace figure {

struct Goal {
    double mTarget = 0;         // in the figure's unit; 0: none
    const char* mPeer = "";     // benchmark measured in the same run, named as the table shows it
    double mPeerRatio = 0;      // speed asked of us over the peer (1.2: 20% faster); 0: none
};

// iAmount of the unit's things per iteration (MB for "MB/s", events for "events/s", notes for
// "ns/note") as a counter named iUnit.
inline benchmark::Counter Counter(std::string_view iUnit, double iAmount) {
    using C = benchmark::Counter;
    if (iUnit.starts_with("ns/")) return C(iAmount * 1e-9, C::Flags(C::kIsIterationInvariantRate | C::kInvert));
    return C(iAmount, C::kIsIterationInvariantRate);
}

// Sets the counter and the label the table reads; call after the timed loop.
inline void Report(benchmark::State& ioState, const char* iUnit, double iAmount, const Goal& iGoal = {}) {
    ioState.counters[iUnit] = Counter(iUnit, iAmount);
    char label[160];
    std::snprintf(label, sizeof label, "figure=%s target=%g peer=%s ratio=%g", iUnit, iGoal.mTarget,
                  *iGoal.mPeer ? iGoal.mPeer : "-", iGoal.mPeerRatio);
    ioState.SetLabel(label);
}

}  // namespace figure
