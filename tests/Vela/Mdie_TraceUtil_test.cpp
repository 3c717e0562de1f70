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
    std::vector<char> buffer(std::max<size_t>(iSize, 1), '\0');  // no spare byte: the sanitizers see any overflow
    Mdie_TraceUtil::FormatMidiEvent(buffer.data(), iSize, iEvent);
    return std::string(buffer.data(), strnlen(buffer.data(), buffer.size()));
}

std::vector<unsigned char> SysexBytes(int iLength, bool iComplete) {  // F0 0 1 2 ... (7 bits) [F7]
    std::vector<unsigned char> bytes{0xF0};
    for (int i = 1; i < iLength; ++i) bytes.push_back(static_cast<unsigned char>((i - 1) & 0x7F));
    if (iComplete) bytes.back() = 0xF7;
    return bytes;
}

std::string Hex(const std::vector<unsigned char>& iBytes, size_t iFirst, size_t iEnd) {
    std::string text;
    for (size_t i = iFirst; i < iEnd; ++i) text += " " + std::string(1, "0123456789abcdef"[iBytes[i] >> 4]) + "0123456789abcdef"[iBytes[i] & 15];
    return text;
}

}  // namespace

TEST(Mdie_TraceUtil, FormatsEveryEventType) {
    const unsigned char shortPayload[] = {0x7E, 0x7F, 0x09, 0x01};
    const std::vector<unsigned char> packet = SysexBytes(14, false);
    const struct {
        Vela_Event mEvent;
        std::string mText;
    } kCases[] = {
        {Vela_NoteOnEvent(60, 100), "NoteOn(60, 100)"},
        {Vela_NoteOffEvent(61, 0), "NoteOff(61, 0)"},
        {Vela_NoteWithDurationEvent(60, {960, kTime_Ticks}, 100, 64), "NoteWithDuration(p: 60, d: 960t, on: 100, off: 64)"},
        {Vela_NoteWithDurationEvent(1, {5000000000, kTime_Samples}, 2, 3), "NoteWithDuration(p: 1, d: 5000000000s, on: 2, off: 3)"},
        {Vela_PitchBendEvent(-8192), "PitchBend(-8192)"},
        {Vela_ControllerEvent(7, 127), "Controller(7: 127)"},
        {Vela_ProgramEvent(5, 1 << 7 | 2), "Program(5, bank 130 MSB LSB)"},
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
        {Vela_ClearNoteInProgressEvent(60, {1, kTime_Ticks}, 1, 1), "UnknownEvent(17)"},
        {Vela_AllNotesOffEvent(), "UnknownEvent(20)"},
    };
    for (const auto& c : kCases) EXPECT_EQ(Format(c.mEvent), c.mText);
}

TEST(Mdie_TraceUtil, LongSysexShowsBothEndsWithinAnyBuffer) {
    Mem2_MasterAllocator allocator(1 << 16);
    const std::vector<unsigned char> complete = SysexBytes(300, true), incomplete = SysexBytes(300, false);
    const Vela_SysexEvent whole(298, complete.data() + 1);
    const Vela_SysexPacketEvent beginning(300, incomplete.data(), &allocator);
    ASSERT_TRUE(whole.GetType() == Vela_Event::kLongSysex && beginning.GetType() == Vela_Event::kLongSysex);
    // In 200 bytes, 56 leading bytes pass the budget less 26 (49 after the 11 of " INCOMPLETE").
    EXPECT_EQ(Format(whole), "Sysex -" + Hex(complete, 0, 56) + " ..." + Hex(complete, 296, 300));
    EXPECT_EQ(Format(beginning), "Sysex - INCOMPLETE" + Hex(incomplete, 0, 49) + " ..." + Hex(incomplete, 296, 300));
    for (size_t size = 0; size < 240; ++size) {  // smaller buffers keep fewer leading bytes; from 60 bytes both ends show
        const std::string text = Format(whole, size), incompleteText = Format(beginning, size);
        EXPECT_TRUE(text.size() < std::max<size_t>(size, 1) && incompleteText.size() < std::max<size_t>(size, 1)) << size;
        EXPECT_TRUE(size < 60 || (text.ends_with(" ..." + Hex(complete, 296, 300)) && incompleteText.ends_with(" ..." + Hex(incomplete, 296, 300)))) << size;
    }
}

TEST(Mdie_TraceUtil, TimedEventsTimestampsListsAndTrackStates) {
    Mdie_TimedEventList list;
    list.PushBack(Mdie_TimedEvent(Time_Typed(480, kTime_Ticks), Vela_NoteOnEvent(60, 100)));
    list.PushBack(Mdie_TimedEvent(Time_Typed(100, kTime_Samples), Vela_StopEvent()));
    const std::vector<unsigned char> bytes = SysexBytes(300, true);
    list.PushBack(Mdie_TimedEvent(Time_Typed(), Vela_SysexEvent(298, bytes.data() + 1)));
    char text[Mdie_TraceUtil::kLineSize], shortText[18], stamp[18];
    AllocCounter counter;
    Mdie_TraceUtil::TraceMidiEventList(&list);
    Mdie_TraceUtil::FormatTimedMidiEvent(shortText, sizeof shortText, list[0]);
    Mdie_TraceUtil::FormatTimedMidiEvent(text, sizeof text, list[2]);
    Mdie_TraceUtil::FormatMidiTimestamp(stamp, sizeof stamp, 12345678, Time_Sample(592592));
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_STREQ(shortText, "<sample: 480> Not");
    EXPECT_EQ(std::string(text).substr(0, 25), "<sample: 0> Sysex - f0 00");
    EXPECT_STREQ(stamp, "[2.345.6, 592592]");

    std::ostringstream out;
    list.Erase(2);
    Mdie_TraceUtil::PrintTimedEventList(&list, out);
    out.setstate(std::ios::failbit);
    Mdie_TraceUtil::PrintTimedEventList(&list, out);
    Mdie_TraceUtil::PrintMidiEvent(Vela_StopEvent(), out);
    EXPECT_EQ(out.str(), "480t  NoteOn(60, 100)\n100s  Stop\n") << "nothing once the stream has failed";

    Mem2_MasterAllocator allocator(1 << 16);
    Mdie_NoteInProgress::SetAllocator(&allocator);
    Mdie_TrackState state;
    state.ReceiveEvent(Mdie_TimedEvent(Time_Typed(10, kTime_Ticks), Vela_NoteWithDurationEvent(60, {990, kTime_Ticks}, 100, 64)));
    state.ReceiveEvent(Vela_NoteOnEvent(-3, 7));
    std::ostringstream stateText;
    Mdie_TraceUtil::PrintTrackState(&state, stateText);
    EXPECT_EQ(stateText.str(), "Begin Mdie_TrackState:\n\t(-3, 7, 64, 1)\n\t(60, 100, 64, 1000)\n");
    state.Clear();
}
