#include "Vela_Chunk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <tuple>

#include "AllocCounter.h"
#include "ChunkEvents.h"
#include "Mdie_ChaseTracker.h"
#include "Mdie_NoteInProgress.h"
#include "Mdie_TrackState.h"
#include "Mem2_MasterAllocator.h"
#include "Vela_EventStream.h"
#include "Vela_NoteList.h"

namespace {

const Time_Typed kMin = Time_Typed::MinTime(kTime_Ticks), kMax = Time_Typed::MaxTime(kTime_Ticks);

TEST(Vela_Chunk, EachKindGoesToItsMemberOrIsDropped) {
    Vela_NoteWithDurationExtendedEvent pitchToNote = NoteAt(0, 60);
    pitchToNote.SetEvent(Vela_PitchToMIDINoteWithDuration(60, TickLength(10), 100, 64, 0.5f));
    const unsigned char longPayload[20] = {1, 2, 3};
    struct Route {
        Vela_ExtendedEvent mEvent;
        size_t mNotes, mStreams, mEvents;
    } const routes[] = {
        {EventAt(0, Vela_NoteOnEvent(60, 100)), 0, 0, 0}, {EventAt(0, Vela_NoteOffEvent(60, 0)), 0, 0, 0},
        {EventAt(0, Vela_NoteWithDurationEvent(60, TickLength(10), 100, 64)), 0, 0, 0},  // not a note record
        {NoteAt(0, 60), 1, 0, 0}, {pitchToNote, 1, 0, 0}, {EventAt(0, Vela_PitchBendEvent(100)), 0, 1, 0},
        {ControllerAt(0, 7, 1), 0, 1, 0}, {ControllerAt(0, 0, 1), 0, 0, 0}, {ControllerAt(0, 121, 1), 0, 0, 0},
        {EventAt(0, Vela_ProgramEvent(5, 0)), 0, 1, 0}, {EventAt(0, Vela_MonoPressureEvent(5)), 0, 1, 0},
        {EventAt(0, Vela_PolyPressureEvent(60, 5)), 0, 1, 0}, {EventAt(0, Vela_StartEvent()), 0, 0, 0},
        {SysexAt(0, 1), 0, 0, 1}, {EventAt(0, Vela_SysexEvent(20, longPayload)), 0, 0, 1},
        {EventAt(0, Vela_ClearNoteInProgressEvent(60, TickLength(10), 1, 1)), 0, 0, 0},
    };
    for (const Route& route : routes) {
        ChunkPtr chunk = NewChunk();
        chunk->StoreSortedEventList(new Vela_DisplayItemList);
        chunk->AddEvent(route.mEvent);
        const int kind = route.mEvent.GetEvent().GetType();
        EXPECT_EQ(std::tuple(chunk->GetNoteList()->GetNumNotes(), chunk->GetContinuousList().GetSize(), chunk->GetEventStream()->Size(),
                             chunk->GetSortedEventList()),
                  std::tuple(route.mNotes, route.mStreams, route.mEvents, nullptr))
            << kind;
        // Erasing takes the add back, except for kind 22, which an erase does not treat as a note.
        chunk->EraseEvent(route.mEvent);
        EXPECT_EQ(chunk->GetNoteList()->GetNumNotes(), kind == Vela_Event::kPitchToMIDINoteWithDuration ? 1u : 0u);
        EXPECT_EQ(chunk->GetContinuousList().GetSize() + chunk->GetEventStream()->Size(), 0u) << kind;
    }
    // While tick times matter, a quantizing chunk snaps tick times to the coarse grid.
    TickTimesMatter::SetActive(true);
    for (bool quantize : {false, true}) {
        ChunkPtr chunk(Vela_Chunk::New(Ndo_Object::kNotUndoable, quantize));
        chunk->AddEvent(NoteAt(10000, 60));
        EXPECT_EQ(chunk->GetNoteList()->GetNote(0).start, Ticks(quantize ? 9600 : 10000));
    }
    TickTimesMatter::SetActive(false);
}

TEST(Vela_Chunk, StreamsStaySortedUniqueAndGoOnlyWhereTheRulesSay) {
    ChunkPtr chunk = NewChunk();
    for (int number : {7, 1, 7, 64}) chunk->AddEvent(ControllerAt(10 * number, number, number));
    chunk->AddEvent(EventAt(5, Vela_PitchBendEvent(-3)));
    EXPECT_EQ(SubStreams(*chunk), (std::vector<Mdie_SubStream>{Mdie_SubStream::PitchBend(), Mdie_SubStream::Controller(1),
                                                               Mdie_SubStream::Controller(7), Mdie_SubStream::Controller(64)}));
    bool controllers[128] = {};
    controllers[100] = true;
    chunk->FindMIDIControllersInUse(controllers);
    EXPECT_EQ(std::count(controllers, controllers + 128, true), 4);
    EXPECT_TRUE(controllers[1] && controllers[7] && controllers[64] && controllers[100]);

    // A query creates the stream it asks about; erasing a stream's last value removes the stream.
    EXPECT_FALSE(chunk->IsEventInChunk(EventAt(0, Vela_MonoPressureEvent(1))));
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 5u);
    EXPECT_TRUE(chunk->IsEventInChunk(ControllerAt(70, 7, 7)));
    EXPECT_FALSE(chunk->IsEventInChunk(ControllerAt(71, 7, 7)));
    chunk->EraseEvent(ControllerAt(10, 1, 1));
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 4u);

    // Erasing another chunk's events leaves emptied streams behind; a range erase removes them.
    ChunkPtr copy = NewChunk();
    copy->AddEventsFromChunk(chunk.get(), Ticks(0), Ticks(1000), TickLength(0), kMidiNudgeTimes);
    copy->EraseEventsFromChunk(chunk.get(), Ticks(0), Ticks(1000), TickLength(0));
    EXPECT_EQ(copy->GetContinuousList().GetSize(), 3u);  // the empty pressure stream was not copied
    EXPECT_TRUE(AllEvents(*copy).IsEmpty());
    copy->EraseRange(Ticks(0), Ticks(1));
    EXPECT_EQ(copy->GetContinuousList().GetSize(), 0u);
    chunk->EraseSubStream(Mdie_SubStream::Controller(7), Ticks(0), Ticks(1000));
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 3u);
    chunk->Clear();
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 0u);
}

// Random notes, controllers, bends, programs and sysex, with what playback must deliver: every
// note and sysex, and the last value set at each time of each lane. Neighbouring values of a lane
// differ, so a tracker that skips a value it already holds skips nothing.
struct RandomChunk {
    static constexpr int64_t kSpan = 100000;
    explicit RandomChunk(unsigned iSeed) : mChunk(NewChunk()) {
        std::mt19937 random(iSeed);
        auto below = [&](int iN) { return static_cast<int>(random() % static_cast<unsigned>(iN)); };
        std::map<std::pair<int, int64_t>, Vela_Event> lanes;  // (lane, time) -> last value set
        for (int i = 0; i < 600; ++i) {
            const int64_t time = below(kSpan);
            const int pick = below(10);
            Vela_ExtendedEvent event = NoteAt(time, below(128), 1 + below(127), 1 + below(3000));
            if (pick == 4) event = SysexAt(time, static_cast<uint8_t>(below(128)));
            if (pick == 5) event = EventAt(time, Vela_PitchBendEvent(static_cast<int16_t>(below(16384) - 8192)));
            if (pick == 6) event = EventAt(time, Vela_ProgramEvent(static_cast<int8_t>(below(128)), static_cast<int16_t>(below(0x4000))));
            if (pick >= 7) event = ControllerAt(time, pick == 9 ? 64 : 7, below(128));
            mChunk->AddEvent(event);
            if (pick <= 4) mExpected.push_back(event);
            if (pick > 4) lanes[{pick, time}] = event.GetEvent();
        }
        std::pair<int, int32_t> previous(-1, 0);
        for (auto& [key, event] : lanes) {
            const Mdie_SubStream subStream(event);
            if (previous == std::pair(key.first, subStream.GetValueFromEvent(event))) {
                event = subStream.MakeEvent(previous.second ^ 1);
                mChunk->AddEvent(EventAt(key.second, event));
            }
            previous = {key.first, subStream.GetValueFromEvent(event)};
            mExpected.emplace_back(Ticks(key.second), event);
        }
    }
    ChunkPtr mChunk;
    std::vector<Mdie_TimedEvent> mExpected;
};

// Consecutive windows deliver every event once, in playback order, appended behind what the
// output held; a locate midway chases the values in force, which the next window then leaves
// out; the notes sounding there go to a track state. None of it allocates.
TEST(Vela_Chunk, PlaybackOverARandomChunk) {
    RandomChunk data(7);
    const int64_t offset = 1000, at = RandomChunk::kSpan / 2;
    data.mChunk->AddEvent(ControllerAt(at, 7, 99));
    data.mExpected.emplace_back(Ticks(at), Vela_ControllerEvent(7, 99));
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    Mdie_Filter filter;
    filter.SetAll();
    Mdie_TimedEventList output;
    output.Reserve(4096);
    output.PushBack(Mdie_TimedEvent(Ticks(1 << 30), Vela_StopEvent()));  // not the query's: stays first
    Vela_EventListWrapper wrapper(output);
    Mem2_MasterAllocator allocator;
    Mdie_NoteInProgress::SetAllocator(&allocator);
    Mdie_TrackState state;
    std::mt19937 random(3);
    AllocCounter counter;
    for (int64_t start = offset; start < RandomChunk::kSpan + offset;) {
        const size_t before = output.GetSize();
        const int64_t end = start + 1 + random() % 4000;
        data.mChunk->GetMidiEventsInRange(&wrapper, TickLength(offset), Ticks(start), Ticks(end), kMin, kMax, false, &tracker, &map,
                                         filter, nullptr, false, 0, kNoteOffNone);
        for (size_t i = before; i < output.GetSize(); ++i) EXPECT_TRUE(output[i].GetTime() >= Ticks(start) && output[i].GetTime() < Ticks(end));
        start = end;
    }
    data.mChunk->GetChaseStateAtTime(&tracker, Ticks(at), kMin);
    const size_t beforeMidway = output.GetSize();
    data.mChunk->GetMidiEventsInRange(&wrapper, TickLength(0), Ticks(at), Ticks(at + 1), kMin, kMax, false, &tracker, &map, filter,
                                     nullptr, false, 0, kNoteOffNone);
    const int64_t rangeStart = at - 2000, rangeEnd = at - 100;
    data.mChunk->AddNoteStateAtTime(&state, Ticks(at), Ticks(rangeStart), Ticks(rangeEnd), TickLength(offset), true);
    EXPECT_EQ(counter.Count(), 0u);

    ASSERT_EQ(output[0].GetEvent().GetType(), Vela_Event::kStop);
    std::vector<Mdie_TimedEvent> delivered(output.begin() + 1, output.begin() + static_cast<std::ptrdiff_t>(beforeMidway));
    for (size_t i = 1; i < delivered.size(); ++i) EXPECT_FALSE(Mdie_TimedEvent::PlaybackOrdering(delivered[i], delivered[i - 1])) << i;
    for (Mdie_TimedEvent& event : delivered) event.SetTime(event.GetTime() - TickLength(offset));
    EXPECT_TRUE(std::is_permutation(delivered.begin(), delivered.end(), data.mExpected.begin(), data.mExpected.end()));
    for (size_t i = beforeMidway; i < output.GetSize(); ++i) EXPECT_NE(output[i].GetEvent().GetType(), Vela_Event::kController);

    std::multiset<std::pair<int64_t, int>> expectedNotes, notes;
    for (const Mdie_SubStream& lane : SubStreams(*data.mChunk)) {
        int32_t expected = -1;
        for (const Mdie_TimedEvent& event : data.mExpected)
            if (Mdie_SubStream(event.GetEvent()) == lane && event.GetTime() <= Ticks(at)) expected = lane.GetValueFromEvent(event.GetEvent());
        Mdie_ChaseTracker_ChasingEntry entry;
        ASSERT_TRUE(tracker.GetChasingEntry(entry, lane));
        EXPECT_EQ(entry.mActive ? entry.mValue : -1, expected);
    }
    for (const Mdie_TimedEvent& event : data.mExpected) {
        const int64_t start = event.GetTime().AsInt64(), duration = event.GetDuration().AsInt64();
        if (event.IsNoteWithDurationEvent() && start < at && start + duration > at && start >= rangeStart && start < rangeEnd)
            expectedNotes.insert({start + offset + std::min(duration, rangeEnd - start), event.GetEvent().AsNoteWithDuration().GetPitch()});
    }
    for (; state.NextNoteOff(); state.PopNoteOff()) notes.insert({state.NextNoteOff()->mReleaseTime.AsInt64(), state.NextNoteOff()->mPitch});
    EXPECT_EQ(notes, expectedNotes);
    Mdie_NoteInProgress::SetAllocator(nullptr);
}

TEST(Vela_Chunk, LegacyPlaybackMovesStartsByTheirDistanceToTheClipBoundariesOnce) {
    ASSERT_EQ(Time_Globals::GetCoarseInternalTickGrid(), 9600);  // g; 2g = 19,200
    struct Case {
        std::vector<int64_t> mBoundaries;
        int64_t mStart, mOffset, mExpected;
    } const cases[] = {
        {{}, 1000000, 0, 998400},       {{}, 1000000, 5000, 998400},  // far from both: nearest grid point of s - o
        {{}, 0, 0, 19200},              {{}, 0, 100000, -1},          // 0 lies one tick after the missing boundary -1
        {{}, -5000000, 0, -1},                                        // no overflow against the largest value
        {{100000}, 119200, 0, 115200},  {{100000}, 119199, 0, 134400},  // s - p = 2g, 2g - 1
        {{200000}, 180800, 0, 182400},  {{200000}, 180801, 0, 163200},  // n - s = 2g, 2g - 1
        {{100000, 110000}, 105000, 0, 105600},
    };
    for (const Case& test : cases) {
        ChunkPtr chunk = NewChunk();
        chunk->AddEvent(NoteAt(test.mStart, 60));
        for (int64_t boundary : test.mBoundaries) chunk->AddClipBoundary(boundary);
        chunk->MoveNotesForLegacyPlayback(TickLength(test.mOffset));
        EXPECT_EQ(chunk->GetNoteList()->GetNote(0).start, Ticks(test.mExpected)) << test.mStart;
        EXPECT_TRUE(chunk->GetClipBoundaries().empty());
    }
    // Quantizing for TTM runs once; with boundaries the notes take the move above.
    for (bool withBoundary : {false, true}) {
        ChunkPtr chunk = NewChunk();
        chunk->AddEvent(NoteAt(1000000, 60));
        chunk->AddEvent(ControllerAt(1000000, 7, 1));
        if (withBoundary) chunk->AddClipBoundary(0);
        for (int i = 0; i < 2; ++i) chunk->QuantizeEventsForTTM(TickLength(5000));
        EXPECT_EQ(chunk->GetNoteList()->GetNote(0).start, Ticks(withBoundary ? 998400 : 1005000));
        EXPECT_TRUE(chunk->IsEventInChunk(ControllerAt(1005000, 7, 1)));
    }
}

TEST(Vela_Chunk, CopyingNudgesNotesByModeAndOtherEventsOnlyInMode0AndEqualityComparesSlots) {
    ChunkPtr source = NewChunk(), a = NewChunk(), b = NewChunk();
    source->AddEvent(NoteAt(1000, 60, 100, 480));
    source->AddEvent(ControllerAt(1000, 7, 1));
    struct Case {
        EMidiNudgeMode mMode;
        int64_t mStart, mDuration, mPitch, mControllerTime;
    } const cases[] = {{kMidiNudgeTimes, 1100, 480, 60, 1100}, {kMidiNudgeStarts, 1100, 380, 60, 1000},
                       {kMidiNudgeDurations, 1000, 580, 60, 1000}, {kMidiNudgePitches, 1000, 480, 59, 1000}};
    for (const Case& test : cases) {
        ChunkPtr chunk = NewChunk();
        chunk->AddEventsFromChunk(source.get(), Ticks(0), Ticks(2000), TickLength(100), test.mMode);
        const Vela_NoteListBase_Note& note = chunk->GetNoteList()->GetNote(0);
        EXPECT_TRUE(note.start == Ticks(test.mStart) && Vela_NoteListBase::NoteOf(note).GetDuration() == TickLength(test.mDuration) &&
                    Vela_NoteListBase::NoteOf(note).GetPitch() == test.mPitch && chunk->IsEventInChunk(ControllerAt(test.mControllerTime, 7, 1)))
            << test.mMode;
    }
    // Equal notes and events make equal chunks, until each holds a stream of its own.
    a->AddEvent(SysexAt(20, 1));
    EXPECT_FALSE(*a == *b);
    b->ReplaceData(a.get());
    EXPECT_TRUE(*a == *b && a->GetUID() != b->GetUID());
    for (Vela_Chunk* chunk : {a.get(), b.get()}) chunk->ReplaceData(source.get());
    EXPECT_TRUE(!(*a == *b) && *a == *a);
}

TEST(Vela_Chunk, TheRangeIteratorMergesItsMembersInPlaybackOrderNotesThenStreamsThenEvents) {
    ChunkPtr chunk = NewChunk();
    for (const Vela_ExtendedEvent& event : {SysexAt(100, 1), EventAt(100, Vela_MonoPressureEvent(1)), ControllerAt(100, 7, 1),
                                            EventAt(100, Vela_PitchBendEvent(1)), ControllerAt(100, 1, 1), ControllerAt(50, 7, 2)})
        chunk->AddEvent(event);
    Mdie_Filter filter;
    filter.SetAll();
    std::vector<int> kinds;  // kind * 1000 + controller number
    for (Vela_ChunkExtendedEventsInRangeIter it(chunk.get(), Ticks(1000), Ticks(2000), TickLength(1000), false, filter); it.IsMore(); ++it) {
        const Vela_Event event = (*it).GetEvent();
        kinds.push_back(event.GetType() * 1000 + (event.GetType() == Vela_Event::kController ? event.AsController().GetControllerNumber() : 0));
    }
    EXPECT_EQ(kinds, (std::vector<int>{5007, 5001, 5007, 4000, 7000, 14000}));
    filter.ClearAll();
    EXPECT_FALSE(Vela_ChunkExtendedEventsInRangeIter(chunk.get(), Ticks(0), Ticks(2000), TickLength(0), false, filter).IsMore());

    // A copy goes on from the place of the original.
    filter.SetAll();
    Vela_ChunkExtendedEventsInRangeIter it(chunk.get(), kMin, kMax, TickLength(0), false, filter);
    ++it;
    ++it;
    const Vela_ChunkExtendedEventsInRangeIter copy = it;
    EXPECT_TRUE(copy.IsMore() && copy.GetNumChildren() == it.GetNumChildren() && *copy == *it);
}

}  // namespace
