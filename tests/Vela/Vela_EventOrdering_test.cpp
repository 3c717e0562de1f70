// Equality and ordering of events: each per-type rule, and the asymmetries sorting relies on.
#include <gtest/gtest.h>

#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "BlockBytes.h"
#include "Vela_Event.h"

namespace {

const Time_TypedLength kQuarter(960000, kTime_Ticks);
enum { kProgramOff = 1, kMSBOff = 2, kLSBOff = 4 };

// A program event from its parts, with the parts named in iOff disabled.
Vela_ProgramEvent Pg(int iProgram, int iMSB, int iLSB, int iOff = 0) {
    return Vela_ProgramEvent(static_cast<int8_t>((iOff & kProgramOff ? 0x80 : 0) | iProgram),
                             static_cast<int16_t>((iOff & kMSBOff ? 0x8000 : 0) | (iOff & kLSBOff ? 0x4000 : 0) | (iMSB << 7) | iLSB));
}
Vela_NoteWithDurationEvent Note(int iPitch, int iOn, int iOff, int64_t iTicks = 960000) {
    return Vela_NoteWithDurationEvent(static_cast<int8_t>(iPitch), Time_TypedLength(iTicks, kTime_Ticks), static_cast<int8_t>(iOn),
                                      static_cast<int8_t>(iOff));
}
Vela_SysexEvent Sx(const ByteVector& iBytes) { return Vela_SysexEvent(static_cast<int>(iBytes.size()), iBytes.data()); }

}  // namespace

// Each row: a == b, a < b, b < a.
TEST(EventOrdering, EveryRuleAnswersEqualityAndOrderBothWays) {
    const unsigned char start[] = {0xF0, 0x43, 0x10}, other[] = {0xF0, 0x43, 0x11};
    const Vela_SysexEvent longSysex = Sx(Payload(20, 1));
    struct Row {
        Vela_Event mA, mB;
        bool mEqual, mALess, mBLess;
    };
    std::vector<Row> rows = {
        // Different types are neither equal nor ordered.
        {Vela_NoteOnEvent(60, 100), Vela_NoteOffEvent(60, 100), false, false, false},
        {Vela_StartEvent(), Vela_StopEvent(), false, false, false},
        // Two bytes, signed: first byte, then second.
        {Vela_NoteOnEvent(60, 100), Vela_NoteOnEvent(60, 100), true, false, false},
        {Vela_NoteOnEvent(60, 100), Vela_NoteOnEvent(60, 101), false, true, false},
        {Vela_NoteOnEvent(59, 127), Vela_NoteOnEvent(60, 0), false, true, false},
        {Vela_ControllerEvent(7, 5), Vela_ControllerEvent(10, 0), false, true, false},
        {Vela_PolyPressureEvent(60, 5), Vela_PolyPressureEvent(61, 5), false, true, false},
        {Vela_ControllerEvent(-1, 0), Vela_ControllerEvent(0, 0), false, true, false},
        // Note blocks: pitch, velocities, duration count; the time type is not compared.
        {Note(60, 100, 64), Vela_NoteWithDurationEvent(60, Time_TypedLength(960000, kTime_Samples), 100, 64), true, false, false},
        {Note(60, 100, 64), Note(61, 0, 0, 1), false, true, false},
        {Note(60, 100, 64), Note(60, 101, 0), false, true, false},
        {Note(60, 100, 64), Note(60, 100, 65), false, true, false},
        {Note(60, 100, 64), Note(60, 100, 64, 960001), false, true, false},
        {Vela_AddNoteInProgressEvent(60, kQuarter, 1, 1), Vela_AddNoteInProgressEvent(60, kQuarter, 1, 1), true, false, false},
        {Vela_ClearNoteInProgressEvent(59, kQuarter, 1, 1), Vela_ClearNoteInProgressEvent(60, kQuarter, 1, 1), false, true, false},
        // Single signed values; quarter frames compare unsigned.
        {Vela_PitchBendEvent(-8192), Vela_PitchBendEvent(0), false, true, false},
        {Vela_PitchBendEvent(100), Vela_PitchBendEvent(100), true, false, false},
        {Vela_SongPositionEvent(-1), Vela_SongPositionEvent(1), false, true, false},
        {Vela_MonoPressureEvent(-1), Vela_MonoPressureEvent(0), false, true, false},
        {Vela_ReleaseControllerEvent(-5), Vela_ReleaseControllerEvent(3), false, true, false},
        {Vela_QuarterFrameEvent(uint8_t{0x10}), Vela_QuarterFrameEvent(uint8_t{0x90}), false, true, false},
        {Vela_QuarterFrameEvent(uint8_t{0x39}), Vela_QuarterFrameEvent(Vela_Event::kSecondsHigh, 9), true, false, false},
        // Programs: equality ignores the values of disabled parts (not the flags); order is
        // decided by the first enabled part alone, an enabled part before a disabled one.
        {Pg(5, 1, 2), Pg(5, 1, 3), false, false, false},
        {Pg(5, 1, 2, kLSBOff), Pg(5, 1, 3), false, false, false},
        {Pg(5, 1, 2, kLSBOff), Pg(5, 1, 3, kLSBOff), true, false, false},
        {Pg(7, 9, 9, kProgramOff), Pg(8, 9, 9, kProgramOff), true, false, false},
        {Pg(7, 9, 9, kProgramOff | kMSBOff), Pg(8, 4, 9, kProgramOff), false, false, true},
        {Pg(7, 9, 9, kProgramOff | kMSBOff), Pg(8, 4, 9, kProgramOff | kMSBOff), true, false, false},
        {Pg(0, 1, 0), Pg(0, 2, 0), false, true, false},
        {Pg(127, 127, 127), Pg(0, 0, 0, kMSBOff), false, true, false},
        {Pg(0, 0, 3, kMSBOff), Pg(0, 9, 4, kMSBOff), false, true, false},
        {Pg(0, 0, 3, kMSBOff | kLSBOff), Pg(0, 9, 4, kMSBOff), false, false, true},
        {Pg(2, 0, 0, kMSBOff | kLSBOff), Pg(9, 0, 0, kMSBOff | kLSBOff), false, true, false},
        {Pg(2, 0, 0, kProgramOff | kMSBOff | kLSBOff), Pg(9, 0, 0, kMSBOff | kLSBOff), false, false, true},
        {Pg(2, 0, 0, kProgramOff | kMSBOff | kLSBOff), Pg(9, 0, 0, kProgramOff | kMSBOff | kLSBOff), true, true, true},
        // Inline sysex and short packets: length, then the bytes unsigned.
        {Sx({1, 2}), Sx({1, 2}), true, false, false},
        {Sx({1, 2}), Sx({1, 0x82}), false, true, false},
        {Sx({1, 0x82}), Sx({0, 0, 0}), false, true, false},
        {Vela_SysexEvent(0, start), Vela_SysexEvent(0, other), true, false, false},
        {Vela_SysexPacketEvent(3, start, nullptr), Vela_SysexPacketEvent(3, other, nullptr), false, true, false},
        {Vela_SysexPacketEvent(3, start, nullptr), Vela_SysexPacketEvent(3, start, nullptr), true, false, false},
        // Long sysex: equal only when the data object is shared; ordered by content.
        {longSysex, Sx(Payload(20, 1)), false, false, false},
        {longSysex, Vela_Event(longSysex), true, false, false},
        {longSysex, Sx(Payload(20, 2)), false, true, false},
        {longSysex, Sx(Payload(21, 0)), false, true, false},
    };
    // Payload-free types are equal to anything of their type and "less" both ways.
    for (const Vela_Event& event : {Vela_Event(), Vela_Event(Vela_StartEvent()), Vela_Event(Vela_ContinueEvent()),
                                    Vela_Event(Vela_StopEvent()), Vela_Event(Vela_TimingClockEvent()), Vela_Event(Vela_AllNotesOffEvent())})
        rows.push_back({event, event, true, true, true});

    AllocCounter counter;  // comparisons read shared data in place
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& r = rows[i];
        EXPECT_EQ(r.mA == r.mB, r.mEqual) << "row " << i;
        EXPECT_EQ(r.mA < r.mB, r.mALess) << "row " << i;
        EXPECT_EQ(r.mB < r.mA, r.mBLess) << "row " << i;
    }
    EXPECT_EQ(counter.Count(), 0u);
}

TEST(EventOrdering, InternalOnlyTypesAreAssertedAndAnswerTrue) {
    const Vela_PitchToMIDINoteWithDuration pitch(60, kQuarter, 100, 0, 0.25f);
    const Vela_ClipEvent clip("intro", kQuarter);
    AssertCapture capture;
    EXPECT_TRUE(pitch == Vela_PitchToMIDINoteWithDuration(61, kQuarter, 1, 1, 0.5f));
    EXPECT_TRUE(clip < clip);
    ASSERT_EQ(capture.Count(), 2u);
    EXPECT_EQ(capture.Texts()[0], "0@$^$@NewFileLibs/Vela/Vela_EventOrdering.cpp");
    EXPECT_EQ(capture.Condition(1), "0");
}
