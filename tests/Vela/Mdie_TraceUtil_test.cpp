#include "Mdie_TraceUtil.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "AllocCounter.h"
#include "Mdie_TrackState.h"
#include "Mem2_MasterAllocator.h"

namespace {

std::string Format(const Vela_Event& iEvent, size_t iSize = Mdie_TraceUtil::kLineSize) {
    std::vector<char> buffer(iSize, 'x');  // exactly iSize bytes: the sanitizers see any overflow
    Mdie_TraceUtil::FormatMidiEvent(buffer.data(), iSize, iEvent);
    return iSize ? std::string(buffer.data()) : std::string();
}

// F0, then bytes 0, 1, 2, ... (7 bits), with a final F7 when iComplete; iLength bytes in all.
std::vector<unsigned char> SysexBytes(int iLength, bool iComplete) {
    std::vector<unsigned char> bytes(static_cast<size_t>(iLength));
    for (int i = 1; i < iLength; ++i) bytes[size_t(i)] = static_cast<unsigned char>((i - 1) & 0x7F);
    bytes.front() = 0xF0;
    if (iComplete) bytes.back() = 0xF7;
    return bytes;
}

std::string Hex(const std::vector<unsigned char>& iBytes, size_t iFirst, size_t iEnd) {
    std::string text;
    char item[8];
    for (size_t i = iFirst; i < iEnd; ++i) text += (std::snprintf(item, sizeof item, " %02x", iBytes[i]), item);
    return text;
}

}  // namespace

TEST(Mdie_TraceUtil, FormatsEveryEventType) {
    const unsigned char shortPayload[] = {0x7E, 0x7F, 0x09, 0x01};
    const std::vector<unsigned char> packet = SysexBytes(14, false);
    Vela_ProgramEvent bankAndProgram(5, 0);
    bankAndProgram.SetMSBBank(1);
    bankAndProgram.SetLSBBank(2);
    const struct {
        Vela_Event mEvent;
        std::string mText;
    } kCases[] = {
        {Vela_NoteOnEvent(60, 100), "NoteOn(60, 100)"},
        {Vela_NoteOffEvent(61, 0), "NoteOff(61, 0)"},
        {Vela_NoteWithDurationEvent(60, Time_TypedLength(960, kTime_Ticks), 100, 64), "NoteWithDuration(p: 60, d: 960t, on: 100, off: 64)"},
        {Vela_NoteWithDurationEvent(1, Time_TypedLength(5000000000, kTime_Samples), 2, 3), "NoteWithDuration(p: 1, d: 5000000000s, on: 2, off: 3)"},
        {Vela_PitchBendEvent(-8192), "PitchBend(-8192)"},
        {Vela_ControllerEvent(7, 127), "Controller(7: 127)"},
        {bankAndProgram, "Program(5, bank 130 MSB LSB)"},
        {Vela_ProgramEvent(int8_t(0x85), int16_t(0x8000 | 130)), "Program(5, bank 130 LSB)"},
        {Vela_ProgramEvent(9, int16_t(0x4000 | 3)), "Program(9, bank 3 MSB)"},
        {Vela_MonoPressureEvent(33), "MonoPressure(33)"},
        {Vela_PolyPressureEvent(60, 20), "PolyPressure(60: 20)"},
        {Vela_SongPositionEvent(1234), "Song Position(1234)"},
        {Vela_StartEvent(), "Start"},
        {Vela_ContinueEvent(), "Continue"},
        {Vela_StopEvent(), "Stop"},
        {Vela_TimingClockEvent(), "TimingClock"},
        {Vela_SysexEvent(4, shortPayload), "Sysex - f0 7e 7f 09 01 f7"},
        {Vela_SysexPacketEvent(14, packet.data(), nullptr), "Sysex - INCOMPLETE" + Hex(packet, 0, 14)},
        {Vela_Event(), "UnknownEvent(0)"},
        {Vela_ClearNoteInProgressEvent(60, Time_TypedLength(1, kTime_Ticks), 1, 1), "UnknownEvent(17)"},
        {Vela_AllNotesOffEvent(), "UnknownEvent(20)"},
    };
    for (const auto& c : kCases) EXPECT_EQ(Format(c.mEvent), c.mText);
}

TEST(Mdie_TraceUtil, LongSysexShowsItsEndsWithinAnyBuffer) {
    Mem2_MasterAllocator allocator(1 << 16);
    const std::vector<unsigned char> complete = SysexBytes(300, true), incomplete = SysexBytes(300, false);
    const Vela_SysexEvent whole(298, complete.data() + 1);
    const Vela_SysexPacketEvent beginning(300, incomplete.data(), &allocator);
    ASSERT_EQ(whole.GetType(), Vela_Event::kLongSysex);
    ASSERT_EQ(beginning.GetType(), Vela_Event::kLongSysex);
    // 200 bytes: 56 bytes fit before the budget less 26 is passed (49 with the INCOMPLETE mark).
    EXPECT_EQ(Format(whole), "Sysex -" + Hex(complete, 0, 56) + " ..." + Hex(complete, 296, 300));
    EXPECT_EQ(Format(beginning), "Sysex - INCOMPLETE" + Hex(incomplete, 0, 49) + " ..." + Hex(incomplete, 296, 300));
    // Smaller buffers keep fewer leading bytes; from 60 bytes on, both ends always show.
    for (size_t size = 0; size < 240; ++size) {
        for (const auto* bytesP : {&complete, &incomplete}) {
            const std::string text = Format(bytesP == &complete ? static_cast<const Vela_Event&>(whole) : beginning, size);
            EXPECT_LT(text.size(), std::max<size_t>(size, 1)) << size;
            EXPECT_TRUE(size < 60 || text.ends_with(" ..." + Hex(*bytesP, 296, 300))) << size << text;
        }
    }
}

TEST(Mdie_TraceUtil, TimedEventsTimestampsListsAndTrackStates) {
    char text[Mdie_TraceUtil::kLineSize];
    Mdie_TraceUtil::FormatTimedMidiEvent(text, sizeof text, Mdie_TimedEvent(Time_Typed(480, kTime_Ticks), Vela_NoteOnEvent(60, 100)));
    EXPECT_STREQ(text, "<sample: 480> NoteOn(60, 100)");
    Mdie_TraceUtil::FormatTimedMidiEvent(text, 18, Mdie_TimedEvent(Time_Typed(480, kTime_Ticks), Vela_NoteOnEvent(60, 100)));
    EXPECT_STREQ(text, "<sample: 480> Not");
    Mdie_TraceUtil::FormatMidiTimestamp(text, sizeof text, 12345678, Time_Sample(592592));
    EXPECT_STREQ(text, "[2.345.6, 592592]");

    Mdie_TimedEventList list;
    list.PushBack(Mdie_TimedEvent(Time_Typed(480, kTime_Ticks), Vela_NoteOnEvent(60, 100)));
    list.PushBack(Mdie_TimedEvent(Time_Typed(100, kTime_Samples), Vela_StopEvent()));
    std::ostringstream out;
    Mdie_TraceUtil::PrintTimedEventList(&list, out);
    EXPECT_EQ(out.str(), "480t  NoteOn(60, 100)\n100s  Stop\n");
    out.setstate(std::ios::failbit);
    Mdie_TraceUtil::PrintTimedEventList(&list, out);
    Mdie_TraceUtil::PrintMidiEvent(Vela_StopEvent(), out);
    EXPECT_EQ(out.str(), "480t  NoteOn(60, 100)\n100s  Stop\n");

    Mem2_MasterAllocator allocator(1 << 16);
    Mdie_NoteInProgress::SetAllocator(&allocator);
    Mdie_TrackState state;
    state.ReceiveEvent(Mdie_TimedEvent(Time_Typed(10, kTime_Ticks), Vela_NoteWithDurationEvent(60, Time_TypedLength(990, kTime_Ticks), 100, 64)));
    state.ReceiveEvent(Vela_NoteOnEvent(-3, 7));
    std::ostringstream stateText;
    Mdie_TraceUtil::PrintTrackState(&state, stateText);
    EXPECT_EQ(stateText.str(), "Begin Mdie_TrackState:\n\t(-3, 7, 64, 1)\n\t(60, 100, 64, 1000)\n");

    const std::vector<unsigned char> bytes = SysexBytes(300, true);
    list.PushBack(Mdie_TimedEvent(Time_Typed(), Vela_SysexEvent(298, bytes.data() + 1)));
    AllocCounter counter;
    Mdie_TraceUtil::TraceMidiEventList(&list);
    Mdie_TraceUtil::FormatMidiEvent(text, sizeof text, list[2].GetEvent());
    Mdie_TraceUtil::FormatMidiEvent(text, sizeof text, Vela_SysexEvent(4, reinterpret_cast<const unsigned char*>("abcd")));
    Mdie_TraceUtil::FormatTimedMidiEvent(text, sizeof text, list[0]);
    Mdie_TraceUtil::FormatMidiTimestamp(text, sizeof text, 1, Time_Sample(1));
    EXPECT_EQ(counter.Count(), 0u);
    state.Clear();

    struct : Mdi_AppCallback {
        void ReportDiagnostic(const char*) override {}
    } callback;
    Mdie_TraceUtil::SetCallback(&callback);
    EXPECT_EQ(Mdie_TraceUtil::sCallback, &callback);
    Mdie_TraceUtil::SetCallback(nullptr);
}
