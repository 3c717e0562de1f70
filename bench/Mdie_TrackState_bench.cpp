// The transition a playback jump costs: from a state of 64 sounding notes to another of 64,
// half of the pitches shared, in the mode that hands notes over as notes in progress.
// Reported per transition (one iteration).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>

#include "Mdie_TrackState.h"
#include "Mem2_MasterAllocator.h"

namespace {

uint64_t Fold(uint64_t iType, int iPitch, int64_t iLength) {
    return (iType << 40) ^ (uint64_t(iPitch) << 32) ^ uint64_t(iLength);
}

// Folds what it receives into a sum that does not depend on the order of the events.
class FoldingReceiver : public Mdie_EventReceiver {
public:
    void ReceiveEvent(const Vela_Event& iEvent) override {
        const bool timed = iEvent.GetType() != Vela_Event::kNoteOn && iEvent.GetType() != Vela_Event::kNoteOff;
        const int64_t length = timed ? iEvent.AsNoteWithDuration().GetDuration().AsInt64() : 0;
        mSum += Fold(iEvent.GetType(), iEvent.AsNoteOn().GetPitch(), length);
        ++mCount;
    }
    uint64_t mSum = 0;
    uint64_t mCount = 0;
};

void BM_TrackStateTransition64(benchmark::State& state) {
    Mem2_MasterAllocator allocator;
    Mdie_NoteInProgress::SetAllocator(&allocator);
    constexpr int kNotes = 64;
    const Time_Typed now(1000000, kTime_Ticks);
    std::mt19937 random(64);
    Mdie_TrackState before, after;
    // Pitches 0..63 before and 32..95 after, in scrambled release order; every note sounds past now.
    uint64_t expected = 0;
    for (int i = 0; i < kNotes; ++i) {
        const int64_t length = 1000001 + int64_t(random() % 1000000);
        before.ReceiveEvent(Mdie_TimedEvent(Time_Typed(0, kTime_Ticks), Vela_NoteWithDurationEvent(int8_t(i), Time_TypedLength(length, kTime_Ticks), 100, 64)));
        const int64_t newLength = 1000001 + int64_t(random() % 1000000);
        after.ReceiveEvent(Mdie_TimedEvent(Time_Typed(0, kTime_Ticks), Vela_NoteWithDurationEvent(int8_t(i + 32), Time_TypedLength(newLength, kTime_Ticks), 90, 40)));
        // Expected output: a note off for pitches 0..31, a clear for 32..63, an add or a note for the new pitches.
        const uint64_t kind = i < 32 ? Vela_Event::kNoteOff : Vela_Event::kClearNoteInProgress;
        expected += Fold(kind, i, i < 32 ? 0 : length - 1000000);
        const uint64_t newKind = i < 32 ? Vela_Event::kAddNoteInProgress : Vela_Event::kNoteWithDuration;
        expected += Fold(newKind, i + 32, newLength - 1000000);
    }
    Mdie_ChaseSpec chase;
    chase.mChaseNotes = true;
    chase.mTransitionMode = Mdie_TrackState::kTransitionNotesInProgress;
    chase.mChaseTime = now;
    FoldingReceiver receiver;
    for (auto _ : state) {
        receiver.mSum = 0;
        receiver.mCount = 0;
        before.ComputeTransitionToNewState(&after, &receiver, chase, false);
        benchmark::DoNotOptimize(receiver.mSum);
    }
    if (receiver.mSum != expected || receiver.mCount != 2 * kNotes)
        state.SkipWithError("the transition did other work than expected");
    state.SetItemsProcessed(state.iterations());
    state.counters["events_per_transition"] = double(receiver.mCount);
    before.Clear();
    after.Clear();
    Mdie_NoteInProgress::SetAllocator(nullptr);
}
BENCHMARK(BM_TrackStateTransition64);

}  // namespace
