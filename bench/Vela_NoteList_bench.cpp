// W3: 10^6 notes inserted one AddNote call each into an empty note list (undo off), in random
// and in ascending start order. W5: the notes sounding at 10^5 times, through the sustaining
// iterator over 200,000 short and 1,000 long notes. Each run is checked against the
// workload's checksum before its figure counts.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "Figure.h"
#include "Vela_NoteList.h"
#include "Workloads.h"

namespace {

Vela_NoteListBase_Note ToRecord(const wl::Note& iNote) {
    Vela_NoteListBase_Note record;
    record.start = Time_Typed(iNote.mStart, kTime_Ticks);
    record.event = Vela_NoteWithDurationEvent(static_cast<int8_t>(iNote.mPitch), Time_TypedLength(iNote.mDuration, kTime_Ticks),
                                              static_cast<int8_t>(iNote.mVelocity), static_cast<int8_t>(wl::kReleaseVelocity));
    record.quantizeTimeDelta = Time_TypedLength(0, kTime_Ticks);
    record.origEvent = record.event;
    return record;
}

std::vector<Vela_NoteListBase_Note> ToRecords(const std::vector<wl::Note>& iNotes) {
    std::vector<Vela_NoteListBase_Note> records;
    records.reserve(iNotes.size());
    for (const wl::Note& note : iNotes) records.push_back(ToRecord(note));
    return records;
}

wl::Note FromRecord(const Vela_NoteListBase_Note& iRecord) {
    const Vela_NoteWithDurationEvent& note = Vela_NoteListBase::NoteOf(iRecord);
    return {iRecord.start.AsInt64(), note.GetDuration().AsInt64(), static_cast<uint8_t>(note.GetPitch()),
            static_cast<uint8_t>(note.GetOnVelocity())};
}

void RunW3(benchmark::State& ioState, const std::vector<wl::Note>& iOrder, const figure::Goal& iGoal) {
    const std::vector<Vela_NoteListBase_Note> records = ToRecords(iOrder);
    uint64_t hash = 0;
    for (auto _ : ioState) {
        auto list = std::make_unique<Vela_NoteList>(Ndo_Object::kNotUndoable, false);
        for (const Vela_NoteListBase_Note& record : records) list->AddNote(record);
        ioState.PauseTiming();
        hash = wl::kFnvBasis;
        for (const Vela_NoteListBase_Note& record : list->GetNotes()) hash = wl::FoldW3(hash, FromRecord(record));
        list.reset();
        ioState.ResumeTiming();
    }
    if (hash != wl::kW3Hash) return ioState.SkipWithError("W3 checksum mismatch");
    figure::Report(ioState, "ns/note", static_cast<double>(wl::kW3Notes), iGoal);
}

void W3_VelaInsertRandom(benchmark::State& ioState) { RunW3(ioState, wl::W3Notes(), {.mTarget = 500}); }
BENCHMARK(W3_VelaInsertRandom)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3)->UseRealTime();

void W3_VelaInsertAscending(benchmark::State& ioState) {
    static const std::vector<wl::Note> sAscending = wl::SortedByStart(wl::W3Notes());
    RunW3(ioState, sAscending, {.mTarget = 24});
}
BENCHMARK(W3_VelaInsertAscending)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3)->UseRealTime();

void W5_VelaSustaining(benchmark::State& ioState) {
    const wl::SequenceData& data = wl::Sequence();
    Vela_NoteList list(Ndo_Object::kNotUndoable, false);
    for (const std::vector<wl::Note>* notesP : {&data.mShortNotes, &data.mLongNotes})
        for (const wl::Note& note : *notesP) list.AddNote(ToRecord(note));
    const std::vector<int64_t>& times = wl::W5Times();
    wl::Tally tally;
    for (auto _ : ioState) {
        tally = {};
        for (const int64_t t : times) {
            for (Vela_NoteListBase::FullSustainingNoteIter it(&list, Time_Typed(t, kTime_Ticks)); it.IsMore(); ++it) {
                tally.mSum = wl::FoldW5(tally.mSum, FromRecord(*it));
                ++tally.mCount;
            }
        }
    }
    if (!(tally == wl::Tally{wl::kW5Results, wl::kW5Sum})) return ioState.SkipWithError("W5 checksum mismatch");
    ioState.counters["ns/result"] = figure::Counter("ns/result", static_cast<double>(wl::kW5Results));
    figure::Report(ioState, "ns/query", static_cast<double>(wl::kW5Times), {.mTarget = 3300});
}
BENCHMARK(W5_VelaSustaining)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();

}  // namespace
