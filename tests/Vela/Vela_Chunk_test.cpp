#include "Vela_Chunk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include "AllocCounter.h"
#include "ChunkEvents.h"
#include "Mdie_ChaseTracker.h"
#include "Mdie_NoteInProgress.h"
#include "Mdie_TrackState.h"
#include "Mem2_MasterAllocator.h"
#include "Vela_ContinuousDataStream.h"
#include "Vela_EventStream.h"
#include "Vela_ExtendedEventList.h"
#include "Vela_NoteList.h"

namespace {

using ChunkPtr = std::unique_ptr<Vela_Chunk>;

ChunkPtr NewChunk(bool iQuantize = false) { return ChunkPtr(Vela_Chunk::New(Ndo_Object::kNotUndoable, iQuantize)); }

Mdie_TimedEventList Collect(Vela_Chunk& iChunk, int64_t iStart = kTime_MinCount, int64_t iEnd = kTime_MaxCount,
                            int64_t iOffset = 0) {
    Mdie_TimedEventList list;
    Vela_EventListWrapper output(list);
    iChunk.GetMidiEventsInRange(&output, TickLength(iOffset), Ticks(iStart), Ticks(iEnd), false, nullptr, nullptr,
                                kNoteOffNone);
    return list;
}

std::vector<Mdie_SubStream> SubStreams(const Vela_Chunk& iChunk) {
    std::vector<Mdie_SubStream> result;
    for (const auto& entry : iChunk.GetContinuousList()) result.push_back(entry->GetSubStream());
    return result;
}

TEST(Vela_Chunk, EachKindGoesToItsMemberOrIsDropped) {
    Vela_NoteWithDurationExtendedEvent pitchToNote = NoteAt(0, 60);
    pitchToNote.SetEvent(Vela_PitchToMIDINoteWithDuration(60, TickLength(10), 100, 64, 0.5f));
    const unsigned char longPayload[20] = {1, 2, 3};
    struct Route {
        Vela_ExtendedEvent mEvent;
        size_t mNotes, mStreams, mEvents;
    } const routes[] = {
        {EventAt(0, Vela_NoteOnEvent(60, 100)), 0, 0, 0},
        {EventAt(0, Vela_NoteOffEvent(60, 0)), 0, 0, 0},
        {EventAt(0, Vela_NoteWithDurationEvent(60, TickLength(10), 100, 64)), 0, 0, 0},  // not a note record
        {NoteAt(0, 60), 1, 0, 0},
        {pitchToNote, 1, 0, 0},
        {EventAt(0, Vela_PitchBendEvent(100)), 0, 1, 0},
        {ControllerAt(0, 7, 1), 0, 1, 0},
        {ControllerAt(0, 0, 1), 0, 0, 0},  // controllers 0 and 120..127 have no sub-stream
        {ControllerAt(0, 121, 1), 0, 0, 0},
        {EventAt(0, Vela_ProgramEvent(5, 0)), 0, 1, 0},
        {EventAt(0, Vela_MonoPressureEvent(5)), 0, 1, 0},
        {EventAt(0, Vela_PolyPressureEvent(60, 5)), 0, 1, 0},
        {EventAt(0, Vela_StartEvent()), 0, 0, 0},
        {SysexAt(0, 1), 0, 0, 1},
        {EventAt(0, Vela_SysexEvent(20, longPayload)), 0, 0, 1},
        {EventAt(0, Vela_ClearNoteInProgressEvent(60, TickLength(10), 1, 1)), 0, 0, 0},
        {EventAt(0, Vela_AllNotesOffEvent()), 0, 0, 0},
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
        // Erasing undoes the add, except for kind 22, which the erase does not treat as a note.
        chunk->EraseEvent(route.mEvent);
        EXPECT_EQ(chunk->GetNoteList()->GetNumNotes(), kind == Vela_Event::kPitchToMIDINoteWithDuration ? 1u : 0u);
        EXPECT_EQ(chunk->GetContinuousList().GetSize() + chunk->GetEventStream()->Size(), 0u) << kind;
    }
}

TEST(Vela_Chunk, StreamsStaySortedUniqueAndGoOnlyWhereTheRulesSay) {
    ChunkPtr chunk = NewChunk();
    for (int number : {7, 1, 7, 64}) chunk->AddEvent(ControllerAt(10 * number, number, number));
    chunk->AddEvent(EventAt(5, Vela_PitchBendEvent(-3)));
    const std::vector<Mdie_SubStream> sorted = {Mdie_SubStream::PitchBend(), Mdie_SubStream::Controller(1),
                                                Mdie_SubStream::Controller(7), Mdie_SubStream::Controller(64)};
    EXPECT_EQ(SubStreams(*chunk), sorted);
    bool controllers[128] = {};
    controllers[100] = true;
    chunk->FindMIDIControllersInUse(controllers);
    EXPECT_EQ(std::count(controllers, controllers + 128, true), 4);
    EXPECT_TRUE(controllers[1] && controllers[7] && controllers[64] && controllers[100]);

    // A query creates the stream it asks about; erasing the last value removes a stream.
    EXPECT_FALSE(chunk->IsEventInChunk(EventAt(0, Vela_MonoPressureEvent(1))));
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 5u);
    EXPECT_TRUE(chunk->IsEventInChunk(ControllerAt(70, 7, 7)));
    EXPECT_FALSE(chunk->IsEventInChunk(ControllerAt(71, 7, 7)));
    chunk->EraseEvent(ControllerAt(10, 1, 1));
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 4u);

    // Erasing another chunk's events leaves emptied streams; a range erase removes them.
    ChunkPtr copy = NewChunk();
    copy->AddEventsFromChunk(chunk.get(), Ticks(0), Ticks(1000), TickLength(0), kMidiNudgeTimes);
    copy->EraseEventsFromChunk(chunk.get(), Ticks(0), Ticks(1000), TickLength(0));
    EXPECT_EQ(copy->GetContinuousList().GetSize(), 3u);  // bend, 7, 64: the empty pressure stream was not copied
    EXPECT_TRUE(Collect(*copy).IsEmpty());
    copy->EraseRange(Ticks(0), Ticks(1));
    EXPECT_EQ(copy->GetContinuousList().GetSize(), 0u);
    chunk->EraseSubStream(Mdie_SubStream::Controller(7), Ticks(0), Ticks(1000));
    chunk->Clear();
    EXPECT_EQ(chunk->GetContinuousList().GetSize(), 0u);
}

// A chunk of random notes, controllers, bends, programs and sysex, with what playback must
// deliver: every note and sysex, and the last value set at each time of each lane. Neighbouring
// values of a lane differ, so a tracker that skips a value it already holds skips nothing.
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
        int previousLane = -1;
        int32_t previousValue = 0;
        for (auto& [key, event] : lanes) {
            const Mdie_SubStream subStream(event);
            if (key.first == previousLane && subStream.GetValueFromEvent(event) == previousValue) {
                event = subStream.MakeEvent(previousValue ^ 1);
                mChunk->AddEvent(EventAt(key.second, event));
            }
            previousLane = key.first;
            previousValue = subStream.GetValueFromEvent(event);
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
    output.PushBack(Mdie_TimedEvent(Ticks(1 << 30), Vela_StopEvent()));  // not ours: must stay first
    Vela_EventListWrapper wrapper(output);
    std::vector<size_t> windowEnds;
    windowEnds.reserve(1000);
    std::mt19937 random(3);
    AllocCounter counter;
    for (int64_t start = offset; start < RandomChunk::kSpan + offset;) {
        const int64_t end = start + 1 + random() % 4000;
        data.mChunk->GetMidiEventsInRange(&wrapper, TickLength(offset), Ticks(start), Ticks(end), Time_Typed::MinTime(kTime_Ticks),
                                         Time_Typed::MaxTime(kTime_Ticks), false, &tracker, &map, filter, nullptr, false, 0,
                                         kNoteOffNone);
        for (size_t i = windowEnds.empty() ? 1 : windowEnds.back(); i < output.GetSize(); ++i) {
            EXPECT_GE(output[i].GetTime(), Ticks(start));
            EXPECT_LT(output[i].GetTime(), Ticks(end));
        }
        windowEnds.push_back(output.GetSize());
        start = end;
    }
    EXPECT_EQ(counter.Count(), 0u);
    ASSERT_EQ(output[0].GetEvent().GetType(), Vela_Event::kStop);
    std::vector<Mdie_TimedEvent> delivered(output.begin() + 1, output.end());
    for (size_t i = 1; i < delivered.size(); ++i)
        EXPECT_FALSE(Mdie_TimedEvent::PlaybackOrdering(delivered[i], delivered[i - 1])) << i;
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
    data.mChunk->GetChaseStateAtTime(&tracker, Ticks(at), Time_Typed::MinTime(kTime_Ticks));
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
    EXPECT_FALSE(std::any_of(window.begin(), window.end(), [](const Mdie_TimedEvent& iEvent) { return iEvent.GetEvent().GetType() == Vela_Event::kController; }));
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
}

TEST(Vela_Chunk, LegacyPlaybackMovesStartsByTheirDistanceToTheClipBoundaries) {
    ASSERT_EQ(Time_Globals::GetCoarseInternalTickGrid(), 9600);  // g; 2g = 19,200
    struct Case {
        std::vector<int64_t> mBoundaries;
        int64_t mStart, mOffset, mExpected;
    } const cases[] = {
        {{}, 1000000, 0, 998400},        // far from both: nearest grid point
        {{}, 1000000, 5000, 998400},     // of the start minus the offset
        {{}, 0, 0, 19200},               // 0 is one tick after the missing boundary -1
        {{}, 0, 100000, -1},             // results below -1 become -1
        {{}, -5000000, 0, -1},           // no overflow against the largest value
        {{100000}, 119200, 0, 115200},   // s - p = 2g
        {{100000}, 119199, 0, 134400},   // s - p = 2g - 1
        {{200000}, 180800, 0, 182400},   // n - s = 2g
        {{200000}, 180801, 0, 163200},   // n - s = 2g - 1
        {{100000, 110000}, 105000, 0, 105600},  // both near
    };
    for (const Case& test : cases) {
        ChunkPtr chunk = NewChunk();
        chunk->AddEvent(NoteAt(test.mStart, 60));
        for (int64_t boundary : test.mBoundaries) chunk->AddClipBoundary(boundary);
        chunk->MoveNotesForLegacyPlayback(TickLength(test.mOffset));
        EXPECT_EQ(chunk->GetNoteList()->GetNote(0).start, Ticks(test.mExpected)) << test.mStart;
        EXPECT_TRUE(chunk->GetClipBoundaries().empty());
    }
}

TEST(Vela_Chunk, QuantizingForTTMShiftsEverythingOnce) {
    ChunkPtr chunk = NewChunk();
    for (const Vela_ExtendedEvent& event : {Vela_ExtendedEvent(NoteAt(1000, 60)), ControllerAt(1000, 7, 1), SysexAt(1000, 2)})
        chunk->AddEvent(event);
    chunk->QuantizeEventsForTTM(TickLength(500));
    chunk->QuantizeEventsForTTM(TickLength(500));
    EXPECT_TRUE(chunk->IsQuantizedForTTM());
    for (const Mdie_TimedEvent& event : Collect(*chunk)) EXPECT_EQ(event.GetTime(), Ticks(1500));
}

TEST(Vela_Chunk, CopyingFromAChunkNudgesNotesByModeAndOtherEventsOnlyInMode0) {
    ChunkPtr source = NewChunk();
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
        const Mdie_TimedEventList events = Collect(*chunk);
        ASSERT_EQ(events.GetSize(), 2u);
        const auto& note = std::find_if(events.begin(), events.end(), [](const Mdie_TimedEvent& iEvent) { return iEvent.IsNoteWithDurationEvent(); });
        const auto& controller = note == events.begin() ? events[1] : events[0];
        EXPECT_EQ(note->GetTime(), Ticks(test.mStart)) << test.mMode;
        EXPECT_EQ(note->GetDuration(), TickLength(test.mDuration)) << test.mMode;
        EXPECT_EQ(note->GetEvent().AsNoteWithDuration().GetPitch(), test.mPitch) << test.mMode;
        EXPECT_EQ(controller.GetTime(), Ticks(test.mControllerTime)) << test.mMode;
    }
}

TEST(Vela_Chunk, EqualityComparesNotesAndEventsButStreamSlotsByIdentity) {
    ChunkPtr a = NewChunk(), b = NewChunk();
    for (Vela_Chunk* chunk : {a.get(), b.get()}) {
        chunk->AddEvent(NoteAt(10, 60));
        chunk->AddEvent(SysexAt(20, 1));
    }
    EXPECT_TRUE(*a == *b);
    b->AddEvent(SysexAt(20, 2));
    EXPECT_FALSE(*a == *b);
    b->ReplaceData(a.get());
    EXPECT_TRUE(*a == *b);
    EXPECT_NE(a->GetUID(), b->GetUID());
    for (Vela_Chunk* chunk : {a.get(), b.get()}) chunk->AddEvent(ControllerAt(5, 7, 1));
    EXPECT_FALSE(*a == *b);
    EXPECT_TRUE(*a == *a);
}

TEST(Vela_Chunk, TheRangeIteratorMergesItsMembersInPlaybackOrderNotesThenStreamsThenEvents) {
    ChunkPtr chunk = NewChunk();
    for (const Vela_ExtendedEvent& event : {SysexAt(100, 1), EventAt(100, Vela_MonoPressureEvent(1)), ControllerAt(100, 7, 1),
                                            EventAt(100, Vela_PitchBendEvent(1)), ControllerAt(100, 1, 1), ControllerAt(50, 7, 2)})
        chunk->AddEvent(event);
    Mdie_Filter filter;
    filter.SetAll();
    std::vector<int> kinds;
    for (Vela_ChunkExtendedEventsInRangeIter it(chunk.get(), Ticks(1000), Ticks(2000), TickLength(1000), false, filter); it.IsMore(); ++it) {
        const Vela_Event event = (*it).GetEvent();
        kinds.push_back(event.GetType() * 1000 + (event.GetType() == Vela_Event::kController ? event.AsController().GetControllerNumber() : 0));
        EXPECT_GE((*it).GetTime(), Ticks(1050));
    }
    EXPECT_EQ(kinds, (std::vector<int>{5007, 5001, 5007, 4000, 7000, 14000}));  // cc 7 at 50, then the ties
    filter.ClearAll();
    EXPECT_FALSE(Vela_ChunkExtendedEventsInRangeIter(chunk.get(), Ticks(0), Ticks(2000), TickLength(0), false, filter).IsMore());

    // Over a random chunk it yields what a range query delivers, and a copy goes on alike.
    RandomChunk data(9);
    filter.SetAll();
    filter.Set(Mdie_Filter::kPitchBend, false);
    Vela_ChunkExtendedEventsInRangeIter it(data.mChunk.get(), Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Ticks), TickLength(0), false, filter);
    for (int i = 0; i < 100; ++i) ++it;
    const Vela_ChunkExtendedEventsInRangeIter copy = it;
    Mdie_TimedEventList expected;
    Vela_EventListWrapper output(expected);
    data.mChunk->GetMidiEventsInRange(&output, TickLength(0), Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Ticks),
                                      Time_Typed::MinTime(kTime_Ticks), Time_Typed::MaxTime(kTime_Ticks), false, nullptr, nullptr,
                                      filter, nullptr, false, 0, kNoteOffNone);
    std::vector<Mdie_TimedEvent> walked(expected.begin(), expected.begin() + 100);
    for (Vela_ChunkExtendedEventsInRangeIter rest = copy; rest.IsMore(); ++rest) walked.push_back(*rest);
    ASSERT_EQ(walked.size(), expected.GetSize());
    for (size_t i = 100; i < walked.size(); ++i) {
        EXPECT_TRUE(walked[i].GetTime() == expected[i].GetTime()) << i;
        EXPECT_FALSE(Mdie_TimedEvent::PlaybackOrdering(walked[i], walked[i - 1])) << i;
    }
    EXPECT_TRUE(std::is_permutation(walked.begin(), walked.end(), expected.begin(), expected.end()));
}

}  // namespace
