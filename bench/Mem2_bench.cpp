// The real-time pool against the general heap: batches of 64 blocks of one size are taken and
// given back, on one thread and on two threads sharing one pool. Each iteration is one block
// (one Alloc plus one Free).
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>

#include "Mem2_MasterAllocator.h"

namespace {
constexpr size_t kBatch = 64;

Mem2_MasterAllocator& SharedPool() {
    static Mem2_MasterAllocator sPool(16u << 20);
    return sPool;
}
Mem2_Statistics gStats("bench");

template <class TAlloc, class TFree>
void RunBatches(benchmark::State& ioState, TAlloc iAlloc, TFree iFree) {
    const int size = static_cast<int>(ioState.range(0));
    std::array<void*, kBatch> blocks{};
    for (auto _ : ioState) {
        for (void*& p : blocks) {
            p = iAlloc(size);
            benchmark::DoNotOptimize(p);
        }
        for (void* p : blocks) iFree(p);
    }
    ioState.SetItemsProcessed(static_cast<int64_t>(ioState.iterations() * kBatch));
}

void BM_Mem2Pool(benchmark::State& ioState) {
    Mem2_MasterAllocator& pool = SharedPool();
    RunBatches(ioState, [&](int iSize) { return pool.Alloc(iSize, &gStats); }, [&](void* iP) { pool.Free(iP, &gStats); });
}

void BM_Malloc(benchmark::State& ioState) {
    RunBatches(ioState, [](int iSize) { return std::malloc(static_cast<size_t>(iSize)); }, [](void* iP) { std::free(iP); });
}
}  // namespace

BENCHMARK(BM_Mem2Pool)->Arg(32)->Arg(1024);
BENCHMARK(BM_Malloc)->Arg(32)->Arg(1024);
BENCHMARK(BM_Mem2Pool)->Arg(32)->Arg(1024)->Threads(2);
BENCHMARK(BM_Malloc)->Arg(32)->Arg(1024)->Threads(2);
