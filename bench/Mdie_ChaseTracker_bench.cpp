// Chase tracker costs on the playback thread: tracking a mixed stream of continuous events,
// and re-sending every chased value of the standard map. Reported per event.
#include <benchmark/benchmark.h>

#include <vector>

#include "Mdie_ChaseTracker.h"
#include "Workloads.h"

namespace {

// Sums what it receives, so the work cannot be optimized away and runs can be compared.
class ChecksumReceiver : public Mdie_EventReceiver {
public:
    void ReceiveEvent(const Vela_Event& iEvent) override {
        mSum = mSum * 31 + static_cast<uint64_t>(Mdie_SubStream(iEvent).GetValueFromEvent(iEvent)) + iEvent.GetType();
        ++mCount;
    }
    uint64_t mSum = 0;
    uint64_t mCount = 0;
};

// Mostly controllers (every number, tracked or not), with bends, pressures and programs.
std::vector<Vela_Event> MixedControllerStream(size_t iCount) {
    wl::Random random(wl::kSeedW2);
    std::vector<Vela_Event> events;
    events.reserve(iCount);
    for (size_t i = 0; i < iCount; ++i) {
        const uint64_t pick = random.Below(100);
        const auto byte = static_cast<int8_t>(random.Below(128));
        if (pick < 70)
            events.push_back(Vela_ControllerEvent(static_cast<int8_t>(random.Below(128)), byte));
        else if (pick < 85)
            events.push_back(Vela_PitchBendEvent(static_cast<int16_t>(static_cast<int>(random.Below(16384)) - 8192)));
        else if (pick < 92)
            events.push_back(Vela_MonoPressureEvent(byte));
        else if (pick < 97)
            events.push_back(Vela_PolyPressureEvent(byte, static_cast<int8_t>(random.Below(128))));
        else
            events.push_back(Vela_ProgramEvent(byte, static_cast<int16_t>(random.Below(1 << 14))));
    }
    return events;
}

void BM_ChaseTracker_TrackMixedStream(benchmark::State& state) {
    const std::vector<Vela_Event> events = MixedControllerStream(4096);
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    for (auto _ : state) {
        for (const Vela_Event& event : events) tracker.TrackEvent(event);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(events.size()));
    ChecksumReceiver receiver;
    tracker.DoCurrentPositionChase(receiver);
    state.counters["checksum"] = static_cast<double>(receiver.mSum % 1000000007u);
}
BENCHMARK(BM_ChaseTracker_TrackMixedStream);

void BM_ChaseTracker_CurrentPositionChase(benchmark::State& state) {
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    for (const Vela_Event& event : MixedControllerStream(4096)) tracker.TrackEvent(event);
    ChecksumReceiver receiver;
    for (auto _ : state) tracker.DoCurrentPositionChase(receiver);
    // Events sent per chase: every active, non-releasing standard entry.
    state.SetItemsProcessed(static_cast<int64_t>(receiver.mCount));
    state.counters["events_per_chase"] = static_cast<double>(receiver.mCount) / static_cast<double>(state.iterations());
    state.counters["checksum"] = static_cast<double>(receiver.mSum % 1000000007u);
}
BENCHMARK(BM_ChaseTracker_CurrentPositionChase);

}  // namespace
