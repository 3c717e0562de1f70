// Extended events and display items: note properties, the quantize delta, which event a
// display item shows, and the display playback order.
#include <gtest/gtest.h>

#include "AssertCapture.h"
#include "Vela_ExtendedEventList.h"

namespace {

const Time_Typed kTime(1000, kTime_Ticks);

Vela_NoteWithDurationEvent Note(int8_t iPitch, int64_t iLength = 480) {
    return Vela_NoteWithDurationEvent(iPitch, Time_TypedLength(iLength, kTime_Ticks), 90, 30);
}

Vela_ExtendedEvent At(int64_t iTime, const Vela_Event& iEvent) { return Vela_ExtendedEvent(Time_Typed(iTime, kTime_Ticks), iEvent); }

}  // namespace

TEST(ExtendedEvent, NotePropertiesSurviveAPlainListWhilePlainEventsCarryNone) {
    const Vela_NoteWithDurationExtendedEvent note(kTime, Note(60), Time_TypedLength(-7, kTime_Ticks), Note(62, 960), true);
    Vela_ExtendedEventList list;
    list.PushBack(note);
    list.PushBack(At(5, Vela_ControllerEvent(7, 100)));

    ASSERT_TRUE(list[0].IsNoteWithDurationExtendedEvent());
    const Vela_NoteWithDurationExtendedEvent& stored = list[0].AsNoteWithDurationExtendedEvent();
    EXPECT_EQ(stored.GetTime(), kTime);
    EXPECT_EQ(stored.GetNote().GetPitch(), 60);
    EXPECT_EQ(stored.GetQuantizeTimeDelta(), Time_TypedLength(-7, kTime_Ticks));
    EXPECT_EQ(stored.GetOrigEvent(), Note(62, 960));
    EXPECT_EQ(stored.GetOrigEvent().GetType(), Vela_Event::kNoteWithDuration);
    EXPECT_TRUE(stored.IsMuted());

    EXPECT_FALSE(list[1].IsNoteWithDurationExtendedEvent());
    const Vela_NoteWithDurationExtendedEvent& plain = list[1].AsNoteWithDurationExtendedEvent();
    EXPECT_EQ(plain.GetQuantizeTimeDelta().AsInt64(), 0);
    EXPECT_EQ(plain.GetOrigEvent().GetPitch(), 0);
    EXPECT_FALSE(plain.IsMuted());

    // The short form takes the note as its own original, with a zero delta of the time's kind.
    const Vela_NoteWithDurationExtendedEvent sampleNote(Time_Typed(5, kTime_Samples), Note(40), false);
    EXPECT_EQ(sampleNote.GetOrigEvent(), Note(40));
    EXPECT_EQ(sampleNote.GetQuantizeTimeDelta().GetType(), kTime_Samples);
    EXPECT_EQ(sampleNote.GetQuantizeTimeDelta().AsInt64(), 0);
}

TEST(ExtendedEvent, QuantizeDeltaAddsOnlyWithinItsTimeKind) {
    AssertCapture asserts;
    Vela_NoteWithDurationExtendedEvent note(kTime, Note(60), false);
    note.AdjustQuantizeTimeDelta(Time_TypedLength(30, kTime_Ticks));
    note.AdjustQuantizeTimeDelta(Time_TypedLength(-10, kTime_Ticks));
    EXPECT_EQ(asserts.Count(), 0u);
    EXPECT_EQ(note.GetQuantizeTimeDelta(), Time_TypedLength(20, kTime_Ticks));

    note.AdjustQuantizeTimeDelta(Time_TypedLength(1, kTime_Samples));
    ASSERT_EQ(asserts.Count(), 1u);
    EXPECT_EQ(asserts.Condition(), "!bFail");
    EXPECT_EQ(note.GetQuantizeTimeDelta(), Time_TypedLength(20, kTime_Ticks));

    note.ResetQuantizeTimeDelta(kTime_Samples);
    EXPECT_EQ(note.GetQuantizeTimeDelta().GetType(), kTime_Samples);
    EXPECT_EQ(note.GetQuantizeTimeDelta().AsInt64(), 0);
}

TEST(DisplayItem, ShowsTheProcessedEventUnlessSwitchedOffExceptForPitchToNote) {
    const Vela_ExtendedEvent processed = At(10, Vela_ControllerEvent(7, 100));
    const Vela_ExtendedEvent stored = At(20, Vela_ControllerEvent(7, 50));
    const Vela_ExtendedEvent pitchToNote = At(30, Vela_PitchToMIDINoteWithDuration(60, Time_TypedLength(10, kTime_Ticks), 90, 0, 0.5f));

    ASSERT_TRUE(Vela_DisplayItem::sMIDIDisplayPropertyEffects);
    const Vela_DisplayItem shown(processed, stored, true, 3);
    EXPECT_EQ(shown.GetDisplayedEvent().GetTime(), processed.GetTime());
    EXPECT_EQ(shown.GetDisplayTime(), processed.GetTime());
    EXPECT_TRUE(shown.GetFlag());
    EXPECT_EQ(shown.GetTag(), 3);

    Vela_DisplayItem::sMIDIDisplayPropertyEffects = false;
    EXPECT_EQ(shown.GetDisplayedEvent().GetTime(), stored.GetTime());
    EXPECT_EQ(Vela_DisplayItem(processed, stored, false, 0).GetDisplayTime(), stored.GetTime());
    EXPECT_EQ(Vela_DisplayItem(pitchToNote, stored, false, 0).GetDisplayedEvent().GetTime(), pitchToNote.GetTime());
    Vela_DisplayItem::sMIDIDisplayPropertyEffects = true;
}

TEST(DisplayItem, PlaybackOrderIsTimeThenPriorityThenKindThenEvent) {
    auto item = [](int64_t iTime, const Vela_Event& iEvent) {
        const Vela_ExtendedEvent event = At(iTime, iEvent);
        return Vela_DisplayItem(event, event, false, 0);
    };
    struct Case {
        Vela_DisplayItem mA, mB;
        bool mABeforeB, mBBeforeA;
    };
    const Case cases[] = {
        {item(1, Note(60)), item(2, Vela_ProgramEvent(1, 0)), true, false},                       // time first
        {item(1, Vela_ProgramEvent(1, 0)), item(1, Vela_ControllerEvent(7, 1)), true, false},    // priority 20 < 30
        {item(1, Vela_PitchBendEvent(0)), item(1, Vela_MonoPressureEvent(5)), true, false},   // both 50: kind 4 < 7
        {item(1, Vela_ControllerEvent(7, 1)), item(1, Vela_ControllerEvent(7, 2)), true, false},  // the events' order
        {item(1, Vela_ControllerEvent(7, 1)), item(1, Vela_ControllerEvent(7, 1)), false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Vela_DisplayItem::PlaybackOrdering(c.mA, c.mB), c.mABeforeB);
        EXPECT_EQ(Vela_DisplayItem::PlaybackOrdering(c.mB, c.mA), c.mBBeforeA);
    }
}
