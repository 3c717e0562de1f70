// The chunk's playback and persistence workloads on the sequence data (200,000 short notes and
// 16 controller lanes in one chunk, built untimed):
//  W4: 100,000 range queries of 10^6 ticks, merged in playback order, folded and checked;
//  W6: the value in force of every lane at 100,000 times, through GetChaseStateAtTime and the
//      standard chase map;
//  W7: the chunk written to a memory stream and read back, each way timed on its own; the
//      chunk read back must write the same bytes and hold equal notes.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "Figure.h"
#include "Mdie_ChaseTracker.h"
#include "Sys_TypedStream.h"
#include "Vela_Chunk.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_NoteList.h"
#include "Workloads.h"

namespace {

Time_Typed Ticks(int64_t iCount) { return Time_Typed(iCount, kTime_Ticks); }

const Vela_Chunk& SequenceChunk() {
    static const std::unique_ptr<Vela_Chunk> sChunk = [] {
        const wl::SequenceData& data = wl::Sequence();
        std::unique_ptr<Vela_Chunk> chunkP(Vela_Chunk::New(Ndo_Object::kNotUndoable, false));
        // Ascending starts (ties in generation order) append; the content is the same either way.
        std::vector<wl::Note> notes = data.mShortNotes;
        std::stable_sort(notes.begin(), notes.end(), [](const wl::Note& iA, const wl::Note& iB) { return iA.mStart < iB.mStart; });
        for (const wl::Note& note : notes) {
            const Vela_NoteWithDurationEvent event(static_cast<int8_t>(note.mPitch), Time_TypedLength(note.mDuration, kTime_Ticks),
                                                   static_cast<int8_t>(note.mVelocity), wl::kReleaseVelocity);
            chunkP->AddEvent(Vela_NoteWithDurationExtendedEvent(Ticks(note.mStart), event, false));
        }
        for (const wl::ControllerLane& lane : data.mLanes)
            for (const wl::ControllerValue& value : lane.mValues)
                chunkP->AddEvent(Vela_ExtendedEvent(
                    Ticks(value.mTime), Vela_ControllerEvent(static_cast<int8_t>(lane.mController), static_cast<int8_t>(value.mValue))));
        return chunkP;
    }();
    return *sChunk;
}

void BM_W4_ChunkRangeQueries(benchmark::State& ioState) {
    const Vela_Chunk& chunk = SequenceChunk();
    const std::vector<int64_t>& windows = wl::W4Windows();
    Mdie_Filter filter;  // notes and controllers
    filter.SetAll();
    for (Mdie_Filter::EDataType type : {Mdie_Filter::kPitchBend, Mdie_Filter::kProgram, Mdie_Filter::kMonoPressure,
                                        Mdie_Filter::kPolyPressure, Mdie_Filter::kSystemExclusive, Mdie_Filter::kOtherEvents})
        filter.Set(type, false);
    Mdie_TimedEventList output;
    output.Reserve(4096);
    Vela_EventListWrapper wrapper(output);
    wl::Tally tally;
    bool ordered = true;
    for (auto _ : ioState) {
        tally = wl::Tally();
        for (int64_t start : windows) {
            output.Init();
            chunk.GetMidiEventsInRange(&wrapper, Time_TypedLength(0, kTime_Ticks), Ticks(start), Ticks(start + wl::kW4WindowLength),
                                       Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Ticks), false, nullptr, nullptr,
                                       filter, nullptr, false, 0, kNoteOffNone);
            int64_t previous = start;
            for (const Mdie_TimedEvent& event : output) {
                const int64_t time = event.GetTime().AsInt64();
                ordered &= time >= previous;
                previous = time;
                const Vela_Event& value = event.GetEvent();
                tally.mSum = value.GetType() == Vela_Event::kNoteWithDuration
                                 ? wl::FoldW4Note(tally.mSum, time, static_cast<uint8_t>(value.AsNoteWithDuration().GetPitch()),
                                                  static_cast<uint8_t>(value.AsNoteWithDuration().GetOnVelocity()))
                                 : wl::FoldW4Controller(tally.mSum, time, static_cast<uint8_t>(value.AsController().GetControllerNumber()),
                                                        static_cast<uint8_t>(value.AsController().GetValue()));
            }
            tally.mCount += output.GetSize();
        }
    }
    if (!ordered || tally != wl::Tally{wl::kW4Events, wl::kW4Sum}) {
        ioState.SkipWithError("W4 delivered other events than expected");
        return;
    }
    ioState.counters["ns/query"] = figure::Counter("ns/query", static_cast<double>(wl::kW4Windows));
    figure::Report(ioState, "ns/event", static_cast<double>(wl::kW4Events), {10});
}
BENCHMARK(BM_W4_ChunkRangeQueries)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

void BM_W6_ChunkChase(benchmark::State& ioState) {
    const Vela_Chunk& chunk = SequenceChunk();
    const std::vector<int64_t>& times = wl::W6Times();
    const Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    uint64_t hash = 0;
    for (auto _ : ioState) {
        hash = wl::kFnvBasis;
        for (int64_t time : times) {
            chunk.GetChaseStateAtTime(&tracker, Ticks(time), Time_Typed::MinTime(kTime_Ticks));
            for (uint8_t controller : wl::kLaneControllers) {
                Mdie_ChaseTracker_ChasingEntry entry;
                tracker.GetChasingEntry(entry, Mdie_SubStream::Controller(static_cast<int8_t>(controller)));
                hash = wl::FoldW6(hash, entry.mActive ? entry.mValue : -1);
            }
        }
    }
    if (hash != wl::kW6Hash) {
        ioState.SkipWithError("W6 chased other values than expected");
        return;
    }
    ioState.counters["ns/query"] = figure::Counter("ns/query", static_cast<double>(wl::kW6Times));
    figure::Report(ioState, "ns/lane", static_cast<double>(wl::kW6Times * wl::kLanes), {63});
}
BENCHMARK(BM_W6_ChunkChase)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

std::vector<uint8_t> Document(const Vela_Chunk& iChunk) {
    Sys_MemoryOutStream out;
    iChunk.StreamOut(out);
    return out.GetBytes();
}

void BM_W7_ChunkWrite(benchmark::State& ioState) {
    const Vela_Chunk& chunk = SequenceChunk();
    size_t bytes = 0;
    for (auto _ : ioState) {
        Sys_MemoryOutStream out;
        chunk.StreamOut(out);
        bytes = out.GetBytes().size();
        benchmark::DoNotOptimize(out.GetBytes().data());
    }
    if (bytes != Document(chunk).size()) {
        ioState.SkipWithError("W7 wrote a document of another size");
        return;
    }
    figure::Report(ioState, "MB/s", static_cast<double>(bytes) / 1e6, {1000});
}
BENCHMARK(BM_W7_ChunkWrite)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

void BM_W7_ChunkRead(benchmark::State& ioState) {
    const Vela_Chunk& chunk = SequenceChunk();
    const std::vector<uint8_t> document = Document(chunk);
    std::unique_ptr<Vela_Chunk> readP;
    for (auto _ : ioState) {
        ioState.PauseTiming();
        readP.reset();  // destroying the previous copy is not part of reading
        ioState.ResumeTiming();
        Sys_MemoryInStream in(document.data(), document.size());
        readP.reset(Vela_Chunk::StreamIn(in, Ndo_Object::kNotUndoable, false));
    }
    if (!readP || Document(*readP) != document || !(*readP->GetNoteList() == *chunk.GetNoteList())) {
        ioState.SkipWithError("W7 read back another chunk");
        return;
    }
    figure::Report(ioState, "MB/s", static_cast<double>(document.size()) / 1e6, {1000});
}
BENCHMARK(BM_W7_ChunkRead)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace
