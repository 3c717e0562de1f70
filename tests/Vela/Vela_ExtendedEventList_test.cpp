// Extended events, display items and the output wrapper of range queries: note properties in
// plain lists, the display order, which list a wrapper fills and reads, sorting of the
// appended tail, FindTime, and that the playback path allocates nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "BlockBytes.h"
#include "Vela_ExtendedEventList.h"

namespace {

Vela_ExtendedEvent At(int64_t iTime, const Vela_Event& iEvent) { return Vela_ExtendedEvent(Time_Typed(iTime, kTime_Ticks), iEvent); }
Vela_DisplayItem Item(int64_t iTime, const Vela_Event& iEvent) { return Vela_DisplayItem(At(iTime, iEvent), At(iTime, iEvent), false, 0); }
Vela_NoteWithDurationEvent Note(int8_t iPitch, int64_t iLength = 480) {
    return Vela_NoteWithDurationEvent(iPitch, Time_TypedLength(iLength, kTime_Ticks), 90, 30);
}

}  // namespace

TEST(ExtendedEvent, NotePropertiesSurviveAPlainListAndTheDeltaKeepsItsKind) {
    Vela_ExtendedEventList list;
    list.PushBack(Vela_NoteWithDurationExtendedEvent(Time_Typed(9, kTime_Ticks), Note(60), Time_TypedLength(-7, kTime_Ticks), Note(62, 960), true));
    list.PushBack(At(5, Vela_ControllerEvent(7, 100)));
    ASSERT_TRUE(list[0].IsNoteWithDurationExtendedEvent());
    Vela_NoteWithDurationExtendedEvent& note = list[0].AsNoteWithDurationExtendedEvent();
    EXPECT_EQ(note.GetOrigEvent(), Note(62, 960));
    EXPECT_TRUE(note.IsMuted());
    EXPECT_FALSE(list[1].IsNoteWithDurationExtendedEvent());
    EXPECT_EQ(list[1].AsNoteWithDurationExtendedEvent().GetOrigEvent().GetPitch(), 0);
    EXPECT_EQ(Vela_NoteWithDurationExtendedEvent(Time_Typed(5, kTime_Samples), Note(40), false).GetQuantizeTimeDelta(),
              Time_TypedLength(0, kTime_Samples));

    AssertCapture asserts;
    note.AdjustQuantizeTimeDelta(Time_TypedLength(30, kTime_Ticks));
    note.AdjustQuantizeTimeDelta(Time_TypedLength(1, kTime_Samples));
    EXPECT_EQ(note.GetQuantizeTimeDelta(), Time_TypedLength(23, kTime_Ticks));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Condition(), "!bFail");
}

TEST(DisplayItem, ShowsTheProcessedEventUnlessSwitchedOffAndOrdersByTimePriorityKindEvent) {
    const Vela_ExtendedEvent processed = At(10, Vela_ControllerEvent(7, 100)), stored = At(20, Vela_ControllerEvent(7, 50));
    const Vela_ExtendedEvent pitchToNote = At(30, Vela_PitchToMIDINoteWithDuration(60, Time_TypedLength(10, kTime_Ticks), 90, 0, 0.5f));
    EXPECT_EQ(Vela_DisplayItem(processed, stored, true, 3).GetDisplayTime(), processed.GetTime());
    Vela_DisplayItem::sMIDIDisplayPropertyEffects = false;
    EXPECT_EQ(Vela_DisplayItem(processed, stored, false, 0).GetDisplayTime(), stored.GetTime());
    EXPECT_EQ(Vela_DisplayItem(pitchToNote, stored, false, 0).GetDisplayTime(), pitchToNote.GetTime());
    Vela_DisplayItem::sMIDIDisplayPropertyEffects = true;

    struct Case {
        Vela_DisplayItem mA, mB;
        bool mABeforeB, mBBeforeA;
    };
    const Case cases[] = {
        {Item(1, Note(60)), Item(2, Vela_ProgramEvent(1, 0)), true, false},                        // time
        {Item(1, Vela_ProgramEvent(1, 0)), Item(1, Vela_ControllerEvent(7, 1)), true, false},      // priority
        {Item(1, Vela_PitchBendEvent(0)), Item(1, Vela_MonoPressureEvent(5)), true, false},        // kind 4 < 7
        {Item(1, Vela_ControllerEvent(7, 1)), Item(1, Vela_ControllerEvent(7, 2)), true, false},   // event
        {Item(1, Vela_ControllerEvent(7, 1)), Item(1, Vela_ControllerEvent(7, 1)), false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Vela_DisplayItem::PlaybackOrdering(c.mA, c.mB), c.mABeforeB);
        EXPECT_EQ(Vela_DisplayItem::PlaybackOrdering(c.mB, c.mA), c.mBBeforeA);
    }
}

TEST(EventListWrapper, FillsAndReadsTheFirstListItHolds) {
    Mdie_TimedEventList timed;
    Vela_ExtendedEventList extended;
    Vela_DisplayItemList display;
    Vela_EventListWrapper wrappers[] = {Vela_EventListWrapper(timed), Vela_EventListWrapper(&extended), Vela_EventListWrapper(display)};
    for (Vela_EventListWrapper& wrapper : wrappers) {
        wrapper.push_back(At(5, Vela_ControllerEvent(7, 1)));
        wrapper.push_back(Item(6, Vela_ControllerEvent(7, 2)));
        EXPECT_EQ(wrapper.size(), 1u);
    }
    EXPECT_EQ(wrappers[0][0].GetTime(), Time_Typed(5, kTime_Ticks));
    EXPECT_EQ(wrappers[1][0].GetTime(), Time_Typed(5, kTime_Ticks));
    EXPECT_EQ(wrappers[2].LastDisplayItem().GetDisplayTime(), Time_Typed(6, kTime_Ticks));
    EXPECT_TRUE(wrappers[1].IsExtended() && wrappers[2].IsDisplayList() && !wrappers[0].IsExtended());

    AssertCapture asserts;
    EXPECT_EQ(wrappers[2][0].GetEvent().GetType(), Vela_Event::kNull);
    EXPECT_EQ(wrappers[0].GetDisplayItem(0).GetTag(), 0);
    ASSERT_EQ(asserts.Count(), 2u);
    EXPECT_EQ(asserts.Condition(0), "mTimedListP != nullptr || mExtListP != nullptr");
    EXPECT_EQ(asserts.Condition(1), "mDisplayItemListP");
}

TEST(EventListWrapper, SortOrdersOnlyTheTailOfEachKindOfList) {
    std::mt19937 random(9);
    for (int round = 0; round < 50; ++round) {
        Mdie_TimedEventList timed;
        Vela_ExtendedEventList extended;
        Vela_DisplayItemList display;
        Vela_EventListWrapper wrappers[] = {Vela_EventListWrapper(timed), Vela_EventListWrapper(extended), Vela_EventListWrapper(display)};
        const size_t count = random() % 40;
        for (size_t i = 0; i < count; ++i) {
            const int64_t time = random() % 8;
            const int8_t value = static_cast<int8_t>(random() % 128);
            const Vela_Event events[] = {Vela_ControllerEvent(7, value), Vela_ProgramEvent(value, 0), Vela_PitchBendEvent(value), Note(value)};
            for (Vela_EventListWrapper& wrapper : wrappers) {
                wrapper.push_back(At(time, events[i % 4]));
                wrapper.push_back(Item(time, events[i % 4]));
            }
        }
        const size_t from = random() % (count + 2), kept = std::min(from, count);
        const std::vector<Mdie_TimedEvent> timedBefore(timed.begin(), timed.end());
        const std::vector<Vela_DisplayItem> displayBefore(display.begin(), display.end());
        for (Vela_EventListWrapper& wrapper : wrappers) wrapper.sort(from);
        for (size_t i = 0; i < kept; ++i) {
            EXPECT_EQ(timed[i], timedBefore[i]);
            EXPECT_EQ(static_cast<const Mdie_TimedEvent&>(extended[i]), timedBefore[i]);
            EXPECT_EQ(display[i].GetFirstEvent(), displayBefore[i].GetFirstEvent());
        }
        EXPECT_TRUE(std::is_sorted(timed.begin() + kept, timed.end(), &Mdie_TimedEvent::PlaybackOrdering));
        EXPECT_TRUE(std::is_sorted(extended.begin() + kept, extended.end(), &Mdie_TimedEvent::PlaybackOrdering));
        EXPECT_TRUE(std::is_sorted(display.begin() + kept, display.end(), &Vela_DisplayItem::PlaybackOrdering));
        EXPECT_TRUE(std::is_permutation(timed.begin(), timed.end(), timedBefore.begin()));
    }
}

TEST(EventListWrapper, FindTimeIsALowerBoundAndThePlaybackPathAllocatesNothing) {
    Vela_DisplayItemList display;
    for (int64_t time : {2, 4, 4, 9}) display.PushBack(Item(time, Vela_ControllerEvent(7, 1)));
    for (int64_t time = 0; time <= 10; ++time) {
        const auto expected = std::find_if(display.begin(), display.end(), [&](const Vela_DisplayItem& iItem) { return iItem.GetDisplayTime().AsInt64() >= time; });
        EXPECT_EQ(display.FindTime(Time_Typed(time, kTime_Ticks)), expected) << time;
    }

    const ByteVector payload = Payload(100);
    const Vela_SysexEvent longSysex(static_cast<int>(payload.size()), payload.data());
    Vela_ExtendedEventList extended;
    extended.Reserve(64);
    Vela_EventListWrapper wrapper(extended);
    AllocCounter counter;
    for (int i = 0; i < 64; ++i) wrapper.push_back(At(64 - i, i % 2 ? Vela_Event(longSysex) : Vela_ControllerEvent(7, 1)));
    wrapper.sort(0);
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(extended[0].GetTime().AsInt64(), 1);
}
