#include "Vela_Chunk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

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
        EXPECT_EQ(chunk->GetNoteList()->GetNumNotes(), route.mNotes) << kind;
        EXPECT_EQ(chunk->GetContinuousList().GetSize(), route.mStreams) << kind;
        EXPECT_EQ(chunk->GetEventStream()->Size(), route.mEvents) << kind;
        EXPECT_EQ(chunk->GetSortedEventList(), nullptr) << kind;
        // Erasing takes the add back, except for kind 22, which an erase does not treat as a note.
        chunk->EraseEvent(route.mEvent);
        EXPECT_EQ(chunk->GetNoteList()->GetNumNotes(), kind == Vela_Event::kPitchToMIDINoteWithDuration ? 1u : 0u);
        EXPECT_EQ(chunk->GetContinuousList().GetSize() + chunk->GetEventStream()->Size(), 0u) << kind;
    }
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

TEST(Vela_Chunk, ConsecutiveWindowsDeliverEveryEventOnceInPlaybackOrderWithoutAllocating) {
    RandomChunk data(7);
    const int64_t offset = 1000;
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    Mdie_Filter filter;
    filter.SetAll();
    Mdie_TimedEventList output;
    output.Reserve(4096);
    output.PushBack(Mdie_TimedEvent(Ticks(1 << 30), Vela_StopEvent()));  // not the query's: stays first
    Vela_EventListWrapper wrapper(output);
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
    EXPECT_EQ(counter.Count(), 0u);
    ASSERT_EQ(output[0].GetEvent().GetType(), Vela_Event::kStop);
    std::vector<Mdie_TimedEvent> delivered(output.begin() + 1, output.end());
    for (size_t i = 1; i < delivered.size(); ++i) EXPECT_FALSE(Mdie_TimedEvent::PlaybackOrdering(delivered[i], delivered[i - 1])) << i;
    for (Mdie_TimedEvent& event : delivered) event.SetTime(event.GetTime() - TickLength(offset));
    EXPECT_TRUE(std::is_permutation(delivered.begin(), delivered.end(), data.mExpected.begin(), data.mExpected.end()));
}

TEST(Vela_Chunk, StartingMidwayChasesTheValuesInForceWhichTheWindowThenLeavesOut) {
    RandomChunk data(11);
    const int64_t at = RandomChunk::kSpan / 2;
    data.mChunk->AddEvent(ControllerAt(at, 7, 99));
    Mdie_ChaseTrackerMap map;
    Mdie_ChaseTracker tracker(&map);
    AllocCounter counter;
    data.mChunk->GetChaseStateAtTime(&tracker, Ticks(at), kMin);
    EXPECT_EQ(counter.Count(), 0u);
    for (const Mdie_SubStream& lane : SubStreams(*data.mChunk)) {
        int32_t expected = -1;
        for (const Mdie_TimedEvent& event : data.mExpected)
            if (Mdie_SubStream(event.GetEvent()) == lane && event.GetTime() <= Ticks(at)) expected = lane.GetValueFromEvent(event.GetEvent());
        if (lane == Mdie_SubStream::Controller(7)) expected = 99;
        Mdie_ChaseTracker_ChasingEntry entry;
        ASSERT_TRUE(tracker.GetChasingEntry(entry, lane));
        EXPECT_EQ(entry.mActive ? entry.mValue : -1, expected);
    }
    Mdie_TimedEventList window;
    Vela_EventListWrapper output(window);
    data.mChunk->GetMidiEventsInRange(&output, TickLength(0), Ticks(at), Ticks(at + 1), false, &tracker, &map, kNoteOffNone);
    EXPECT_TRUE(std::none_of(window.begin(), window.end(), [](const Mdie_TimedEvent& iEvent) { return iEvent.GetEvent().GetType() == Vela_Event::kController; }));
}

TEST(Vela_Chunk, NoteStateHandsOverTheSoundingNotesThatStartedInRangeClipped) {
    RandomChunk data(5);
    Mem2_MasterAllocator allocator;
    Mdie_NoteInProgress::SetAllocator(&allocator);
    for (int64_t at : {int64_t(0), int64_t(20000), int64_t(50001), RandomChunk::kSpan - 1}) {
        const int64_t rangeStart = at - 2000, rangeEnd = at - 100, offset = 7;
        std::multiset<std::pair<int64_t, int>> expected, got;
        for (const Mdie_TimedEvent& event : data.mExpected) {
            const int64_t start = event.GetTime().AsInt64(), duration = event.GetDuration().AsInt64();
            if (event.IsNoteWithDurationEvent() && start < at && start + duration > at && start >= rangeStart && start < rangeEnd)
                expected.insert({start + offset + std::min(duration, rangeEnd - start), event.GetEvent().AsNoteWithDuration().GetPitch()});
        }
        Mdie_TrackState state;
        AllocCounter counter;
        data.mChunk->AddNoteStateAtTime(&state, Ticks(at), Ticks(rangeStart), Ticks(rangeEnd), TickLength(offset), true);
        EXPECT_EQ(counter.Count(), 0u);
        for (; state.NextNoteOff(); state.PopNoteOff()) got.insert({state.NextNoteOff()->mReleaseTime.AsInt64(), state.NextNoteOff()->mPitch});
        EXPECT_EQ(got, expected) << at;
    }
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

    // Over a random chunk it yields what a range query delivers; a copy goes on from its place.
    RandomChunk data(9);
    filter.SetAll();
    filter.Set(Mdie_Filter::kPitchBend, false);
    Mdie_TimedEventList expected;
    Vela_EventListWrapper output(expected);
    data.mChunk->GetMidiEventsInRange(&output, TickLength(5), kMin, kMax, kMin, kMax, false, nullptr, nullptr, filter, nullptr, false, 0, kNoteOffNone);
    Vela_ChunkExtendedEventsInRangeIter it(data.mChunk.get(), kMin, kMax, TickLength(5), false, filter);
    for (int i = 0; i < 100; ++i) ++it;
    std::vector<Mdie_TimedEvent> walked(expected.begin(), expected.begin() + 100);
    for (Vela_ChunkExtendedEventsInRangeIter rest = it; rest.IsMore(); ++rest) walked.push_back(*rest);
    for (size_t i = 100; i < walked.size(); ++i) EXPECT_FALSE(Mdie_TimedEvent::PlaybackOrdering(walked[i], walked[i - 1])) << i;
    EXPECT_TRUE(std::is_permutation(walked.begin(), walked.end(), expected.begin(), expected.end()));
}

}  // namespace
