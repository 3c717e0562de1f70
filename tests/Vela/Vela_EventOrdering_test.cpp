// Equality and ordering of events: each per-type rule, and the asymmetries sorting relies on.
#include <gtest/gtest.h>

#include "AllocCounter.h"
#include "AssertCapture.h"
#include "EventBytes.h"
#include "BlockBytes.h"
#include "Vela_Event.h"

namespace {

const Time_TypedLength kQuarter(960000, kTime_Ticks);

}  // namespace

TEST(EventOrdering, EventsOfDifferentTypesAreNeitherEqualNorOrdered) {
    const Vela_NoteOnEvent on(60, 100);
    const Vela_NoteOffEvent off(60, 100);
    EXPECT_FALSE(on == off);
    EXPECT_FALSE(on < off);
    EXPECT_FALSE(off < on);
    EXPECT_FALSE(Vela_StartEvent() < Vela_StopEvent());
}

TEST(EventOrdering, PayloadFreeEventsAreAlwaysEqualAndAlwaysLess) {
    const Vela_Event events[] = {Vela_Event(), Vela_StartEvent(), Vela_ContinueEvent(),
                                 Vela_StopEvent(), Vela_TimingClockEvent(), Vela_AllNotesOffEvent()};
    for (const Vela_Event& event : events) {
        const Vela_Event other(event);
        EXPECT_TRUE(event == other);
        EXPECT_TRUE(event < other);
        EXPECT_TRUE(other < event);
        EXPECT_TRUE(event < event);
    }
}

TEST(EventOrdering, TwoByteEventsCompareFirstByteThenSecond) {
    EXPECT_TRUE(Vela_NoteOnEvent(60, 100) == Vela_NoteOnEvent(60, 100));
    EXPECT_FALSE(Vela_NoteOnEvent(60, 100) == Vela_NoteOnEvent(60, 101));
    EXPECT_TRUE(Vela_NoteOnEvent(59, 127) < Vela_NoteOnEvent(60, 0));
    EXPECT_TRUE(Vela_NoteOffEvent(60, 1) < Vela_NoteOffEvent(60, 2));
    EXPECT_FALSE(Vela_NoteOffEvent(60, 2) < Vela_NoteOffEvent(60, 2));
    EXPECT_TRUE(Vela_ControllerEvent(7, 5) < Vela_ControllerEvent(10, 0));
    EXPECT_FALSE(Vela_PolyPressureEvent(60, 5) == Vela_PolyPressureEvent(61, 5));
    // Signed bytes: a stored -1 is below 0.
    EXPECT_TRUE(Vela_ControllerEvent(-1, 0) < Vela_ControllerEvent(0, 0));
}

TEST(EventOrdering, NoteBlocksCompareFieldsAndDurationCountButNotTimeType) {
    const Vela_NoteWithDurationEvent note(60, kQuarter, 100, 64);
    const Vela_NoteWithDurationEvent inSamples(60, Time_TypedLength(960000, kTime_Samples), 100, 64);
    EXPECT_TRUE(note == inSamples);
    EXPECT_FALSE(note == Vela_NoteWithDurationEvent(60, kQuarter, 100, 65));
    EXPECT_TRUE(note < Vela_NoteWithDurationEvent(61, Time_TypedLength(1, kTime_Ticks), 0, 0));
    EXPECT_TRUE(note < Vela_NoteWithDurationEvent(60, kQuarter, 101, 0));
    EXPECT_TRUE(note < Vela_NoteWithDurationEvent(60, kQuarter, 100, 65));
    EXPECT_TRUE(note < Vela_NoteWithDurationEvent(60, Time_TypedLength(960001, kTime_Ticks), 100, 64));
    EXPECT_FALSE(note < inSamples);
    // The notes-in-progress types share the rule.
    EXPECT_TRUE(Vela_AddNoteInProgressEvent(60, kQuarter, 1, 1) == Vela_AddNoteInProgressEvent(60, kQuarter, 1, 1));
    EXPECT_TRUE(Vela_ClearNoteInProgressEvent(59, kQuarter, 1, 1) < Vela_ClearNoteInProgressEvent(60, kQuarter, 1, 1));
}

TEST(EventOrdering, SingleValueEventsCompareTheirValue) {
    EXPECT_TRUE(Vela_PitchBendEvent(-8192) < Vela_PitchBendEvent(0));
    EXPECT_TRUE(Vela_PitchBendEvent(100) == Vela_PitchBendEvent(100));
    EXPECT_TRUE(Vela_SongPositionEvent(-1) < Vela_SongPositionEvent(1));
    EXPECT_TRUE(Vela_MonoPressureEvent(-1) < Vela_MonoPressureEvent(0));
    EXPECT_TRUE(Vela_ReleaseControllerEvent(-5) < Vela_ReleaseControllerEvent(3));
    EXPECT_FALSE(Vela_ReleaseControllerEvent(3) == Vela_ReleaseControllerEvent(4));
    // Quarter frames compare unsigned, unlike mono pressure.
    EXPECT_TRUE(Vela_QuarterFrameEvent(uint8_t{0x10}) < Vela_QuarterFrameEvent(uint8_t{0x90}));
    EXPECT_FALSE(Vela_QuarterFrameEvent(uint8_t{0x90}) < Vela_QuarterFrameEvent(uint8_t{0x10}));
    EXPECT_TRUE(Vela_QuarterFrameEvent(uint8_t{0x39}) == Vela_QuarterFrameEvent(Vela_Event::kSecondsHigh, 9));
}

TEST(EventOrdering, ProgramEqualityIgnoresTheValuesOfDisabledParts) {
    Vela_ProgramEvent a(5, Bank(1, 2));
    Vela_ProgramEvent b(5, Bank(1, 3));
    EXPECT_FALSE(a == b);
    a.SetLSBBankEnable(false);
    EXPECT_FALSE(a == b);  // flags disagree
    b.SetLSBBankEnable(false);
    EXPECT_TRUE(a == b);

    Vela_ProgramEvent c(static_cast<int8_t>(0x80 | 7), Bank(9, 9));
    Vela_ProgramEvent d(static_cast<int8_t>(0x80 | 8), Bank(9, 9));
    EXPECT_TRUE(c == d);
    c.SetMSBBankEnable(false);
    d.SetMSBBank(4);
    EXPECT_FALSE(c == d);
    d.SetMSBBankEnable(false);
    EXPECT_TRUE(c == d);
}

TEST(EventOrdering, ProgramOrderIsDecidedByTheFirstEnabledPartAlone) {
    // Same MSB: LSB and program are not looked at.
    const Vela_ProgramEvent msb1lsb5(0, Bank(1, 5));
    const Vela_ProgramEvent msb1lsb7(0, Bank(1, 7));
    EXPECT_FALSE(msb1lsb5 < msb1lsb7);
    EXPECT_FALSE(msb1lsb7 < msb1lsb5);
    EXPECT_FALSE(msb1lsb5 == msb1lsb7);
    EXPECT_TRUE(Vela_ProgramEvent(0, Bank(1, 0)) < Vela_ProgramEvent(0, Bank(2, 0)));

    // An enabled MSB is less than a disabled one, whatever the values.
    Vela_ProgramEvent msbOff(0, Bank(0, 0));
    msbOff.SetMSBBankEnable(false);
    EXPECT_TRUE(Vela_ProgramEvent(127, Bank(127, 127)) < msbOff);
    EXPECT_FALSE(msbOff < Vela_ProgramEvent(127, Bank(127, 127)));

    // MSBs off: the LSB decides the same way.
    Vela_ProgramEvent lsb3(0, Bank(0, 3));
    Vela_ProgramEvent lsb4(0, Bank(9, 4));
    lsb3.SetMSBBankEnable(false);
    lsb4.SetMSBBankEnable(false);
    EXPECT_TRUE(lsb3 < lsb4);
    lsb3.SetLSBBankEnable(false);
    EXPECT_TRUE(lsb4 < lsb3);

    // Both bank halves off: the program decides, an enabled program first.
    Vela_ProgramEvent p2(2, 0);
    Vela_ProgramEvent p9(9, 0);
    for (Vela_ProgramEvent* p : {&p2, &p9}) {
        p->SetMSBBankEnable(false);
        p->SetLSBBankEnable(false);
    }
    EXPECT_TRUE(p2 < p9);
    EXPECT_FALSE(p9 < p2);
    p2.SetProgramEnable(false);
    EXPECT_TRUE(p9 < p2);
    // Everything off on both sides: "less" both ways.
    p9.SetProgramEnable(false);
    EXPECT_TRUE(p9 < p2);
    EXPECT_TRUE(p2 < p9);
}

TEST(EventOrdering, InlineSysexComparesLengthThenUnsignedBytes) {
    const unsigned char low[] = {0x01, 0x02};
    const unsigned char high[] = {0x01, 0x82};
    const unsigned char longer[] = {0x00, 0x00, 0x00};
    EXPECT_TRUE(Vela_SysexEvent(2, low) == Vela_SysexEvent(2, low));
    EXPECT_FALSE(Vela_SysexEvent(2, low) == Vela_SysexEvent(2, high));
    EXPECT_TRUE(Vela_SysexEvent(2, low) < Vela_SysexEvent(2, high));
    EXPECT_FALSE(Vela_SysexEvent(2, high) < Vela_SysexEvent(2, low));
    EXPECT_TRUE(Vela_SysexEvent(2, high) < Vela_SysexEvent(3, longer));
    EXPECT_TRUE(Vela_SysexEvent(0, low) == Vela_SysexEvent(0, high));

    // Short packets (type 16) follow the same rule.
    const unsigned char start[] = {0xF0, 0x43, 0x10};
    const unsigned char other[] = {0xF0, 0x43, 0x11};
    const Vela_SysexPacketEvent a(3, start, nullptr);
    const Vela_SysexPacketEvent b(3, other, nullptr);
    ASSERT_EQ(a.GetType(), Vela_Event::kSysexPacket);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a == Vela_SysexPacketEvent(3, start, nullptr));
}

TEST(EventOrdering, LongSysexEqualityIsIdentityAndOrderIsByContent) {
    const ByteVector bytes = Payload(20, 1);
    const Vela_SysexEvent first(20, bytes.data());
    const Vela_SysexEvent second(20, bytes.data());
    ASSERT_EQ(first.GetType(), Vela_Event::kLongSysex);
    EXPECT_FALSE(first == second);
    EXPECT_FALSE(first < second);
    EXPECT_FALSE(second < first);

    const Vela_Event copy(first);
    AllocCounter counter;
    EXPECT_TRUE(copy == first);
    EXPECT_FALSE(copy < first);
    EXPECT_FALSE(Vela_ProgramEvent(1, Bank(2, 3)) < Vela_ProgramEvent(1, Bank(2, 4)));
    EXPECT_EQ(counter.Count(), 0u);  // comparisons read the shared data in place

    const ByteVector greater = Payload(20, 2);
    const ByteVector longer = Payload(21, 0);
    EXPECT_TRUE(first < Vela_SysexEvent(20, greater.data()));
    EXPECT_FALSE(Vela_SysexEvent(20, greater.data()) < first);
    EXPECT_TRUE(first < Vela_SysexEvent(21, longer.data()));
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
